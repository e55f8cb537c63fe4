// "KZTabs": draws the portable tab strip and turns the mouse into the
// owner's actions. The layout, hit testing and reordering are the model's.
#include <windows.h>
#include <windowsx.h>
#include <commctrl.h>

#include <algorithm>
#include <string>
#include <vector>

#include "base/command_ids.h"
#include "panels/tab_order.h"
#include "panels/tabs_bar.h"
#include "panels/tabs_bar_window.h"
#include "platform/buffered_paint_win32.h"
#include "platform/dialog_win32.h"
#include "platform/dpi_win32.h"
#include "platform/message_box_win32.h"
#include "platform/modal_win32.h"
#include "platform/theme_win32.h"

namespace tavora {
namespace {

constexpr int kHeightDip = 30;
constexpr std::size_t kMaxTooltip = 299;
constexpr UINT_PTR kCloseTab = 1, kCloseAll = 2;

struct BarState {
  TabsBarActions actions;
  std::vector<TabEntry> entries;
  std::vector<bool> modified;  // per entry
  int32_t activeEntry = -1;
  int32_t scroll = 0;
  TabStrip strip;
  int32_t dragged = -1;  // the entry being dragged
  TabHit hot;            // the arrow or close button under the pointer
  bool tracking = false;
  bool dark = true;
  HFONT font = nullptr;
  UINT fontDpi = 0;
  HWND tooltip = nullptr;
  UINT tools = 0;  // tooltip tools added, ids 0..tools-1
};
BarState g_bar;  // there is one tabs bar

std::wstring Wide(std::u16string_view s) { return std::wstring(s.begin(), s.end()); }

double Scale(HWND hwnd) { return WindowDpi(hwnd) / 96.0; }
int Dip(HWND hwnd, int v) { return MulDiv(v, static_cast<int>(WindowDpi(hwnd)), 96); }

HFONT Font(HWND hwnd) {
  const UINT dpi = WindowDpi(hwnd);
  if (!g_bar.font || g_bar.fontDpi != dpi) {
    if (g_bar.font) DeleteObject(g_bar.font);
    g_bar.font = CreateFontW(-MulDiv(12, static_cast<int>(dpi), 96), 0, 0, 0, FW_NORMAL, 0, 0, 0, DEFAULT_CHARSET,
                             0, 0, CLEARTYPE_QUALITY, 0, L"Segoe UI");
    g_bar.fontDpi = dpi;
  }
  return g_bar.font;
}

// The room left of the arrows, where the tabs show.
int32_t Visible(HWND hwnd) {
  if (g_bar.strip.arrows) return g_bar.strip.left.x0;
  RECT r;
  GetClientRect(hwnd, &r);
  return r.right;
}

// Tooltips for the tabs whose text is cut, over the visible part of each.
void UpdateTooltips(HWND hwnd) {
  if (!g_bar.tooltip) return;
  for (UINT i = 0; i < g_bar.tools; ++i) {
    TOOLINFOW info{sizeof info};
    info.hwnd = hwnd;
    info.uId = i;
    SendMessageW(g_bar.tooltip, TTM_DELTOOLW, 0, reinterpret_cast<LPARAM>(&info));
  }
  g_bar.tools = 0;
  const int32_t visible = Visible(hwnd);
  for (std::size_t i = 0; i < g_bar.strip.tabs.size() && i < g_bar.entries.size(); ++i) {
    const TabBox& t = g_bar.strip.tabs[i];
    if (!t.cut || t.box.x1 <= 0 || t.box.x0 >= visible) continue;
    std::wstring text = Wide(g_bar.entries[i].text);
    if (text.size() > kMaxTooltip) text.resize(kMaxTooltip);
    TOOLINFOW info{sizeof info};
    info.uFlags = TTF_SUBCLASS;
    info.hwnd = hwnd;
    info.uId = g_bar.tools++;
    info.rect = {std::max(0, t.box.x0), t.box.y0, std::min(visible, t.box.x1), t.box.y1};
    info.lpszText = text.data();
    SendMessageW(g_bar.tooltip, TTM_ADDTOOLW, 0, reinterpret_cast<LPARAM>(&info));
  }
}

void Layout(HWND hwnd) {
  RECT r;
  GetClientRect(hwnd, &r);
  HDC dc = GetDC(hwnd);
  HGDIOBJ old = SelectObject(dc, Font(hwnd));
  const auto measure = [dc](std::u16string_view text) {
    const std::wstring w = Wide(text);
    SIZE size{};
    GetTextExtentPoint32W(dc, w.c_str(), static_cast<int>(w.size()), &size);
    return static_cast<int32_t>(size.cx);
  };
  g_bar.strip = LayoutTabs(g_bar.entries, r.right, r.bottom, g_bar.scroll, Scale(hwnd), measure);
  g_bar.scroll = g_bar.strip.scroll;
  SelectObject(dc, old);
  ReleaseDC(hwnd, dc);
  UpdateTooltips(hwnd);
}

void ScrollBy(HWND hwnd, int32_t delta) {
  const int32_t before = g_bar.scroll;
  g_bar.scroll += delta;
  Layout(hwnd);
  if (g_bar.scroll != before) InvalidateRect(hwnd, nullptr, FALSE);
}

// Scrolls the active tab into view.
void ShowActiveTab(HWND hwnd) {
  const int32_t i = g_bar.activeEntry;
  if (!g_bar.strip.arrows || i < 0 || i >= static_cast<int32_t>(g_bar.strip.tabs.size())) return;
  const Rect& box = g_bar.strip.tabs[i].box;
  const int32_t visible = Visible(hwnd);
  if (box.x0 < 0) ScrollBy(hwnd, box.x0);
  else if (box.x1 > visible) ScrollBy(hwnd, box.x1 - visible);
}

// ---------------------------------------------------------------- drawing

struct Palette {
  COLORREF bar, tab, activeTab, text, activeText, line, hot, accent, arrow, arrowOff;
};

Palette Colors() {
  if (g_bar.dark)
    return {RGB(0x1E, 0x1F, 0x22), RGB(0x25, 0x26, 0x2A), RGB(0x2A, 0x2B, 0x2F), RGB(0x9A, 0x9D, 0xA3),
            RGB(0xE6, 0xE7, 0xEA), RGB(0x3A, 0x3C, 0x42), RGB(0x45, 0x47, 0x4D), RGB(0xF4, 0x8C, 0x2E),
            RGB(0xC8, 0xCA, 0xCE), RGB(0x55, 0x57, 0x5D)};
  return {RGB(0xE4, 0xE5, 0xE8), RGB(0xEC, 0xED, 0xF0), RGB(0xDA, 0xDC, 0xE0), RGB(0x50, 0x53, 0x58),
          RGB(0x20, 0x21, 0x24), RGB(0xC8, 0xCA, 0xCE), RGB(0xC4, 0xC6, 0xCA), RGB(0xF4, 0x8C, 0x2E),
          RGB(0x30, 0x31, 0x35), RGB(0xB0, 0xB2, 0xB6)};
}

void Fill(HDC dc, const RECT& r, COLORREF color) {
  HBRUSH brush = CreateSolidBrush(color);
  FillRect(dc, &r, brush);
  DeleteObject(brush);
}

RECT Win(const Rect& r) { return {r.x0, r.y0, r.x1, r.y1}; }

void DrawCross(HDC dc, const Rect& box, COLORREF color, int arm, int width) {
  HPEN pen = CreatePen(PS_SOLID, width, color);
  HGDIOBJ old = SelectObject(dc, pen);
  const int cx = (box.x0 + box.x1) / 2, cy = (box.y0 + box.y1) / 2;
  MoveToEx(dc, cx - arm, cy - arm, nullptr);
  LineTo(dc, cx + arm + 1, cy + arm + 1);
  MoveToEx(dc, cx + arm, cy - arm, nullptr);
  LineTo(dc, cx - arm - 1, cy + arm + 1);
  SelectObject(dc, old);
  DeleteObject(pen);
}

void DrawArrow(HDC dc, const Rect& box, bool left, bool enabled, bool hot, const Palette& p, int size) {
  if (hot && enabled) Fill(dc, Win(box), p.hot);
  const int cx = (box.x0 + box.x1) / 2, cy = (box.y0 + box.y1) / 2;
  const int d = left ? -1 : 1;
  POINT tri[3] = {{cx - d * size / 2, cy - size}, {cx - d * size / 2, cy + size}, {cx + d * size / 2 + d, cy}};
  HBRUSH brush = CreateSolidBrush(enabled ? p.arrow : p.arrowOff);
  HPEN pen = CreatePen(PS_SOLID, 1, enabled ? p.arrow : p.arrowOff);
  HGDIOBJ oldBrush = SelectObject(dc, brush), oldPen = SelectObject(dc, pen);
  Polygon(dc, tri, 3);
  SelectObject(dc, oldBrush);
  SelectObject(dc, oldPen);
  DeleteObject(brush);
  DeleteObject(pen);
}

void Paint(HWND hwnd) {
  BufferedPaint paint(hwnd);
  const HDC dc = paint.Dc();
  RECT r = paint.Client();
  const Palette p = Colors();
  Fill(dc, r, p.bar);
  HGDIOBJ oldFont = SelectObject(dc, Font(hwnd));
  SetBkMode(dc, TRANSPARENT);
  const int32_t visible = Visible(hwnd);
  const int one = std::max(1, Dip(hwnd, 1));
  SaveDC(dc);
  IntersectClipRect(dc, 0, 0, visible, r.bottom);
  for (std::size_t i = 0; i < g_bar.strip.tabs.size() && i < g_bar.entries.size(); ++i) {
    const TabBox& t = g_bar.strip.tabs[i];
    if (t.box.x1 <= 0 || t.box.x0 >= visible) continue;
    const bool active = static_cast<int32_t>(i) == g_bar.activeEntry;
    RECT box = Win(t.box);
    Fill(dc, box, active ? p.activeTab : p.tab);
    if (active) {
      Fill(dc, {box.left, box.top, box.right, box.top + 2 * one}, p.accent);
    } else {
      Fill(dc, {box.left, box.bottom - one, box.right, box.bottom}, p.line);
    }
    Fill(dc, {box.right - one, box.top, box.right, box.bottom}, p.line);
    // The text may use the tab less its margins and the close button.
    RECT text{box.left + Dip(hwnd, 10), box.top, box.right - Dip(hwnd, 24), box.bottom};
    const std::wstring label = Wide(g_bar.entries[i].text);
    SetTextColor(dc, active ? p.activeText : p.text);
    DrawTextW(dc, label.c_str(), static_cast<int>(label.size()), &text,
              DT_SINGLELINE | DT_VCENTER | DT_NOPREFIX | DT_END_ELLIPSIS);
    const bool hotClose = g_bar.hot.kind == TabHit::Kind::Close && g_bar.hot.entry == static_cast<int32_t>(i);
    if (hotClose) Fill(dc, Win(t.close), p.hot);
    DrawCross(dc, t.close, hotClose || active ? p.activeText : p.text, Dip(hwnd, 3), one);
  }
  RestoreDC(dc, -1);
  if (g_bar.strip.arrows) {
    const int32_t max = std::max(0, g_bar.strip.total - visible);
    Fill(dc, {visible, 0, r.right, r.bottom}, p.bar);
    Fill(dc, {visible, 0, visible + one, r.bottom}, p.line);
    DrawArrow(dc, g_bar.strip.left, true, g_bar.scroll > 0, g_bar.hot.kind == TabHit::Kind::LeftArrow, p, Dip(hwnd, 4));
    DrawArrow(dc, g_bar.strip.right, false, g_bar.scroll < max, g_bar.hot.kind == TabHit::Kind::RightArrow, p,
              Dip(hwnd, 4));
  }
  SelectObject(dc, oldFont);
}

// ---------------------------------------------------------------- actions

int32_t DocumentOf(int32_t entry) {
  return entry >= 0 && entry < static_cast<int32_t>(g_bar.entries.size()) ? g_bar.entries[entry].document
                                                                            : kBrowseTab - 1;
}

// A tab with changes is shown before its save prompt asks about it.
bool CloseDocument(int32_t document, bool modified) {
  if (modified && g_bar.actions.activate) g_bar.actions.activate(document);
  return g_bar.actions.close && g_bar.actions.close(document);
}

void CloseEntry(int32_t entry) {
  const int32_t document = DocumentOf(entry);
  if (document < kBrowseTab) return;
  const bool active = entry == g_bar.activeEntry;
  CloseDocument(document, !active && g_bar.modified[static_cast<std::size_t>(entry)]);
}

// Asks first, then closes from the last tab down, so that the indices of
// those still to close stay as they were; a Cancel in a save prompt stops.
void CloseAll(HWND hwnd) {
  std::vector<bool> modified;
  for (std::size_t i = 0; i < g_bar.entries.size(); ++i)
    if (g_bar.entries[i].document != kBrowseTab) modified.push_back(g_bar.modified[i]);
  if (modified.empty()) return;
  const auto count = static_cast<int>(modified.size());
  const auto changed = static_cast<int>(std::count(modified.begin(), modified.end(), true));
  std::wstring question = count == 1 ? L"Close the open image?" : L"Close all " + std::to_wstring(count) + L" images?";
  if (changed > 0) {
    question += count == 1     ? L"\n\nIt has unsaved changes: you will be asked whether to save it."
                : changed == 1 ? L"\n\nOne of them has unsaved changes: you will be asked whether to save it."
                               : L"\n\n" + std::to_wstring(changed) +
                                     L" of them have unsaved changes: you will be asked whether to save each.";
  }
  HWND owner = GetAncestor(hwnd, GA_ROOT);
  if (ShowMessageBox(owner, question, L"Tavora", MB_YESNO | MB_ICONQUESTION) != IDYES) return;
  for (int32_t i = count - 1; i >= 0; --i)
    if (!CloseDocument(i, modified[static_cast<std::size_t>(i)])) return;
}

void ContextMenu(HWND hwnd, int32_t entry) {
  HMENU menu = CreatePopupMenu();
  AppendMenuW(menu, MF_STRING, kCloseTab, L"&Close Tab");
  AppendMenuW(menu, MF_STRING, kCloseAll, L"Close &All Tabs");
  POINT p;
  GetCursorPos(&p);
  UINT chosen;
  {
    SystemModalWatch watch;
    chosen = static_cast<UINT>(
        TrackPopupMenu(menu, TPM_RETURNCMD | TPM_NONOTIFY | TPM_RIGHTBUTTON, p.x, p.y, 0, hwnd, nullptr));
  }
  DestroyMenu(menu);
  if (chosen == kCloseTab) CloseEntry(entry);
  if (chosen == kCloseAll) CloseAll(hwnd);
}

void SetHot(HWND hwnd, TabHit hit) {
  // Only the arrows and close buttons light up.
  if (hit.kind == TabHit::Kind::Tab || hit.kind == TabHit::Kind::Nothing) hit = {};
  if (hit.kind == g_bar.hot.kind && hit.entry == g_bar.hot.entry) return;
  g_bar.hot = hit;
  InvalidateRect(hwnd, nullptr, FALSE);
}

void Press(HWND hwnd, int x, int y, bool doubleClick) {
  const TabHit hit = HitTestTabs(g_bar.strip, x, y);
  switch (hit.kind) {
    case TabHit::Kind::LeftArrow:
    case TabHit::Kind::RightArrow:
      ScrollBy(hwnd, (hit.kind == TabHit::Kind::LeftArrow ? -1 : 1) * TabScrollStep(Scale(hwnd)));
      return;
    case TabHit::Kind::Close:
      CloseEntry(hit.entry);
      return;
    case TabHit::Kind::Tab: {
      const int32_t document = DocumentOf(hit.entry);
      if (g_bar.actions.activate) g_bar.actions.activate(document);
      if (!doubleClick && document != kBrowseTab && hit.entry < static_cast<int32_t>(g_bar.entries.size()) &&
          g_bar.entries[hit.entry].document == document) {
        g_bar.dragged = hit.entry;
        SetCapture(hwnd);
      }
      return;
    }
    case TabHit::Kind::Nothing:
      // Beside the tabs (not on the arrows' strip) a double click makes a new image.
      if (doubleClick && x < Visible(hwnd))
        PostMessageW(GetAncestor(hwnd, GA_ROOT), WM_COMMAND, kCmdNew, 0);
      return;
  }
}

// The tabs' texts in order, for tests and screen readers.
std::wstring WindowText() {
  std::wstring text;
  for (const TabEntry& e : g_bar.entries) {
    if (!text.empty()) text += L" | ";
    text += Wide(e.text);
  }
  return text;
}

void Drag(int x) {
  const int32_t target = DragTarget(g_bar.entries, g_bar.strip, g_bar.dragged, x);
  if (target < 0 || !g_bar.actions.reorder) return;
  const std::vector<int32_t> order = ReorderTabs(g_bar.entries, g_bar.dragged, target);
  g_bar.dragged = target;  // the dragged document now stands there
  g_bar.actions.reorder(order);
}

LRESULT CALLBACK BarProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) {
  if (msg >= WM_LBUTTONDOWN && msg <= WM_MBUTTONDBLCLK && msg != WM_MOUSEMOVE && g_bar.tooltip)
    SendMessageW(g_bar.tooltip, TTM_POP, 0, 0);
  switch (msg) {
    case WM_CREATE:
      g_bar.tooltip = CreateWindowExW(WS_EX_TOPMOST, TOOLTIPS_CLASSW, nullptr, WS_POPUP | TTS_ALWAYSTIP | TTS_NOPREFIX,
                                      CW_USEDEFAULT, CW_USEDEFAULT, CW_USEDEFAULT, CW_USEDEFAULT, hwnd, nullptr,
                                      reinterpret_cast<CREATESTRUCTW*>(lp)->hInstance, nullptr);
      if (g_bar.tooltip) SendMessageW(g_bar.tooltip, TTM_SETMAXTIPWIDTH, 0, Dip(hwnd, 480));
      SetTooltipTheme(g_bar.tooltip, g_bar.dark);
      return 0;
    case WM_DESTROY:
      if (g_bar.tooltip) DestroyWindow(g_bar.tooltip);
      g_bar.tooltip = nullptr;
      g_bar.tools = 0;
      if (g_bar.font) DeleteObject(g_bar.font);
      g_bar.font = nullptr;
      return 0;
    case WM_PAINT:
      Paint(hwnd);
      return 0;
    case WM_ERASEBKGND:
      return 1;
    case WM_SIZE:
      Layout(hwnd);
      ShowActiveTab(hwnd);
      InvalidateRect(hwnd, nullptr, FALSE);
      return 0;
    case WM_LBUTTONDOWN:
    case WM_LBUTTONDBLCLK:
      if (IsLeftoverModalClick(msg, GetMessageTime())) return 0;
      Press(hwnd, GET_X_LPARAM(lp), GET_Y_LPARAM(lp), msg == WM_LBUTTONDBLCLK);
      return 0;
    case WM_MBUTTONDOWN: {
      if (IsLeftoverModalClick(msg, GetMessageTime())) return 0;
      const TabHit hit = HitTestTabs(g_bar.strip, GET_X_LPARAM(lp), GET_Y_LPARAM(lp));
      if (hit.kind == TabHit::Kind::Tab || hit.kind == TabHit::Kind::Close) CloseEntry(hit.entry);
      return 0;
    }
    case WM_RBUTTONUP: {
      if (IsLeftoverModalClick(msg, GetMessageTime())) return 0;
      const TabHit hit = HitTestTabs(g_bar.strip, GET_X_LPARAM(lp), GET_Y_LPARAM(lp));
      if (hit.kind == TabHit::Kind::Tab || hit.kind == TabHit::Kind::Close) ContextMenu(hwnd, hit.entry);
      return 0;
    }
    case WM_MOUSEMOVE:
      if (!g_bar.tracking) {
        TRACKMOUSEEVENT track{sizeof track, TME_LEAVE, hwnd, 0};
        g_bar.tracking = TrackMouseEvent(&track) != FALSE;
      }
      if (g_bar.dragged >= 0 && (wp & MK_LBUTTON)) {
        Drag(GET_X_LPARAM(lp));
        return 0;
      }
      SetHot(hwnd, HitTestTabs(g_bar.strip, GET_X_LPARAM(lp), GET_Y_LPARAM(lp)));
      return 0;
    case WM_MOUSELEAVE:
      g_bar.tracking = false;
      SetHot(hwnd, {});
      return 0;
    case WM_LBUTTONUP:
      g_bar.dragged = -1;
      if (GetCapture() == hwnd) ReleaseCapture();
      return 0;
    case WM_CAPTURECHANGED:
      g_bar.dragged = -1;
      return 0;
    case WM_GETTEXTLENGTH:
      return static_cast<LRESULT>(WindowText().size());
    case WM_GETTEXT:
      return AnswerGetText(WindowText(), wp, lp);
    case WM_MOUSEWHEEL:
      if (g_bar.strip.arrows)
        ScrollBy(hwnd, -GET_WHEEL_DELTA_WPARAM(wp) * TabScrollStep(Scale(hwnd)) / WHEEL_DELTA);
      return 0;
  }
  return DefWindowProcW(hwnd, msg, wp, lp);
}

}  // namespace

