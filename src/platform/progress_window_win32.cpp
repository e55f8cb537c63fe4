#include "platform/progress_window_win32.h"

#include <commctrl.h>

#include <atomic>
#include <chrono>
#include <future>

#include "platform/dpi_win32.h"
#include "platform/modal_win32.h"
#include "platform/theme_win32.h"

namespace tavora {
namespace {

constexpr UINT kWorkDone = WM_APP + 41;
constexpr UINT_PTR kTimer = 1;
constexpr int kBarId = 10;
// Work that ends within this time shows no window at all.
constexpr auto kQuiet = std::chrono::milliseconds(350);

struct ProgressWindow {
  Progress* progress = nullptr;
  bool done = false;
  HWND bar = nullptr;
  HFONT font = nullptr;
};

void CancelWork(HWND hwnd, ProgressWindow& state) {
  state.progress->Cancel();
  EnableWindow(GetDlgItem(hwnd, IDCANCEL), FALSE);
  SetDlgItemTextW(hwnd, 11, L"Cancelling…");
}

LRESULT CALLBACK ProgressProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) {
  auto* state = reinterpret_cast<ProgressWindow*>(GetWindowLongPtrW(hwnd, GWLP_USERDATA));
  switch (msg) {
    case WM_NCCREATE:
      SetWindowLongPtrW(hwnd, GWLP_USERDATA,
                        reinterpret_cast<LONG_PTR>(reinterpret_cast<CREATESTRUCTW*>(lp)->lpCreateParams));
      break;
    case WM_TIMER:
      if (state && state->bar)
        SendMessageW(state->bar, PBM_SETPOS, static_cast<WPARAM>(state->progress->Fraction() * 1000), 0);
      return 0;
    case kWorkDone:
      if (state) state->done = true;
      return 0;
    case WM_COMMAND:
      if (state && LOWORD(wp) == IDCANCEL) CancelWork(hwnd, *state);
      return 0;
    case WM_CLOSE:
      if (state) CancelWork(hwnd, *state);
      return 0;
    case WM_DRAWITEM:
      DrawPushButton(*reinterpret_cast<const DRAWITEMSTRUCT*>(lp), false);
      return TRUE;
    case WM_ERASEBKGND: {
      RECT r;
      GetClientRect(hwnd, &r);
      FillRect(reinterpret_cast<HDC>(wp), &r, DialogBackgroundBrush());
      return 1;
    }
    default:
      if (HBRUSH brush = DialogControlColor(msg, wp)) return reinterpret_cast<LRESULT>(brush);
      break;
  }
  return DefWindowProcW(hwnd, msg, wp, lp);
}

}  // namespace

bool RunWithProgress(HWND owner, const std::wstring& title, const std::function<void()>& work) {
  Progress progress;
  std::atomic<HWND> window{nullptr};
  std::future<void> job = std::async(std::launch::async, [&] {
    ScopedProgress scope(&progress);
    work();
    // The window may not exist yet; the loop below checks the future too.
    if (HWND w = window.load()) PostMessageW(w, kWorkDone, 0, 0);
  });
  if (job.wait_for(kQuiet) == std::future_status::ready) {
    job.get();
    return !progress.Cancelled();
  }

  static bool registered = false;
  if (!registered) {
    WNDCLASSEXW wc{sizeof wc};
    wc.lpfnWndProc = &ProgressProc;
    wc.hInstance = GetModuleHandleW(nullptr);
    wc.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    wc.lpszClassName = L"KZProgress";
    RegisterClassExW(&wc);
    registered = true;
  }
  const UINT dpi = owner ? WindowDpi(owner) : SystemDpi();
  auto S = [dpi](int v) { return MulDiv(v, static_cast<int>(dpi), 96); };
  ProgressWindow state{&progress};
  RECT ownerRect{0, 0, GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN)};
  if (owner) GetWindowRect(owner, &ownerRect);
  const int width = S(380), clientHeight = S(112);
  RECT frame{0, 0, width, clientHeight};
  AdjustWindowRectEx(&frame, WS_POPUP | WS_CAPTION | WS_SYSMENU, FALSE, WS_EX_DLGMODALFRAME);
  const int height = frame.bottom - frame.top;
  HWND created = CreateWindowExW(WS_EX_DLGMODALFRAME | WS_EX_CONTROLPARENT, L"KZProgress", title.c_str(),
                                 WS_POPUP | WS_CAPTION | WS_SYSMENU, (ownerRect.left + ownerRect.right - width) / 2,
                                 (ownerRect.top + ownerRect.bottom - height) / 2, width, height, owner, nullptr,
                                 GetModuleHandleW(nullptr), &state);
  if (!created) {
    job.get();
    return !progress.Cancelled();
  }
  state.font = CreateFontW(-S(12), 0, 0, 0, FW_NORMAL, 0, 0, 0, DEFAULT_CHARSET, 0, 0, CLEARTYPE_QUALITY, 0, L"Segoe UI");
  auto control = [&](const wchar_t* cls, const wchar_t* text, DWORD style, int x, int y, int w, int h, int id) {
    HWND c = CreateWindowExW(0, cls, text, WS_CHILD | WS_VISIBLE | style, x, y, w, h, created,
                             reinterpret_cast<HMENU>(static_cast<INT_PTR>(id)), GetModuleHandleW(nullptr), nullptr);
    SendMessageW(c, WM_SETFONT, reinterpret_cast<WPARAM>(state.font), TRUE);
    return c;
  };
  control(L"Static", L"Working…", SS_LEFT, S(14), S(12), width - S(28), S(20), 11);
  state.bar = control(PROGRESS_CLASSW, L"", 0, S(14), S(38), width - S(28), S(18), kBarId);
  SendMessageW(state.bar, PBM_SETRANGE32, 0, 1000);
  control(L"Button", L"Cancel", PushButtonStyle(false) | WS_TABSTOP, width - S(110), S(72), S(96), S(28), IDCANCEL);
  ThemeDialog(created);
  SetTimer(created, kTimer, 100, nullptr);
  window = created;
  // The work may have ended before the window could be told.
  if (job.wait_for(std::chrono::seconds(0)) == std::future_status::ready) state.done = true;
  {
    ModalWindow modal(created, owner);
    modal.Run(state.done, GetDlgItem(created, IDCANCEL));
    window = nullptr;
    job.get();
    KillTimer(created, kTimer);
  }
  DeleteObject(state.font);
  return !progress.Cancelled();
}

}  // namespace tavora
