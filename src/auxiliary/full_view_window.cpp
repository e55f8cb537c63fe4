// "KZFullView": the window, its input and its loop. The pictures are fitted
// once per slide (full_view.h); a frame of a transition is at most one
// fade of one picture over the row workers and two blits.
#include "auxiliary/full_view_window.h"

#include <algorithm>
#include <optional>
#include <string>

#include "auxiliary/full_view.h"
#include "base/settings_store.h"
#include "platform/form_dialog_win32.h"
#include "platform/modal_win32.h"
#include "processing/effect_dialogs.h"

namespace tavora {
namespace {

struct View {
  HWND hwnd = nullptr;
  int32_t width = 0, height = 0;  // the monitor
  FittedPicture current;
  FittedPicture incoming;         // during a transition
  Surface faded;                  // the fade's frame, one picture's size
  FullViewTimeline* timeline = nullptr;
  int buttons = 0;                // mouse buttons held
  bool exit = false;
};
View* g_view = nullptr;  // one view at a time

int64_t NowMs() {
  static LARGE_INTEGER frequency{};
  if (!frequency.QuadPart) QueryPerformanceFrequency(&frequency);
  LARGE_INTEGER now;
  QueryPerformanceCounter(&now);
  return static_cast<int64_t>(now.QuadPart * 1000 / frequency.QuadPart);
}

void Blit(HDC dc, const Surface& pixels, const Rect& place) {
  BITMAPINFO bmi{};
  bmi.bmiHeader = {sizeof(BITMAPINFOHEADER), pixels.Width(), -pixels.Height(), 1, 32, BI_RGB};
  SetDIBitsToDevice(dc, place.x0, place.y0, pixels.Width(), pixels.Height(), 0, 0, 0, pixels.Height(),
                    pixels.Data(), &bmi, DIB_RGB_COLORS);
}

// Black where no picture is, then the pictures: every pixel is drawn once,
// so nothing flickers.
void DrawPictures(HDC dc, const View& v, std::initializer_list<std::pair<const Surface*, Rect>> pictures) {
  const int saved = SaveDC(dc);
  for (const auto& [pixels, place] : pictures) ExcludeClipRect(dc, place.x0, place.y0, place.x1, place.y1);
  RECT all{0, 0, v.width, v.height};
  FillRect(dc, &all, static_cast<HBRUSH>(GetStockObject(BLACK_BRUSH)));
  RestoreDC(dc, saved);
  for (const auto& [pixels, place] : pictures) Blit(dc, *pixels, place);
}

void DrawSteady(HDC dc, View& v) { DrawPictures(dc, v, {{&v.current.pixels, v.current.place}}); }

// One frame of the running transition at progress u.
void DrawTransition(HDC dc, View& v, double u) {
  if (v.incoming.Empty()) return DrawSteady(dc, v);
  const FullViewTimeline& t = *v.timeline;
  if (t.Transition() == SlideTransition::Slide) {
    const SlidePlaces p = SlideFrame(v.current.place, v.incoming.place, v.width, SlideOffset(v.width, u), t.Direction());
    DrawPictures(dc, v, {{&v.current.pixels, p.outgoing}, {&v.incoming.pixels, p.incoming}});
    return;
  }
  // Fade through black: the old picture down over the first half, the new
  // one up over the second.
  const bool second = u >= 0.5;
  const FittedPicture& shown = second ? v.incoming : v.current;
  if (v.faded.Width() != shown.pixels.Width() || v.faded.Height() != shown.pixels.Height())
    v.faded = Surface(shown.pixels.Width(), shown.pixels.Height());
  FadeCopy(shown.pixels, FadeBrightness(u, second), v.faded);
  DrawPictures(dc, v, {{&v.faded, shown.place}});
}

void End(View& v) {
  v.exit = true;
  if (GetCapture() == v.hwnd) ReleaseCapture();
}

LRESULT CALLBACK ViewProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) {
  if (!g_view || g_view->hwnd != hwnd) return DefWindowProcW(hwnd, msg, wp, lp);
  View& v = *g_view;
  switch (msg) {
    case WM_PAINT: {
      PAINTSTRUCT ps;
      HDC dc = BeginPaint(hwnd, &ps);
      DrawSteady(dc, v);
      EndPaint(hwnd, &ps);
      return 0;
    }
    case WM_ERASEBKGND:
      return 1;
    case WM_SETCURSOR:
      SetCursor(nullptr);
      return TRUE;
    case WM_KEYDOWN:
      switch (wp) {
        case VK_ESCAPE: End(v); break;
        case VK_PRIOR:
        case VK_LEFT: v.timeline->Request(-1); break;
        case VK_NEXT:
        case VK_RIGHT: v.timeline->Request(1); break;
      }
      return 0;
    case WM_LBUTTONDOWN:
    case WM_RBUTTONDOWN:
    case WM_MBUTTONDOWN:
    case WM_XBUTTONDOWN:
      if (v.buttons++ == 0) SetCapture(hwnd);
      return msg == WM_XBUTTONDOWN ? TRUE : 0;
    case WM_LBUTTONUP:
    case WM_RBUTTONUP:
    case WM_MBUTTONUP:
    case WM_XBUTTONUP:
      // The view ends when the last button held goes up.
      if (v.buttons > 0 && --v.buttons == 0) End(v);
      return msg == WM_XBUTTONUP ? TRUE : 0;
    case WM_ACTIVATE:
      if (LOWORD(wp) == WA_INACTIVE) End(v);
      return 0;
    case WM_CLOSE:
      End(v);
      return 0;
  }
  return DefWindowProcW(hwnd, msg, wp, lp);
}

HINSTANCE InstanceOf(HWND hwnd) { return reinterpret_cast<HINSTANCE>(GetWindowLongPtrW(hwnd, GWLP_HINSTANCE)); }

void RegisterViewClass(HINSTANCE instance) {
  static bool registered = false;
  if (registered) return;
  WNDCLASSEXW wc{sizeof wc};
  wc.lpfnWndProc = ViewProc;
  wc.hInstance = instance;
  wc.hCursor = nullptr;  // no cursor over the view
  wc.hbrBackground = static_cast<HBRUSH>(GetStockObject(BLACK_BRUSH));
  wc.lpszClassName = L"KZFullView";
  registered = RegisterClassExW(&wc) != 0;
}

// Messages until the view ends; a step, then the transition's next frame.
void RunLoop(View& v, const FullViewTabs& tabs) {
  FullViewTimeline& timeline = *v.timeline;
  while (!v.exit) {
    const int64_t wait = timeline.WaitMs(NowMs());
    MsgWaitForMultipleObjectsEx(0, nullptr, wait < 0 ? INFINITE : static_cast<DWORD>(wait), QS_ALLINPUT,
                                MWMO_INPUTAVAILABLE);
    MSG msg;
    while (!v.exit && PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
      if (msg.message == WM_QUIT) {
        PostQuitMessage(static_cast<int>(msg.wParam));  // for the loop outside
        v.exit = true;
        break;
      }
      TranslateMessage(&msg);
      DispatchMessageW(&msg);
    }
    if (v.exit) break;
    if (const auto step = timeline.Due(NowMs())) {
      // A step during a transition finishes it first.
      if (!v.incoming.Empty()) v.current = std::move(v.incoming);
      v.incoming = {};
      FittedPicture next;
      if (Document* doc = tabs.document(step->tab, tabs.context)) next = FitDocument(*doc, v.width, v.height);
      if (!next.Empty()) (step->animated ? v.incoming : v.current) = std::move(next);
      timeline.Shown(*step, NowMs());
      if (!step->animated || v.incoming.Empty()) {
        HDC dc = GetDC(v.hwnd);
        DrawSteady(dc, v);
        ReleaseDC(v.hwnd, dc);
      }
    }
    if (const auto u = timeline.Progress(NowMs())) {
      HDC dc = GetDC(v.hwnd);
      if (*u >= 1) {
        if (!v.incoming.Empty()) v.current = std::move(v.incoming);
        v.incoming = {};
        v.faded = {};
        DrawSteady(dc, v);
      } else {
        DrawTransition(dc, v, *u);
      }
      ReleaseDC(v.hwnd, dc);
    }
  }
}

}  // namespace

