#pragma once
// The parts of the program's message box that need no window: the buttons
// and answers of each kind (the system's MB_* flags and ID* answers, so
// callers change little), what Enter, Esc and the close box give, the text
// wrapped to a width, and where the icon, text and buttons go.
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "document/rect.h"

namespace tavora {

// The answers, numbered as the system's IDOK, IDCANCEL, IDYES and IDNO.
inline constexpr int32_t kAnswerOk = 1, kAnswerCancel = 2, kAnswerYes = 6, kAnswerNo = 7;

enum class MessageButtons { Ok, OkCancel, YesNo, YesNoCancel };
enum class MessageIcon { None, Information, Warning, Question, Error };

struct MessageButton {
  std::u16string_view label;  // with its mnemonic
  int32_t answer;             // also the button's control id
};

struct MessageKind {
  MessageButtons buttons = MessageButtons::Ok;
  MessageIcon icon = MessageIcon::None;
  int32_t defaultButton = 0;  // index into the buttons
};

// From the system's flags: MB_OK, MB_OKCANCEL, MB_YESNO and MB_YESNOCANCEL
// (any other set shows OK), the four icons and MB_DEFBUTTON1..3.
MessageKind MessageKindFromFlags(uint32_t flags);
std::span<const MessageButton> ButtonsOf(MessageButtons buttons);
// What Esc and the close box answer: Cancel where there is one, OK when OK
// is all there is; 0 for Yes and No, which must be chosen.
int32_t EscapeAnswer(MessageButtons buttons);

// The lines of `text` at most `maxWidth` wide as `width` measures them:
// line breaks kept, words moved whole to the next line, a word wider than
// a line (a long path) cut after its last '\' or '/' that fits, else
// between characters.
std::vector<std::u16string> WrapText(std::u16string_view text, int32_t maxWidth,
                                     const std::function<int32_t(std::u16string_view)>& width);

struct MessageBoxMetrics {  // device pixels
  int32_t margin = 0;
  int32_t iconSize = 0;     // 0: no icon
  int32_t iconGap = 0;
  int32_t lineHeight = 0;
  int32_t minWidth = 0;     // of the client area
  int32_t buttonWidth = 0;
  int32_t buttonHeight = 0;
  int32_t buttonGap = 0;
  int32_t bandPadding = 0;  // above and below the buttons
};

struct MessageBoxLayout {
  Rect icon;                  // empty without an icon
  Rect text;
  int32_t bandTop = 0;        // the buttons' band runs from here to the bottom
  std::vector<Rect> buttons;  // centred in the band, in order
  int32_t width = 0, height = 0;  // the client area
};

// The text block is `textWidth` by lineCount lines; a short text sits
// centred beside the icon.
MessageBoxLayout LayOutMessageBox(const MessageBoxMetrics& m, int32_t textWidth, int32_t lineCount,
                                  int32_t buttonCount);

}  // namespace tavora
