#include "auxiliary/manual_window.h"

#include <commctrl.h>
#include <windowsx.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "auxiliary/manual.h"
#include "platform/dpi_win32.h"
#include "platform/message_box_win32.h"
#include "platform/theme_win32.h"

namespace tavora {
namespace {

constexpr int kSearchId = 10, kListId = 11, kBackId = 12;
constexpr wchar_t kClass[] = L"KZManual";
constexpr wchar_t kPageClass[] = L"KZManualPage";

struct Fonts {
  HFONT ui = nullptr, body = nullptr, strong = nullptr, link = nullptr, heading = nullptr, title = nullptr;
  void Release() {
    for (HFONT* f : {&ui, &body, &strong, &link, &heading, &title}) {
      if (*f) DeleteObject(*f);
      *f = nullptr;
    }
  }
};

struct Viewer {
  HWND window = nullptr, search = nullptr, list = nullptr, back = nullptr, page = nullptr;
  UINT dpi = 96;
  Fonts fonts;
  Manual manual;
  bool loaded = false;
  int32_t current = -1;
  ManualHistory history;
  std::vector<int32_t> listPages;  // the page of each list row, -1 for none
  ManualLayout layout;
  int32_t layoutWidth = -1;
  int32_t scroll = 0;
  HBRUSH background = nullptr;
};
Viewer v;

int S(int value) { return MulDiv(value, static_cast<int>(v.dpi), 96); }

std::wstring Wide(std::u16string_view s) { return std::wstring(s.begin(), s.end()); }

bool LoadManual() {
  if (v.loaded) return true;
  HMODULE module = GetModuleHandleW(nullptr);
  HRSRC found = FindResourceW(module, L"MANUAL", MAKEINTRESOURCEW(10));  // RT_RCDATA
  if (!found) return false;
  HGLOBAL data = LoadResource(module, found);
  const void* bytes = data ? LockResource(data) : nullptr;
  if (!bytes) return false;
  v.manual = ParseManual({static_cast<const char*>(bytes), SizeofResource(module, found)});
  v.loaded = !v.manual.pages.empty();
  return v.loaded;
}

HFONT MakeFont(int pixels, int weight, bool underline) {
  return CreateFontW(-S(pixels), 0, 0, 0, weight, FALSE, underline, FALSE, DEFAULT_CHARSET, 0, 0,
                     CLEARTYPE_QUALITY, 0, L"Segoe UI");
}

void MakeFonts() {
  v.fonts.Release();
  v.fonts.ui = MakeFont(13, FW_NORMAL, false);
  v.fonts.body = MakeFont(15, FW_NORMAL, false);
  v.fonts.strong = MakeFont(15, FW_SEMIBOLD, false);
  v.fonts.link = MakeFont(15, FW_NORMAL, true);
  v.fonts.heading = MakeFont(19, FW_SEMIBOLD, false);
  v.fonts.title = MakeFont(26, FW_SEMIBOLD, false);
}

HFONT FontOf(ManualStyle style) {
  switch (style) {
    case ManualStyle::Strong: return v.fonts.strong;
    case ManualStyle::Link: return v.fonts.link;
    case ManualStyle::Heading: return v.fonts.heading;
    case ManualStyle::Title: return v.fonts.title;
    case ManualStyle::Body: break;
  }
  return v.fonts.body;
}

COLORREF PageBackground() {
  return DialogThemeDark() ? DialogThemeColors().field : GetSysColor(COLOR_WINDOW);
}
COLORREF PageText() { return DialogThemeDark() ? DialogThemeColors().text : GetSysColor(COLOR_WINDOWTEXT); }
COLORREF LinkColor() { return DialogThemeDark() ? RGB(0x7F, 0xB2, 0xF5) : RGB(0x00, 0x5A, 0xC8); }

// ---------------------------------------------------------------- page

void Relayout() {
  RECT r;
  GetClientRect(v.page, &r);
  const int32_t width = r.right - r.left;
  if (v.current < 0 || width <= 0) {
    v.layout = {};
    v.layoutWidth = width;
    return;
  }
  HDC dc = GetDC(v.page);
  ManualMetrics m;
  m.measure = [dc](std::u16string_view text, ManualStyle style) {
    HGDIOBJ old = SelectObject(dc, FontOf(style));
    SIZE size{};
    GetTextExtentPoint32W(dc, reinterpret_cast<LPCWSTR>(text.data()), static_cast<int>(text.size()), &size);
    SelectObject(dc, old);
    return static_cast<int32_t>(size.cx);
  };
  m.bodyLine = S(22);
  m.headingLine = S(28);
  m.titleLine = S(38);
  m.margin = S(18);
  m.gap = S(8);
  m.indent = S(20);
  v.layout = LayoutManualPage(v.manual.pages[static_cast<std::size_t>(v.current)], width, m);
  ReleaseDC(v.page, dc);
  v.layoutWidth = width;
}

void UpdateScrollBar() {
  RECT r;
  GetClientRect(v.page, &r);
  const int32_t view = r.bottom - r.top;
  v.scroll = std::clamp(v.scroll, 0, std::max(0, v.layout.height - view));
  SCROLLINFO si{sizeof si};
  si.fMask = SIF_RANGE | SIF_PAGE | SIF_POS;
  si.nMin = 0;
  si.nMax = std::max(0, v.layout.height - 1);
  si.nPage = static_cast<UINT>(std::max(0, view));
  si.nPos = v.scroll;
  SetScrollInfo(v.page, SB_VERT, &si, TRUE);
}

void ScrollTo(int32_t y) {
  v.scroll = y;
  UpdateScrollBar();
  InvalidateRect(v.page, nullptr, FALSE);
}

void PaintPage(HWND hwnd) {
  PAINTSTRUCT ps;
  HDC dc = BeginPaint(hwnd, &ps);
  RECT r;
  GetClientRect(hwnd, &r);
  if (v.layoutWidth != r.right - r.left) {
    Relayout();
    UpdateScrollBar();
  }
  HDC mem = CreateCompatibleDC(dc);
  HBITMAP bitmap = CreateCompatibleBitmap(dc, std::max(1L, r.right), std::max(1L, r.bottom));
  HGDIOBJ oldBitmap = SelectObject(mem, bitmap);
  HBRUSH fill = CreateSolidBrush(PageBackground());
  FillRect(mem, &r, fill);
  DeleteObject(fill);
  SetBkMode(mem, TRANSPARENT);
  HGDIOBJ oldFont = SelectObject(mem, v.fonts.body);
  for (const ManualRun& run : v.layout.runs) {
    const int y = run.y - v.scroll;
    if (y + run.height < ps.rcPaint.top || y > ps.rcPaint.bottom) continue;
    SelectObject(mem, FontOf(run.style));
    SetTextColor(mem, run.style == ManualStyle::Link ? LinkColor() : PageText());
    TEXTMETRICW tm{};
    GetTextMetricsW(mem, &tm);
    TextOutW(mem, run.x, y + (run.height - tm.tmHeight) / 2, reinterpret_cast<LPCWSTR>(run.text.data()),
             static_cast<int>(run.text.size()));
  }
  if (v.current < 0) {
    SelectObject(mem, v.fonts.body);
    SetTextColor(mem, PageText());
    RECT text = r;
    DrawTextW(mem, L"No page found.", -1, &text, DT_CENTER | DT_VCENTER | DT_SINGLELINE);
  }
  SelectObject(mem, oldFont);
  BitBlt(dc, ps.rcPaint.left, ps.rcPaint.top, ps.rcPaint.right - ps.rcPaint.left,
         ps.rcPaint.bottom - ps.rcPaint.top, mem, ps.rcPaint.left, ps.rcPaint.top, SRCCOPY);
  SelectObject(mem, oldBitmap);
  DeleteObject(bitmap);
  DeleteDC(mem);
  EndPaint(hwnd, &ps);
}

void SelectListRow() {
  const auto at = std::find(v.listPages.begin(), v.listPages.end(), v.current);
  SendMessageW(v.list, LB_SETCURSEL, at == v.listPages.end() ? static_cast<WPARAM>(-1) : at - v.listPages.begin(),
               0);
}

void ShowPage(int32_t index, bool remember) {
  if (index < 0 || index >= static_cast<int32_t>(v.manual.pages.size())) return;
  v.current = index;
  if (remember) v.history.Visit(index);
  EnableWindow(v.back, v.history.CanGoBack());
  const std::wstring title = L"Tavora Manual \u2013 " + Wide(v.manual.pages[static_cast<std::size_t>(index)].title);
  SetWindowTextW(v.window, title.c_str());
  Relayout();
  v.scroll = 0;
  UpdateScrollBar();
  InvalidateRect(v.page, nullptr, FALSE);
  SelectListRow();
}

void GoBack() {
  if (const auto page = v.history.Back()) ShowPage(*page, false);
}

LRESULT CALLBACK PageProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) {
  switch (msg) {
    case WM_PAINT:
      PaintPage(hwnd);
      return 0;
    case WM_ERASEBKGND:
      return 1;
    case WM_SIZE:
      Relayout();
      UpdateScrollBar();
      InvalidateRect(hwnd, nullptr, FALSE);
      return 0;
    case WM_VSCROLL: {
      SCROLLINFO si{sizeof si};
      si.fMask = SIF_ALL;
      GetScrollInfo(hwnd, SB_VERT, &si);
      int32_t y = v.scroll;
      switch (LOWORD(wp)) {
        case SB_LINEUP: y -= S(40); break;
        case SB_LINEDOWN: y += S(40); break;
        case SB_PAGEUP: y -= static_cast<int32_t>(si.nPage); break;
        case SB_PAGEDOWN: y += static_cast<int32_t>(si.nPage); break;
        case SB_THUMBTRACK:
        case SB_THUMBPOSITION: y = si.nTrackPos; break;
        case SB_TOP: y = 0; break;
        case SB_BOTTOM: y = v.layout.height; break;
      }
      ScrollTo(y);
      return 0;
    }
    case WM_MOUSEWHEEL:
      ScrollTo(v.scroll - GET_WHEEL_DELTA_WPARAM(wp) * S(60) / WHEEL_DELTA);
      return 0;
    case WM_LBUTTONDOWN: {
      SetFocus(hwnd);
      if (const ManualRun* link = LinkAt(v.layout, GET_X_LPARAM(lp), GET_Y_LPARAM(lp) + v.scroll))
        ShowPage(v.manual.IndexOf(link->link), true);
      return 0;
    }
    case WM_SETCURSOR:
      if (LOWORD(lp) == HTCLIENT) {
        POINT p;
        GetCursorPos(&p);
        ScreenToClient(hwnd, &p);
        const bool overLink = LinkAt(v.layout, p.x, p.y + v.scroll) != nullptr;
        SetCursor(LoadCursorW(nullptr, overLink ? IDC_HAND : IDC_ARROW));
        return TRUE;
      }
      break;
    case WM_GETDLGCODE:
      return DLGC_WANTARROWS;
    case WM_KEYDOWN: {
      RECT r;
      GetClientRect(hwnd, &r);
      switch (wp) {
        case VK_UP: ScrollTo(v.scroll - S(40)); return 0;
        case VK_DOWN: ScrollTo(v.scroll + S(40)); return 0;
        case VK_PRIOR: ScrollTo(v.scroll - (r.bottom - S(40))); return 0;
        case VK_NEXT:
        case VK_SPACE: ScrollTo(v.scroll + (r.bottom - S(40))); return 0;
        case VK_HOME: ScrollTo(0); return 0;
        case VK_END: ScrollTo(v.layout.height); return 0;
      }
      break;
    }
  }
  return DefWindowProcW(hwnd, msg, wp, lp);
}

// ---------------------------------------------------------------- contents and search

void FillList() {
  std::wstring query(static_cast<std::size_t>(GetWindowTextLengthW(v.search)) + 1, L'\0');
  query.resize(static_cast<std::size_t>(GetWindowTextW(v.search, query.data(), static_cast<int>(query.size()))));
  SendMessageW(v.list, WM_SETREDRAW, FALSE, 0);
  SendMessageW(v.list, LB_RESETCONTENT, 0, 0);
  v.listPages.clear();
  auto add = [](const std::wstring& text, int32_t page) {
    SendMessageW(v.list, LB_ADDSTRING, 0, reinterpret_cast<LPARAM>(text.c_str()));
    v.listPages.push_back(page);
  };
  const std::u16string q(query.begin(), query.end());
  const bool searching = q.find_first_not_of(u" \t") != std::u16string::npos;
  if (!searching) {
    for (std::size_t i = 0; i < v.manual.pages.size(); ++i) {
      const ManualPage& p = v.manual.pages[i];
      add(std::wstring(p.level > 0 ? 4 : 0, L' ') + Wide(p.title), static_cast<int32_t>(i));
    }
  } else {
    const std::vector<ManualHit> hits = SearchManual(v.manual, q);
    for (const ManualHit& h : hits) add(Wide(v.manual.pages[static_cast<std::size_t>(h.page)].title), h.page);
    if (hits.empty()) add(L"No pages found", -1);
  }
  SendMessageW(v.list, WM_SETREDRAW, TRUE, 0);
  InvalidateRect(v.list, nullptr, TRUE);
  SelectListRow();
}

// Keys every part of the window shares: Alt+Left goes back, Tab moves on,
// Enter in the search box opens the best match, Esc clears the search.
LRESULT CALLBACK ChildKeys(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp, UINT_PTR, DWORD_PTR) {
  if (msg == WM_SYSKEYDOWN && wp == VK_LEFT) {
    GoBack();
    return 0;
  }
  if (msg == WM_KEYDOWN && wp == VK_BROWSER_BACK) {
    GoBack();
    return 0;
  }
  if (msg == WM_KEYDOWN && wp == VK_TAB) {
    const HWND order[] = {v.search, v.list, v.page, v.back};
    const bool backwards = GetKeyState(VK_SHIFT) & 0x8000;
    const auto at = std::find(std::begin(order), std::end(order), hwnd) - std::begin(order);
    const std::ptrdiff_t n = std::size(order);
    SetFocus(order[(at + (backwards ? n - 1 : 1)) % n]);
    return 0;
  }
  if (hwnd == v.search && msg == WM_KEYDOWN && wp == VK_RETURN) {
    if (!v.listPages.empty() && v.listPages.front() >= 0) ShowPage(v.listPages.front(), true);
    return 0;
  }
  if (hwnd == v.search && msg == WM_KEYDOWN && wp == VK_ESCAPE) {
    SetWindowTextW(v.search, L"");
    return 0;
  }
  // The edit box beeps at characters it does not take.
  if (hwnd == v.search && msg == WM_CHAR && (wp == L'\r' || wp == 27 || wp == L'\t')) return 0;
  return DefSubclassProc(hwnd, msg, wp, lp);
}

// ---------------------------------------------------------------- window

void Layout() {
  RECT r;
  GetClientRect(v.window, &r);
  const int pad = S(8), row = S(26), left = std::min(S(260), static_cast<int>(r.right / 2));
  MoveWindow(v.back, pad, pad, S(64), row, TRUE);
  MoveWindow(v.search, pad + S(72), pad + S(1), left - pad - S(72), row - S(2), TRUE);
  MoveWindow(v.list, pad, pad * 2 + row, left - pad, std::max(0L, r.bottom - pad * 3 - row), TRUE);
  MoveWindow(v.page, left + pad, pad, std::max(0L, r.right - left - pad * 2), std::max(0L, r.bottom - pad * 2),
             TRUE);
}

void ApplyWindowTheme() {
  if (v.background) DeleteObject(v.background);
  v.background = CreateSolidBrush(DialogThemeDark() ? DialogThemeColors().window : GetSysColor(COLOR_BTNFACE));
  ApplyFrameTheme(v.window, DialogThemeDark());
  for (HWND control : {v.list, v.page}) SetControlDarkMode(control, DialogThemeDark());
  SetControlDarkMode(v.search, DialogThemeDark());
  InvalidateRect(v.window, nullptr, TRUE);
  RedrawWindow(v.window, nullptr, nullptr, RDW_INVALIDATE | RDW_ERASE | RDW_ALLCHILDREN | RDW_FRAME);
}

LRESULT CALLBACK ManualProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) {
  switch (msg) {
    case WM_SIZE:
      if (v.page) Layout();
      return 0;
    case WM_ERASEBKGND: {
      RECT r;
      GetClientRect(hwnd, &r);
      FillRect(reinterpret_cast<HDC>(wp), &r, v.background);
      return 1;
    }
    case WM_COMMAND:
      if (LOWORD(wp) == kBackId && HIWORD(wp) == BN_CLICKED) {
        GoBack();
        SetFocus(v.page);
      } else if (LOWORD(wp) == kSearchId && HIWORD(wp) == EN_CHANGE) {
        FillList();
      } else if (LOWORD(wp) == kListId && HIWORD(wp) == LBN_SELCHANGE) {
        const LRESULT row = SendMessageW(v.list, LB_GETCURSEL, 0, 0);
        if (row >= 0 && row < static_cast<LRESULT>(v.listPages.size()) && v.listPages[static_cast<std::size_t>(row)] >= 0)
          ShowPage(v.listPages[static_cast<std::size_t>(row)], true);
      }
      return 0;
    case WM_DRAWITEM: {
      const auto& item = *reinterpret_cast<const DRAWITEMSTRUCT*>(lp);
      DrawPushButton(item, false);
      return TRUE;
    }
    case WM_CTLCOLORSTATIC:
    case WM_CTLCOLOREDIT:
    case WM_CTLCOLORLISTBOX:
    case WM_CTLCOLORBTN:
      if (HBRUSH brush = DialogControlColor(msg, wp)) return reinterpret_cast<LRESULT>(brush);
      break;
    case WM_MOUSEWHEEL: {
      // The wheel reads the page wherever the focus is.
      POINT p{GET_X_LPARAM(lp), GET_Y_LPARAM(lp)};
      HWND under = WindowFromPoint(p);
      SendMessageW(under == v.list ? v.list : v.page, msg, wp, lp);
      return 0;
    }
    case WM_DPICHANGED: {
      v.dpi = HIWORD(wp);
      MakeFonts();
      for (HWND c : {v.search, v.list, v.back}) SendMessageW(c, WM_SETFONT, reinterpret_cast<WPARAM>(v.fonts.ui), TRUE);
      const RECT* r = reinterpret_cast<const RECT*>(lp);
      SetWindowPos(hwnd, nullptr, r->left, r->top, r->right - r->left, r->bottom - r->top, SWP_NOZORDER);
      v.layoutWidth = -1;
      return 0;
    }
    case WM_ACTIVATE:
      if (LOWORD(wp) != WA_INACTIVE) SetFocus(v.search);
      return 0;
    case WM_DESTROY:
      v.window = v.search = v.list = v.back = v.page = nullptr;
      v.fonts.Release();
      if (v.background) DeleteObject(v.background);
      v.background = nullptr;
      return 0;
  }
  return DefWindowProcW(hwnd, msg, wp, lp);
}

