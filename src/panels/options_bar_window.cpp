// "KZOptions": one control per option of the current tool, built from the
// tool table; every change lands in the current options record at once.
#include <windows.h>
#include <windowsx.h>
#include <commctrl.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "panels/options_bar.h"
#include "platform/dpi_win32.h"
#include "platform/theme_win32.h"

namespace tavora {
namespace {

constexpr int kHeightDip = 34, kControlDip = 23, kFirstId = 100;
constexpr int kApplyId = kFirstId - 2, kCancelId = kFirstId - 3;

// The tools whose work waits on the canvas until it is applied.
bool HasPendingWork(int32_t tool) {
  return tool == kToolCrop || tool == kToolLayerRotate || tool == kToolLayerResize;
}

struct Control {
  const OptionDef* def;
  HWND field = nullptr;  // edit, list or check box
};

struct BarState {
  ToolSettings* tools = nullptr;
  void (*changed)() = nullptr;
  void (*finish)(bool apply) = nullptr;
  bool dark = true;
  bool building = false;  // controls report changes while they are filled
  UINT builtDpi = 0;
  int hintX = 0;
  HWND hint = nullptr;
  std::vector<Control> controls;
  std::vector<HWND> children;
  HFONT font = nullptr, bold = nullptr;
  HBRUSH background = nullptr, field = nullptr;
};
BarState g_bar;  // there is one options bar

int S(HWND hwnd, int dip) { return MulDiv(dip, static_cast<int>(WindowDpi(hwnd)), 96); }
std::wstring Wide(std::u16string_view s) { return std::wstring(s.begin(), s.end()); }

int TextWidth(HWND hwnd, HFONT font, const std::wstring& text) {
  HDC dc = GetDC(hwnd);
  HGDIOBJ old = SelectObject(dc, font);
  SIZE size{};
  GetTextExtentPoint32W(dc, text.c_str(), static_cast<int>(text.size()), &size);
  SelectObject(dc, old);
  ReleaseDC(hwnd, dc);
  return size.cx;
}

HWND Child(HWND bar, const wchar_t* cls, const std::wstring& text, DWORD style, int x, int width,
           int id, HFONT font) {
  const int height = S(bar, kControlDip);
  const int top = (S(bar, kHeightDip) - height) / 2;
  HWND child = CreateWindowExW(0, cls, text.c_str(), WS_CHILD | WS_VISIBLE | style, x, top, width,
                               height, bar, reinterpret_cast<HMENU>(static_cast<INT_PTR>(id)), nullptr, nullptr);
  SendMessageW(child, WM_SETFONT, reinterpret_cast<WPARAM>(font), FALSE);
  g_bar.children.push_back(child);
  return child;
}

HWND Label(HWND bar, const std::wstring& text, int& x, HFONT font, int id = 0) {
  const int width = TextWidth(bar, font, text) + S(bar, 2);
  HWND label = Child(bar, L"STATIC", text, SS_LEFT | SS_CENTERIMAGE | SS_NOPREFIX | SS_NOTIFY, x, width, id, font);
  x += width + S(bar, 5);
  return label;
}

// The canvas takes the keys again once a value is entered (Enter) or left
// alone (Esc); the main window hands its focus to the canvas.
void BackToCanvas(HWND control) { SetFocus(GetAncestor(control, GA_ROOT)); }

LRESULT CALLBACK EditKeys(HWND edit, UINT msg, WPARAM wp, LPARAM lp, UINT_PTR, DWORD_PTR) {
  if (msg == WM_NCDESTROY) RemoveWindowSubclass(edit, &EditKeys, 1);
  if ((msg == WM_KEYDOWN || msg == WM_CHAR) && (wp == VK_RETURN || wp == VK_ESCAPE)) {
    if (msg == WM_KEYDOWN) BackToCanvas(edit);
    return 0;  // no beep
  }
  return DefSubclassProc(edit, msg, wp, lp);
}

void MakeFonts(HWND bar) {
  for (HFONT* f : {&g_bar.font, &g_bar.bold})
    if (*f) DeleteObject(*f);
  const int height = -S(bar, 12);
  g_bar.font = CreateFontW(height, 0, 0, 0, FW_NORMAL, 0, 0, 0, DEFAULT_CHARSET, 0, 0,
                           CLEARTYPE_QUALITY, 0, L"Segoe UI");
  g_bar.bold = CreateFontW(height, 0, 0, 0, FW_SEMIBOLD, 0, 0, 0, DEFAULT_CHARSET, 0, 0,
                           CLEARTYPE_QUALITY, 0, L"Segoe UI");
}

// The hint takes the room left at the right.
void PlaceHint(HWND bar) {
  if (!g_bar.hint) return;
  RECT r;
  GetClientRect(bar, &r);
  const int width = std::max(S(bar, 40), static_cast<int>(r.right) - g_bar.hintX - S(bar, 8));
  const int height = S(bar, kControlDip);
  SetWindowPos(g_bar.hint, nullptr, g_bar.hintX, (S(bar, kHeightDip) - height) / 2, width, height,
               SWP_NOZORDER | SWP_NOACTIVATE);
}

void Build(HWND bar) {
  for (HWND child : g_bar.children) DestroyWindow(child);
  g_bar.children.clear();
  g_bar.controls.clear();
  if (!g_bar.tools) return;
  g_bar.building = true;
  MakeFonts(bar);
  const int32_t tool = g_bar.tools->CurrentTool();
  const ToolOptions& options = g_bar.tools->Current();
  int x = S(bar, 10);
  Label(bar, Wide(ToolTitle(tool)), x, g_bar.bold);
  x += S(bar, 8);
  int id = kFirstId;
  for (const OptionDef* def : ToolOptionDefs(tool)) {
    if (def->label.empty()) continue;
    const int32_t value = options.*def->field;
    Control control{def};
    switch (def->control) {
      case OptionControl::Number: {
        Label(bar, Wide(def->label), x, g_bar.font);
        const int width = S(bar, def->maximum >= 1000 ? 66 : 58);
        control.field = Child(bar, L"EDIT", std::to_wstring(value), WS_TABSTOP | ES_NUMBER | ES_RIGHT,
                              x, width, id, g_bar.font);
        SetWindowLongPtrW(control.field, GWL_EXSTYLE, WS_EX_CLIENTEDGE);
        SetWindowSubclass(control.field, &EditKeys, 1, 0);
        SetWindowPos(control.field, nullptr, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOZORDER | SWP_FRAMECHANGED);
        HWND spin = CreateWindowExW(0, UPDOWN_CLASSW, L"",
                                    WS_CHILD | WS_VISIBLE | UDS_ALIGNRIGHT | UDS_SETBUDDYINT |
                                        UDS_ARROWKEYS | UDS_NOTHOUSANDS,
                                    0, 0, 0, 0, bar, nullptr, nullptr, nullptr);
        SendMessageW(spin, UDM_SETBUDDY, reinterpret_cast<WPARAM>(control.field), 0);
        SendMessageW(spin, UDM_SETRANGE32, static_cast<WPARAM>(def->minimum), def->maximum);
        SendMessageW(spin, UDM_SETPOS32, 0, value);
        g_bar.children.push_back(spin);
        x += width + S(bar, 14);
        break;
      }
      case OptionControl::Choice: {
        Label(bar, Wide(def->label), x, g_bar.font);
        int width = 0;
        for (std::u16string_view item : def->choices) width = std::max(width, TextWidth(bar, g_bar.font, Wide(item)));
        width += S(bar, 30);
        control.field = Child(bar, L"COMBOBOX", L"", WS_TABSTOP | CBS_DROPDOWNLIST | WS_VSCROLL, x, width, id,
                              g_bar.font);
        SetWindowPos(control.field, nullptr, 0, 0, width, S(bar, 200), SWP_NOMOVE | SWP_NOZORDER);
        for (std::u16string_view item : def->choices)
          SendMessageW(control.field, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(Wide(item).c_str()));
        SendMessageW(control.field, CB_SETCURSEL, static_cast<WPARAM>(ChoiceIndex(*def, value)), 0);
        x += width + S(bar, 14);
        break;
      }
      case OptionControl::Check: {
        const int box = S(bar, 16);
        control.field = Child(bar, L"BUTTON", L"", WS_TABSTOP | BS_AUTOCHECKBOX, x, box, id, g_bar.font);
        SendMessageW(control.field, BM_SETCHECK, value ? BST_CHECKED : BST_UNCHECKED, 0);
        x += box + S(bar, 4);
        // The label toggles the box too, as a check box's own text would.
        Label(bar, Wide(def->label), x, g_bar.font, id + 1000);
        x += S(bar, 9);
        break;
      }
    }
    g_bar.controls.push_back(control);
    ++id;
  }
  if (HasPendingWork(tool)) {
    for (const auto& [text, buttonId] : {std::pair{L"Apply", kApplyId}, std::pair{L"Cancel", kCancelId}}) {
      const int width = TextWidth(bar, g_bar.font, text) + S(bar, 24);
      Child(bar, L"BUTTON", text, PushButtonStyle(false), x, width, buttonId, g_bar.font);
      x += width + S(bar, 6);
    }
  }
  g_bar.hint = nullptr;
  const std::u16string_view hint = Tool(tool).hint;
  if (!hint.empty()) {
    g_bar.hintX = x + S(bar, 10);
    g_bar.hint = Child(bar, L"STATIC", Wide(hint), SS_LEFT | SS_CENTERIMAGE | SS_NOPREFIX | SS_ENDELLIPSIS,
                       g_bar.hintX, S(bar, 40), kFirstId - 1, g_bar.font);
    PlaceHint(bar);
  }
  g_bar.builtDpi = WindowDpi(bar);
  g_bar.building = false;
  InvalidateRect(bar, nullptr, TRUE);
}

void Store(const Control& c, int32_t value) {
  int32_t& field = g_bar.tools->Current().*c.def->field;
  if (field == value) return;
  field = value;
  if (g_bar.changed) g_bar.changed();
}

void OnCommand(HWND bar, int id, int code, HWND from) {
  if (g_bar.building || !g_bar.tools) return;
  if ((id == kApplyId || id == kCancelId) && code == BN_CLICKED) {
    BackToCanvas(bar);
    if (g_bar.finish) g_bar.finish(id == kApplyId);
    return;
  }
  const bool viaLabel = id >= kFirstId + 1000;
  const int index = (viaLabel ? id - 1000 : id) - kFirstId;
  if (index < 0 || index >= static_cast<int>(g_bar.controls.size())) return;
  const Control& c = g_bar.controls[static_cast<std::size_t>(index)];
  switch (c.def->control) {
    case OptionControl::Number: {
      wchar_t text[16] = {};
      GetWindowTextW(c.field, text, 16);
      const std::wstring w(text);
      const auto value = ParseOptionValue(*c.def, std::u16string(w.begin(), w.end()));
      if (code == EN_CHANGE && value) Store(c, *value);
      // Leaving the box shows the value that is in effect.
      if (code == EN_KILLFOCUS) {
        const int32_t now = g_bar.tools->Current().*c.def->field;
        if (!value || *value != _wtoi(text)) SetWindowTextW(c.field, std::to_wstring(now).c_str());
      }
      break;
    }
    case OptionControl::Choice:
      if (code == CBN_SELCHANGE)
        Store(c, ChoiceValue(*c.def, static_cast<int32_t>(SendMessageW(c.field, CB_GETCURSEL, 0, 0))));
      if (code == CBN_CLOSEUP) BackToCanvas(bar);
      break;
    case OptionControl::Check:
      if (viaLabel && code == STN_CLICKED)
        SendMessageW(c.field, BM_SETCHECK, SendMessageW(c.field, BM_GETCHECK, 0, 0) == BST_CHECKED ? BST_UNCHECKED : BST_CHECKED, 0);
      if (code == BN_CLICKED || (viaLabel && code == STN_CLICKED)) {
        Store(c, SendMessageW(c.field, BM_GETCHECK, 0, 0) == BST_CHECKED ? 1 : 0);
        BackToCanvas(bar);
      }
      break;
  }
  (void)from;
}

void MakeBrushes() {
  for (HBRUSH* b : {&g_bar.background, &g_bar.field})
    if (*b) DeleteObject(*b);
  g_bar.background = CreateSolidBrush(g_bar.dark ? RGB(0x2E, 0x2F, 0x34) : RGB(0xF0, 0xF1, 0xF3));
  g_bar.field = CreateSolidBrush(g_bar.dark ? RGB(0x1E, 0x1F, 0x22) : RGB(0xFF, 0xFF, 0xFF));
}

LRESULT CALLBACK BarProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) {
  switch (msg) {
    case WM_CREATE:
      MakeBrushes();
      return 0;
    case WM_ERASEBKGND: {
      RECT r;
      GetClientRect(hwnd, &r);
      FillRect(reinterpret_cast<HDC>(wp), &r, g_bar.background);
      return 1;
    }
    case WM_COMMAND:
      OnCommand(hwnd, LOWORD(wp), HIWORD(wp), reinterpret_cast<HWND>(lp));
      return 0;
    case WM_DRAWITEM:  // Apply and Cancel in the dark theme
      DrawPushButton(*reinterpret_cast<const DRAWITEMSTRUCT*>(lp), false);
      return TRUE;
    case WM_CTLCOLORSTATIC:
    case WM_CTLCOLORBTN: {
      HDC dc = reinterpret_cast<HDC>(wp);
      const bool hint = GetDlgCtrlID(reinterpret_cast<HWND>(lp)) == kFirstId - 1;
      SetTextColor(dc, g_bar.dark ? (hint ? RGB(0x9A, 0x9D, 0xA3) : RGB(0xE6, 0xE7, 0xEA))
                                  : (hint ? RGB(0x60, 0x63, 0x69) : RGB(0x20, 0x21, 0x24)));
      SetBkColor(dc, g_bar.dark ? RGB(0x2E, 0x2F, 0x34) : RGB(0xF0, 0xF1, 0xF3));
      return reinterpret_cast<LRESULT>(g_bar.background);
    }
    case WM_CTLCOLOREDIT:
    case WM_CTLCOLORLISTBOX: {
      HDC dc = reinterpret_cast<HDC>(wp);
      SetTextColor(dc, g_bar.dark ? RGB(0xE6, 0xE7, 0xEA) : RGB(0x20, 0x21, 0x24));
      SetBkColor(dc, g_bar.dark ? RGB(0x1E, 0x1F, 0x22) : RGB(0xFF, 0xFF, 0xFF));
      return reinterpret_cast<LRESULT>(g_bar.field);
    }
    case WM_SIZE:
      // A new dpi needs new fonts and sizes; otherwise only the hint's room
      // changes.
      if (WindowDpi(hwnd) != g_bar.builtDpi) Build(hwnd);
      else PlaceHint(hwnd);
      return 0;
    case WM_DESTROY:
      for (HFONT f : {g_bar.font, g_bar.bold})
        if (f) DeleteObject(f);
      for (HBRUSH b : {g_bar.background, g_bar.field})
        if (b) DeleteObject(b);
      g_bar = BarState{};
      return 0;
  }
  return DefWindowProcW(hwnd, msg, wp, lp);
}

}  // namespace