void ShowFullScreen(HWND main, const FullViewTabs& tabs, int32_t tabIndex, bool slideshow, int32_t seconds,
                    SlideTransition transition) {
  if (!main || !IsWindow(main) || !tabs.count || !tabs.document || g_view) return;
  const int32_t count = tabs.count(tabs.context);
  if (tabIndex < 0 || tabIndex >= count) return;
  Document* first = tabs.document(tabIndex, tabs.context);
  if (!first) return;
  MONITORINFO monitor{sizeof monitor};
  if (!GetMonitorInfoW(MonitorFromWindow(main, MONITOR_DEFAULTTONEAREST), &monitor)) return;
  const RECT& m = monitor.rcMonitor;
  View v;
  v.width = m.right - m.left;
  v.height = m.bottom - m.top;
  v.current = FitDocument(*first, v.width, v.height);
  if (v.current.Empty()) return;

  const HINSTANCE instance = InstanceOf(main);
  RegisterViewClass(instance);
  v.hwnd = CreateWindowExW(WS_EX_TOPMOST | WS_EX_TOOLWINDOW, L"KZFullView", L"Full Screen View", WS_POPUP, m.left,
                           m.top, v.width, v.height, main, nullptr, instance, nullptr);
  if (!v.hwnd) return;
  FullViewTimeline timeline(tabIndex, count, slideshow, seconds, transition, NowMs());
  v.timeline = &timeline;
  g_view = &v;
  // Modal: nothing under the view takes input until it ends.
  const bool mainWasEnabled = !EnableWindow(main, FALSE);
  ShowWindow(v.hwnd, SW_SHOW);
  SetForegroundWindow(v.hwnd);
  SetFocus(v.hwnd);
  UpdateWindow(v.hwnd);
  RunLoop(v, tabs);

  // The click or key that ended the view belongs to it.
  NoteModalEnded();
  if (mainWasEnabled) EnableWindow(main, TRUE);
  ShowWindow(v.hwnd, SW_HIDE);  // gone from the screen at once, whatever destroying costs
  DestroyWindow(v.hwnd);
  g_view = nullptr;
  SetForegroundWindow(main);
}

