#include "platform/modal_win32.h"

namespace tavora {
namespace {

bool g_anyEnded = false;
HelpKeyHandler g_help = nullptr;
DWORD g_endedAt = 0;

bool IsButtonMessage(UINT message) {
  return (message >= WM_LBUTTONDOWN && message <= WM_MBUTTONDBLCLK) ||
         (message >= WM_XBUTTONDOWN && message <= WM_XBUTTONDBLCLK) ||
         (message >= WM_NCLBUTTONDOWN && message <= WM_NCMBUTTONDBLCLK) ||
         (message >= WM_NCXBUTTONDOWN && message <= WM_NCXBUTTONDBLCLK);
}

}  // namespace

void SetHelpKeyHandler(HelpKeyHandler handler) { g_help = handler; }

void NoteModalEnded() {
  g_anyEnded = true;
  g_endedAt = GetTickCount();
}

bool IsLeftoverModalClick(UINT message, DWORD time) {
  if (!g_anyEnded || !IsButtonMessage(message)) return false;
  // Message times wrap; a leftover was made at most moments before the end.
  const DWORD before = g_endedAt - time;
  return static_cast<LONG>(before) >= 0 && before < 60000;
}

ModalWindow::ModalWindow(HWND window, HWND owner)
    : window_(window), owner_(owner), ownerWasEnabled_(owner && IsWindowEnabled(owner)) {
  if (ownerWasEnabled_) EnableWindow(owner_, FALSE);
}

void ModalWindow::Run(const bool& done, HWND focus) {
  if (!window_) return;
  ShowWindow(window_, SW_SHOW);
  SetForegroundWindow(window_);
  if (focus) SetFocus(focus);
  MSG msg;
  while (!done) {
    const BOOL got = GetMessageW(&msg, nullptr, 0, 0);
    if (got <= 0) {
      if (got == 0) PostQuitMessage(static_cast<int>(msg.wParam));
      break;
    }
    if (IsLeftoverModalClick(msg)) continue;
    if (msg.message == WM_KEYDOWN && msg.wParam == VK_F1 && g_help &&
        (msg.hwnd == window_ || IsChild(window_, msg.hwnd))) {
      g_help(window_);
      continue;
    }
    if (IsDialogMessageW(window_, &msg)) continue;
    TranslateMessage(&msg);
    DispatchMessageW(&msg);
  }
}

void ModalWindow::Close() {
  if (!window_) return;
  NoteModalEnded();
  if (ownerWasEnabled_) EnableWindow(owner_, TRUE);
  DestroyWindow(window_);
  window_ = nullptr;
  if (ownerWasEnabled_) SetActiveWindow(owner_);
}

namespace {

// A top-level window of the thread is about to be destroyed (it is still on
// the screen).
LRESULT CALLBACK WatchDestroy(int code, WPARAM wp, LPARAM lp) {
  if (code == HCBT_DESTROYWND && !(GetWindowLongPtrW(reinterpret_cast<HWND>(wp), GWL_STYLE) & WS_CHILD))
    NoteModalEnded();
  return CallNextHookEx(nullptr, code, wp, lp);
}

}  // namespace

SystemModalWatch::SystemModalWatch()
    : hook_(SetWindowsHookExW(WH_CBT, &WatchDestroy, nullptr, GetCurrentThreadId())) {}

SystemModalWatch::~SystemModalWatch() {
  if (hook_) UnhookWindowsHookEx(hook_);
}

}  // namespace tavora
