#pragma once
// "KZMsgBox": the program's message box, in the theme of the program:
// caption, wrapped text, the icon and the buttons, modal to its owner.
// It takes MessageBoxW's flags and gives its answers, so it stands in for
// it: MB_OK, MB_OKCANCEL, MB_YESNO (&Yes, &No) and MB_YESNOCANCEL, the
// information, warning, question and error icons and MB_DEFBUTTON1..3;
// Enter presses the default (or focused) button, Esc and the close box
// answer Cancel (OK when OK is the only button; a Yes/No box has no close).
#include <windows.h>

#include <string_view>

namespace tavora {

int ShowMessageBox(HWND owner, std::wstring_view text, std::wstring_view caption, UINT flags);

}  // namespace tavora
