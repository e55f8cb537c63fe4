#pragma once
// The theme of the windows the system would otherwise draw in its own
// colours: the dialogs, their controls and the message boxes. The main
// window sets it whenever the theme changes; a dialog reads it when it is
// built. In the light theme the system's own look stays.
#include <windows.h>
#include <commctrl.h>

namespace tavora {

struct ThemeColors {
  COLORREF window;         // dialog background
  COLORREF band;           // the message box's button band
  COLORREF text;
  COLORREF field;          // edit boxes and lists
  COLORREF button;         // push button face
  COLORREF buttonPressed;
  COLORREF border;
  COLORREF accent;         // the default button's frame, the focus
  COLORREF disabledText;
};

void SetDialogTheme(bool dark);
bool DialogThemeDark();
const ThemeColors& DialogThemeColors();
// Brushes of the colours above, owned here and valid until the next change.
HBRUSH DialogWindowBrush();
HBRUSH DialogBandBrush();
// A dialog's background in either theme (the system's button face when light).
HBRUSH DialogBackgroundBrush();

// Answers WM_CTLCOLORDLG, STATIC, BTN, EDIT, LISTBOX and SCROLLBAR in the
// dark theme: the control's DC gets the text and background colours and
// the brush is returned. Null in the light theme and for other messages,
// so the caller falls back to the default handling.
HBRUSH DialogControlColor(UINT msg, WPARAM wp);

// After a dialog's controls exist: the title bar follows the theme, and in
// the dark theme the controls' visual styles are set to ones that honour
// the colours (check boxes drawn plainly, dark edit and combo frames where
// the system has them).
void ThemeDialog(HWND dialog);

// A scroll bar or list of a panel: dark where the system has a dark look
// for it, the system's own look otherwise.
void SetControlDarkMode(HWND control, bool dark);

// A tooltip window in the theme's colours: dark ones drop the system's
// visual style, which would ignore them.
void SetTooltipTheme(HWND tips, bool dark);

// Push buttons are owner-drawn in the dark theme: the system draws them
// light whatever colours it is given. The style for a new button.
DWORD PushButtonStyle(bool isDefault);
// WM_DRAWITEM of an owner-drawn push button; `isDefault` frames the button
// Enter presses while no other button has the focus.
void DrawPushButton(const DRAWITEMSTRUCT& item, bool isDefault);
// NM_CUSTOMDRAW of a slider: in the dark theme its channel and thumb are
// drawn in the theme's colours (the tics stay the system's); in the light
// theme the system draws it all.
LRESULT DrawSliderPart(const NMHDR& header);

// DM_GETDEFID's answer: the push button with the focus, else `defaultId`,
// so Enter presses the focused button as in the system's dialogs.
LRESULT DefaultButtonAnswer(HWND dialog, int defaultId);

}  // namespace tavora