void RegisterOptionsBarClass(HINSTANCE instance) {
  WNDCLASSEXW wc{sizeof wc};
  wc.lpfnWndProc = BarProc;
  wc.hInstance = instance;
  wc.hCursor = LoadCursorW(nullptr, IDC_ARROW);
  wc.lpszClassName = L"KZOptions";
  RegisterClassExW(&wc);
}

HWND CreateOptionsBar(HWND parent, HINSTANCE instance, ToolSettings* tools, void (*changed)()) {
  g_bar.tools = tools;
  g_bar.changed = changed;
  return CreateWindowExW(0, L"KZOptions", L"", WS_CHILD | WS_VISIBLE | WS_CLIPSIBLINGS, 0, 0, 10, 10,
                         parent, nullptr, instance, nullptr);
}

int OptionsBarHeight(UINT dpi) { return MulDiv(kHeightDip, static_cast<int>(dpi), 96); }

void SetOptionsBarTheme(HWND bar, bool dark) {
  g_bar.dark = dark;
  MakeBrushes();
  // Push buttons are made in the theme's style.
  if (g_bar.tools && bar) Build(bar);
  InvalidateRect(bar, nullptr, TRUE);
  for (HWND child : g_bar.children) InvalidateRect(child, nullptr, TRUE);
}

void SetOptionsBarFinish(void (*finish)(bool apply)) { g_bar.finish = finish; }

void RebuildOptionsBar(HWND bar) { Build(bar); }

}  // namespace tavora