void StartSlideshow(HWND main, const FullViewTabs& tabs, int32_t activeTab) {
  if (!tabs.count || tabs.count(tabs.context) < 1) return;
  SettingsStore& settings = AppSettings();
  SlideshowSettings s = LoadSlideshowSettings(settings);
  FormDialog form(L"Slideshow", 380);
  const int seconds = form.AddNumber(L"Seconds per image:", s.seconds, 0);
  const int transition =
      form.AddChoice(L"Transition:", {L"None", L"Slide", L"Fade through black"}, static_cast<int>(s.transition));
  const int onFirst = form.AddCheck(L"Start with the first tab", s.startOnFirst);
  form.validate = [&](FormDialog& f) -> std::wstring {
    const auto v = f.Number(seconds);
    if (v && *v >= 1 && *v <= 3600) return {};
    const std::u16string message = RangeMessage(1, 3600);
    return std::wstring(message.begin(), message.end());
  };
  if (!form.Run(main, L"Start")) return;
  s.seconds = std::clamp(static_cast<int32_t>(*form.Number(seconds) + 0.5), 1, 3600);
  s.transition = static_cast<SlideTransition>(std::clamp(form.Choice(transition), 0, 2));
  s.startOnFirst = form.Checked(onFirst);
  SaveSlideshowSettings(settings, s);
  const int32_t count = tabs.count(tabs.context);
  const int32_t start = s.startOnFirst || activeTab < 0 || activeTab >= count ? 0 : activeTab;
  ShowFullScreen(main, tabs, start, true, s.seconds, s.transition);
}

}  // namespace tavora
