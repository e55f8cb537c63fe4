#pragma once
// Small modal dialogs built in memory: a column of labelled fields with OK
// and Cancel, for the few questions the shell asks (new image size, JPEG
// quality). Sizes are in dialog units, so they follow the system font.
#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

namespace tavora {

struct DialogField {
  std::wstring label;
  std::wstring value;                 // the text of an edit, or the chosen item of a choice
  std::vector<std::wstring> choices;  // empty: an edit box; else a drop-down list
  bool note = false;                  // a line of text only, its label spanning the row
  // Non-empty: a "Browse…" button beside the edit box picks an existing
  // file with these filters (label and pattern pairs, each ended by a null).
  std::wstring browseFilter;
};

// True on OK, with the fields' values updated; `validate` may refuse OK by
// returning a message, which is shown and the dialog stays open.
using DialogValidator = std::wstring (*)(const std::vector<DialogField>& fields);
// An optional third button at the left; its action returns true to close
// the dialog (as Cancel).
struct DialogExtraButton {
  std::wstring label;
  bool (*action)(HWND dialog) = nullptr;
};
bool RunFieldDialog(HWND owner, const std::wstring& title, std::vector<DialogField>& fields,
                    DialogValidator validate = nullptr, const DialogExtraButton* extra = nullptr);

// The system colour chooser starting at `color` (0xAARRGGBB); on OK the
// chosen colour, opaque, replaces it. The custom colours last the session.
bool ChooseColorDialog(HWND owner, uint32_t& color);

// A child control of our hand-built dialogs, in `font`; edit boxes get the
// sunken edge.
HWND CreateControl(HWND parent, const wchar_t* cls, const std::wstring& text, DWORD style, int x, int y, int w, int h,
                   int id, HFONT font);
// Makes a combo box's open list as wide as its longest entry (in the box's
// font), never narrower than the box: call it after filling the list.
void FitDroppedWidth(HWND combo);
// The answer to WM_GETTEXT for windows that work their text out when asked
// (panels read by tests and screen readers): copies `text` into the buffer.
LRESULT AnswerGetText(const std::wstring& text, WPARAM size, LPARAM buffer);

}  // namespace tavora