void RegisterTabsBarClass(HINSTANCE instance) {
  INITCOMMONCONTROLSEX icc{sizeof icc, ICC_BAR_CLASSES};
  InitCommonControlsEx(&icc);
  WNDCLASSEXW wc{sizeof wc};
  wc.style = CS_DBLCLKS;
  wc.lpfnWndProc = BarProc;
  wc.hInstance = instance;
  wc.hCursor = LoadCursorW(nullptr, IDC_ARROW);
  wc.lpszClassName = L"KZTabs";
  RegisterClassExW(&wc);
}

HWND CreateTabsBar(HWND parent, HINSTANCE instance, const TabsBarActions& actions) {
  g_bar.actions = actions;
  return CreateWindowExW(0, L"KZTabs", L"", WS_CHILD | WS_VISIBLE | WS_CLIPSIBLINGS, 0, 0, 100, 30, parent, nullptr,
                         instance, nullptr);
}

void SetTabsBarDocuments(HWND bar, std::span<const std::unique_ptr<Document>> documents, int32_t active,
                         bool browseOpen) {
  if (!bar) return;
  std::vector<TabEntry> entries;
  std::vector<bool> modified;
  int32_t activeEntry = -1;
  if (browseOpen) {
    if (active < 0) activeEntry = 0;
    entries.push_back({kBrowseTab, u"Browse"});
    modified.push_back(false);
  }
  for (std::size_t i = 0; i < documents.size(); ++i) {
    if (static_cast<int32_t>(i) == active) activeEntry = static_cast<int32_t>(entries.size());
    entries.push_back({static_cast<int32_t>(i), TabText(documents[i]->title, documents[i]->modified)});
    modified.push_back(documents[i]->modified);
  }
  const bool same = entries.size() == g_bar.entries.size() &&
                    std::equal(entries.begin(), entries.end(), g_bar.entries.begin(),
                               [](const TabEntry& a, const TabEntry& b) {
                                 return a.document == b.document && a.text == b.text;
                               });
  if (same && activeEntry == g_bar.activeEntry) return;
  const bool switched = activeEntry != g_bar.activeEntry;
  g_bar.entries = std::move(entries);
  g_bar.modified = std::move(modified);
  g_bar.activeEntry = activeEntry;
  if (g_bar.dragged >= static_cast<int32_t>(g_bar.entries.size())) g_bar.dragged = -1;
  if (g_bar.hot.entry >= static_cast<int32_t>(g_bar.entries.size())) g_bar.hot = {};
  Layout(bar);
  if (switched) ShowActiveTab(bar);
  InvalidateRect(bar, nullptr, FALSE);
}

void SetTabsBarTheme(HWND bar, bool dark) {
  if (!bar) return;
  g_bar.dark = dark;
  SetTooltipTheme(g_bar.tooltip, dark);
  InvalidateRect(bar, nullptr, FALSE);
}

int TabsBarHeight(UINT dpi) { return MulDiv(kHeightDip, static_cast<int>(dpi), 96); }

}  // namespace tavora
