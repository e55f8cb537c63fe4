#include "platform/theme_win32.h"

#include <string>

#include "platform/dpi_win32.h"

namespace tavora {
namespace {

constexpr ThemeColors kDark{
    RGB(0x2B, 0x2C, 0x30), RGB(0x23, 0x24, 0x28), RGB(0xE6, 0xE7, 0xEA), RGB(0x1E, 0x1F, 0x22),
    RGB(0x3A, 0x3B, 0x41), RGB(0x4C, 0x4E, 0x55), RGB(0x5A, 0x5D, 0x63), RGB(0x4C, 0x8D, 0xE8),
    RGB(0x7A, 0x7D, 0x83)};

struct ThemeState {
  bool dark = false;
  ThemeColors colors{};
  HBRUSH window = nullptr, band = nullptr, field = nullptr;
};
ThemeState g_theme;

ThemeColors LightColors() {
  return {GetSysColor(COLOR_WINDOW),   GetSysColor(COLOR_BTNFACE),  GetSysColor(COLOR_WINDOWTEXT),
          GetSysColor(COLOR_WINDOW),   GetSysColor(COLOR_BTNFACE),  GetSysColor(COLOR_BTNSHADOW),
          GetSysColor(COLOR_BTNSHADOW), GetSysColor(COLOR_HIGHLIGHT), GetSysColor(COLOR_GRAYTEXT)};
}

void MakeBrushes() {
  for (HBRUSH* b : {&g_theme.window, &g_theme.band, &g_theme.field}) {
    if (*b) DeleteObject(*b);
    *b = nullptr;
  }
  g_theme.colors = g_theme.dark ? kDark : LightColors();
  g_theme.window = CreateSolidBrush(g_theme.colors.window);
  g_theme.band = CreateSolidBrush(g_theme.colors.band);
  g_theme.field = CreateSolidBrush(g_theme.colors.field);
}

void EnsureBrushes() {
  if (!g_theme.window) MakeBrushes();
}

// SetWindowTheme lives in uxtheme.dll, looked up at run time as the newer
// dpi calls are.
void SetControlTheme(HWND control, const wchar_t* app, const wchar_t* ids) {
  using SetWindowThemeFn = HRESULT(WINAPI*)(HWND, LPCWSTR, LPCWSTR);
  static const auto setWindowTheme = [] {
    HMODULE uxtheme = LoadLibraryW(L"uxtheme.dll");
    return uxtheme ? reinterpret_cast<SetWindowThemeFn>(
                         reinterpret_cast<void*>(GetProcAddress(uxtheme, "SetWindowTheme")))
                   : nullptr;
  }();
  if (setWindowTheme) setWindowTheme(control, app, ids);
}

std::wstring ClassOf(HWND h) {
  wchar_t name[64] = {};
  GetClassNameW(h, name, 64);
  return name;
}

bool IsOwnerDrawnPushButton(HWND h) {
  return h && _wcsicmp(ClassOf(h).c_str(), L"Button") == 0 &&
         (GetWindowLongPtrW(h, GWL_STYLE) & BS_TYPEMASK) == BS_OWNERDRAW;
}

BOOL CALLBACK ThemeChild(HWND child, LPARAM) {
  const std::wstring cls = ClassOf(child);
  const LONG_PTR type = GetWindowLongPtrW(child, GWL_STYLE) & BS_TYPEMASK;
  if (_wcsicmp(cls.c_str(), L"Button") == 0 && type != BS_OWNERDRAW && type != BS_PUSHBUTTON &&
      type != BS_DEFPUSHBUTTON) {
    // Plainly drawn check boxes take their text colour from WM_CTLCOLORSTATIC.
    SetControlTheme(child, L"", L"");
  } else if (_wcsicmp(cls.c_str(), L"Edit") == 0 || _wcsicmp(cls.c_str(), L"ComboBox") == 0) {
    SetControlTheme(child, L"DarkMode_CFD", nullptr);
  } else if (_wcsicmp(cls.c_str(), L"ScrollBar") == 0) {
    SetControlTheme(child, L"DarkMode_Explorer", nullptr);
  }
  return TRUE;
}

}  // namespace

void SetDialogTheme(bool dark) {
  g_theme.dark = dark;
  MakeBrushes();
}

bool DialogThemeDark() { return g_theme.dark; }

const ThemeColors& DialogThemeColors() {
  EnsureBrushes();
  return g_theme.colors;
}

HBRUSH DialogWindowBrush() {
  EnsureBrushes();
  return g_theme.window;
}

HBRUSH DialogBackgroundBrush() {
  return DialogThemeDark() ? DialogWindowBrush() : GetSysColorBrush(COLOR_BTNFACE);
}

HBRUSH DialogBandBrush() {
  EnsureBrushes();
  return g_theme.band;
}

HBRUSH DialogControlColor(UINT msg, WPARAM wp) {
  if (!g_theme.dark) return nullptr;
  EnsureBrushes();
  HDC dc = reinterpret_cast<HDC>(wp);
  const ThemeColors& c = g_theme.colors;
  switch (msg) {
    case WM_CTLCOLORDLG:
    case WM_CTLCOLORSTATIC:
    case WM_CTLCOLORBTN:
    case WM_CTLCOLORSCROLLBAR:
      SetTextColor(dc, c.text);
      SetBkColor(dc, c.window);
      return g_theme.window;
    case WM_CTLCOLOREDIT:
    case WM_CTLCOLORLISTBOX:
      SetTextColor(dc, c.text);
      SetBkColor(dc, c.field);
      return g_theme.field;
  }
  return nullptr;
}

void ThemeDialog(HWND dialog) {
  ApplyFrameTheme(dialog, g_theme.dark);
  if (g_theme.dark) EnumChildWindows(dialog, &ThemeChild, 0);
}

void SetControlDarkMode(HWND control, bool dark) {
  SetControlTheme(control, dark ? L"DarkMode_Explorer" : nullptr, nullptr);
}

void SetTooltipTheme(HWND tips, bool dark) {
  if (!tips) return;
  SetControlTheme(tips, dark ? L"" : nullptr, dark ? L"" : nullptr);
  SendMessageW(tips, TTM_SETTIPBKCOLOR, dark ? RGB(0x2B, 0x2C, 0x30) : GetSysColor(COLOR_INFOBK), 0);
  SendMessageW(tips, TTM_SETTIPTEXTCOLOR, dark ? RGB(0xE6, 0xE7, 0xEA) : GetSysColor(COLOR_INFOTEXT), 0);
}

DWORD PushButtonStyle(bool isDefault) {
  if (g_theme.dark) return BS_OWNERDRAW;
  return isDefault ? BS_DEFPUSHBUTTON : BS_PUSHBUTTON;
}

void DrawPushButton(const DRAWITEMSTRUCT& item, bool isDefault) {
  EnsureBrushes();
  const ThemeColors& c = g_theme.colors;
  HDC dc = item.hDC;
  RECT r = item.rcItem;
  const bool pressed = item.itemState & ODS_SELECTED;
  const bool focused = item.itemState & ODS_FOCUS;
  const bool disabled = item.itemState & ODS_DISABLED;
  // The default button gives up its frame while another button has the
  // focus, as in the system's dialogs; a change of focus redraws them all.
  HWND focus = GetFocus();
  const bool otherFocused = focus != item.hwndItem && IsOwnerDrawnPushButton(focus) &&
                            GetParent(focus) == GetParent(item.hwndItem);
  const bool framed = focused || (isDefault && !otherFocused);
  if (item.itemAction == ODA_FOCUS)
    for (HWND b = GetWindow(item.hwndItem, GW_HWNDFIRST); b; b = GetWindow(b, GW_HWNDNEXT))
      if (b != item.hwndItem && IsOwnerDrawnPushButton(b)) InvalidateRect(b, nullptr, FALSE);
  // The corners outside the rounded face show the parent's background.
  HBRUSH parent = reinterpret_cast<HBRUSH>(
      SendMessageW(GetParent(item.hwndItem), WM_CTLCOLORBTN, reinterpret_cast<WPARAM>(dc),
                   reinterpret_cast<LPARAM>(item.hwndItem)));
  FillRect(dc, &r, parent ? parent : g_theme.window);
  const int dpi = static_cast<int>(WindowDpi(item.hwndItem));
  const int round = MulDiv(4, dpi, 96);
  HBRUSH face = CreateSolidBrush(pressed ? c.buttonPressed : c.button);
  HPEN frame = CreatePen(PS_INSIDEFRAME, framed ? MulDiv(2, dpi, 96) : 1, framed ? c.accent : c.border);
  HGDIOBJ oldBrush = SelectObject(dc, face);
  HGDIOBJ oldPen = SelectObject(dc, frame);
  RoundRect(dc, r.left, r.top, r.right, r.bottom, round, round);
  SelectObject(dc, oldPen);
  SelectObject(dc, oldBrush);
  DeleteObject(frame);
  DeleteObject(face);

  wchar_t text[128] = {};
  GetWindowTextW(item.hwndItem, text, 128);
  SetBkMode(dc, TRANSPARENT);
  SetTextColor(dc, disabled ? c.disabledText : c.text);
  HGDIOBJ oldFont = SelectObject(dc, reinterpret_cast<HFONT>(SendMessageW(item.hwndItem, WM_GETFONT, 0, 0)));
  if (pressed) OffsetRect(&r, 1, 1);
  DrawTextW(dc, text, -1, &r,
            DT_CENTER | DT_VCENTER | DT_SINGLELINE | ((item.itemState & ODS_NOACCEL) ? DT_HIDEPREFIX : 0));
  SelectObject(dc, oldFont);
  if (focused && !(item.itemState & ODS_NOFOCUSRECT)) {
    RECT f = item.rcItem;
    InflateRect(&f, -MulDiv(4, dpi, 96), -MulDiv(4, dpi, 96));
    SetTextColor(dc, c.text);
    SetBkColor(dc, c.button);
    DrawFocusRect(dc, &f);
  }
}

LRESULT DrawSliderPart(const NMHDR& header) {
  if (!g_theme.dark || header.code != static_cast<UINT>(NM_CUSTOMDRAW)) return CDRF_DODEFAULT;
  const auto& cd = reinterpret_cast<const NMCUSTOMDRAW&>(header);
  if (cd.dwDrawStage == CDDS_PREPAINT) return CDRF_NOTIFYITEMDRAW;
  if (cd.dwDrawStage != CDDS_ITEMPREPAINT || cd.dwItemSpec == TBCD_TICS) return CDRF_DODEFAULT;
  EnsureBrushes();
  const ThemeColors& c = g_theme.colors;
  const bool thumb = cd.dwItemSpec == TBCD_THUMB;
  const int dpi = static_cast<int>(WindowDpi(header.hwndFrom));
  const int round = thumb ? MulDiv(4, dpi, 96) : 0;
  HBRUSH face = CreateSolidBrush(thumb ? ((cd.uItemState & CDIS_SELECTED) ? c.accent : c.button) : c.field);
  HPEN frame = CreatePen(PS_SOLID, 1, c.border);
  HGDIOBJ oldBrush = SelectObject(cd.hdc, face);
  HGDIOBJ oldPen = SelectObject(cd.hdc, frame);
  RoundRect(cd.hdc, cd.rc.left, cd.rc.top, cd.rc.right, cd.rc.bottom, round, round);
  SelectObject(cd.hdc, oldPen);
  SelectObject(cd.hdc, oldBrush);
  DeleteObject(frame);
  DeleteObject(face);
  return CDRF_SKIPDEFAULT;
}

LRESULT DefaultButtonAnswer(HWND dialog, int defaultId) {
  HWND focus = GetFocus();
  int id = defaultId;
  if (focus && GetParent(focus) == dialog) {
    const LRESULT code = SendMessageW(focus, WM_GETDLGCODE, 0, 0);
    if (IsOwnerDrawnPushButton(focus) || (code & (DLGC_DEFPUSHBUTTON | DLGC_UNDEFPUSHBUTTON)))
      id = GetDlgCtrlID(focus);
  }
  return MAKELRESULT(id, DC_HASDEFID);
}

}  // namespace tavora