bool CreateViewer(HWND owner) {
  HINSTANCE instance = GetModuleHandleW(nullptr);
  static bool registered = false;
  if (!registered) {
    WNDCLASSEXW wc{sizeof wc};
    wc.lpfnWndProc = ManualProc;
    wc.hInstance = instance;
    wc.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    wc.hIcon = static_cast<HICON>(LoadImageW(instance, MAKEINTRESOURCEW(1), IMAGE_ICON, GetSystemMetrics(SM_CXICON),
                                             GetSystemMetrics(SM_CYICON), LR_DEFAULTCOLOR));
    wc.hIconSm = static_cast<HICON>(LoadImageW(instance, MAKEINTRESOURCEW(1), IMAGE_ICON,
                                               GetSystemMetrics(SM_CXSMICON), GetSystemMetrics(SM_CYSMICON),
                                               LR_DEFAULTCOLOR));
    wc.lpszClassName = kClass;
    RegisterClassExW(&wc);
    WNDCLASSEXW page{sizeof page};
    page.style = CS_DBLCLKS;
    page.lpfnWndProc = PageProc;
    page.hInstance = instance;
    page.lpszClassName = kPageClass;
    RegisterClassExW(&page);
    registered = true;
  }
  v.dpi = owner ? WindowDpi(owner) : SystemDpi();
  MakeFonts();
  // Beside the owner, cascaded a little, as large as fits on its monitor.
  RECT place{CW_USEDEFAULT, CW_USEDEFAULT, 0, 0};
  MONITORINFO info{sizeof info};
  int width = S(980), height = S(700);
  if (owner && GetWindowRect(owner, &place) &&
      GetMonitorInfoW(MonitorFromWindow(owner, MONITOR_DEFAULTTONEAREST), &info)) {
    width = std::min<int>(width, info.rcWork.right - info.rcWork.left);
    height = std::min<int>(height, info.rcWork.bottom - info.rcWork.top);
    place.left = std::clamp<int>(place.left + S(60), info.rcWork.left, info.rcWork.right - width);
    place.top = std::clamp<int>(place.top + S(60), info.rcWork.top, info.rcWork.bottom - height);
  }
  v.window = CreateWindowExW(0, kClass, L"Tavora Manual", WS_OVERLAPPEDWINDOW | WS_CLIPCHILDREN, place.left,
                             place.top, width, height, owner, nullptr, instance, nullptr);
  if (!v.window) return false;
  v.back = CreateWindowExW(0, L"Button", L"Back", WS_CHILD | WS_VISIBLE | WS_TABSTOP | PushButtonStyle(false), 0, 0,
                           10, 10, v.window, reinterpret_cast<HMENU>(kBackId), instance, nullptr);
  v.search = CreateWindowExW(WS_EX_CLIENTEDGE, L"Edit", L"", WS_CHILD | WS_VISIBLE | WS_TABSTOP | ES_AUTOHSCROLL, 0,
                             0, 10, 10, v.window, reinterpret_cast<HMENU>(kSearchId), instance, nullptr);
  v.list = CreateWindowExW(0, L"ListBox", L"",
                           WS_CHILD | WS_VISIBLE | WS_TABSTOP | WS_VSCROLL | LBS_NOTIFY | LBS_NOINTEGRALHEIGHT, 0, 0,
                           10, 10, v.window, reinterpret_cast<HMENU>(kListId), instance, nullptr);
  v.page = CreateWindowExW(0, kPageClass, L"", WS_CHILD | WS_VISIBLE | WS_TABSTOP | WS_VSCROLL, 0, 0,
                           10, 10, v.window, nullptr, instance, nullptr);
  for (HWND c : {v.search, v.list, v.back}) SendMessageW(c, WM_SETFONT, reinterpret_cast<WPARAM>(v.fonts.ui), FALSE);
  SendMessageW(v.search, EM_SETCUEBANNER, TRUE, reinterpret_cast<LPARAM>(L"Search"));
  for (HWND c : {v.search, v.list, v.back, v.page}) SetWindowSubclass(c, &ChildKeys, 1, 0);
  v.history = {};
  v.current = -1;
  ApplyWindowTheme();
  Layout();
  FillList();
  return true;
}

}  // namespace

std::u16string DialogTopic(HWND window) {
  wchar_t title[256] = {};
  GetWindowTextW(window, title, 256);
  return u"dialog:" + std::u16string(title, title + lstrlenW(title));
}

void ShowManual(HWND owner, std::u16string_view topic) {
  if (!LoadManual()) {
    ShowMessageBox(owner, L"The manual could not be found in this copy of Tavora.", L"Tavora",
                   MB_OK | MB_ICONWARNING);
    return;
  }
  const bool fresh = !v.window;
  if (fresh && !CreateViewer(owner)) return;
  int32_t page = v.manual.PageForTopic(topic);
  if (page < 0 && fresh) page = 0;
  if (page >= 0 && page != v.current) ShowPage(page, true);
  if (IsIconic(v.window)) ShowWindow(v.window, SW_RESTORE);
  ShowWindow(v.window, SW_SHOW);
  SetForegroundWindow(v.window);
  SetFocus(v.search);
}

void ManualThemeChanged() {
  if (!v.window) return;
  ApplyWindowTheme();
}

}  // namespace tavora
