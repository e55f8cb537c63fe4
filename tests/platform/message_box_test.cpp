#include "platform/message_box.h"

#include <gtest/gtest.h>

namespace tavora {
namespace {

// Seven pixels a character, as a fixed-width font.
int32_t Fixed(std::u16string_view s) { return static_cast<int32_t>(s.size()) * 7; }

std::vector<int32_t> Answers(MessageButtons buttons) {
  std::vector<int32_t> answers;
  for (const MessageButton& b : ButtonsOf(buttons)) answers.push_back(b.answer);
  return answers;
}

TEST(MessageBoxKinds, FlagsGiveTheSystemsButtonsIconsAndDefaults) {
  struct Case {
    uint32_t flags;
    MessageButtons buttons;
    MessageIcon icon;
    int32_t defaultButton;
  };
  const Case cases[] = {
      {0x00, MessageButtons::Ok, MessageIcon::None, 0},                  // MB_OK
      {0x40, MessageButtons::Ok, MessageIcon::Information, 0},           // MB_ICONINFORMATION
      {0x31, MessageButtons::OkCancel, MessageIcon::Warning, 0},         // MB_OKCANCEL | MB_ICONWARNING
      {0x23, MessageButtons::YesNoCancel, MessageIcon::Question, 0},     // MB_YESNOCANCEL | MB_ICONQUESTION
      {0x134, MessageButtons::YesNo, MessageIcon::Warning, 1},           // ... | MB_DEFBUTTON2
      {0x213, MessageButtons::YesNoCancel, MessageIcon::Error, 2},       // MB_ICONERROR | MB_DEFBUTTON3
      {0x200, MessageButtons::Ok, MessageIcon::None, 0},                 // no third button to default to
      {0x05, MessageButtons::Ok, MessageIcon::None, 0},                  // a kind it does not show
  };
  for (const Case& c : cases) {
    const MessageKind kind = MessageKindFromFlags(c.flags);
    EXPECT_EQ(kind.buttons, c.buttons) << c.flags;
    EXPECT_EQ(kind.icon, c.icon) << c.flags;
    EXPECT_EQ(kind.defaultButton, c.defaultButton) << c.flags;
  }
  EXPECT_EQ(Answers(MessageButtons::Ok), (std::vector<int32_t>{1}));
  EXPECT_EQ(Answers(MessageButtons::OkCancel), (std::vector<int32_t>{1, 2}));
  EXPECT_EQ(Answers(MessageButtons::YesNo), (std::vector<int32_t>{6, 7}));
  EXPECT_EQ(Answers(MessageButtons::YesNoCancel), (std::vector<int32_t>{6, 7, 2}));
  EXPECT_EQ(ButtonsOf(MessageButtons::YesNo)[1].label, u"&No");
  EXPECT_EQ(EscapeAnswer(MessageButtons::Ok), kAnswerOk);
  EXPECT_EQ(EscapeAnswer(MessageButtons::OkCancel), kAnswerCancel);
  EXPECT_EQ(EscapeAnswer(MessageButtons::YesNoCancel), kAnswerCancel);
  EXPECT_EQ(EscapeAnswer(MessageButtons::YesNo), 0);
}

TEST(MessageBoxText, WrapsAtWordsKeepsBreaksAndCutsLongPaths) {
  struct Case {
    std::u16string_view text;
    int32_t width;
    std::vector<std::u16string> lines;
  };
  const Case cases[] = {
      {u"Save changes?", 700, {u"Save changes?"}},
      {u"one two three four", 70, {u"one two", u"three four"}},  // 10 characters a line
      {u"one  two", 21, {u"one", u"two"}},                        // spaces at a break go
      {u"a\n\nb", 70, {u"a", u"", u"b"}},                         // the blank line stays
      {u"x\r\ny", 70, {u"x", u"y"}},
      {u"C:\\pictures\\holiday\\beach.png", 105, {u"C:\\pictures\\", u"holiday\\", u"beach.png"}},
      {u"abcdefghij", 28, {u"abcd", u"efgh", u"ij"}},             // no separator: by characters
      {u"abc", 1, {u"a", u"b", u"c"}},                            // narrower than a character
      {u"", 70, {u""}},
  };
  for (const Case& c : cases) EXPECT_EQ(WrapText(c.text, c.width, &Fixed), c.lines) << std::string(c.text.begin(), c.text.end());
  // Every line fits, for text that has somewhere to break.
  const auto lines = WrapText(u"This format cannot store layers. The layers will be flattened in the saved file.", 140, &Fixed);
  for (const auto& line : lines) EXPECT_LE(Fixed(line), 140);
  EXPECT_EQ(lines.size(), 5u);
}

TEST(MessageBoxLayout, IconTextAndCentredButtonsDoNotOverlap) {
  MessageBoxMetrics m{.margin = 20, .iconSize = 32, .iconGap = 14, .lineHeight = 16, .minWidth = 260,
                      .buttonWidth = 88, .buttonHeight = 28, .buttonGap = 8, .bandPadding = 12};

  const MessageBoxLayout three = LayOutMessageBox(m, 300, 4, 3);
  EXPECT_EQ(three.icon, (Rect{20, 20, 52, 52}));
  EXPECT_EQ(three.text, (Rect{66, 20, 366, 84}));  // beside the icon, four lines
  EXPECT_EQ(three.width, 386);
  EXPECT_EQ(three.bandTop, 104);
  ASSERT_EQ(three.buttons.size(), 3u);
  EXPECT_EQ(three.buttons[0].x0, 53);  // centred: (386 - 280) / 2
  EXPECT_EQ(three.width - three.buttons[2].x1, three.buttons[0].x0);
  for (std::size_t i = 1; i < 3; ++i) EXPECT_EQ(three.buttons[i].x0, three.buttons[i - 1].x1 + 8);
  EXPECT_EQ(three.buttons[0].y0, 116);
  EXPECT_EQ(three.height, 116 + 28 + 12);

  // One short line sits centred on the icon; the box keeps its least width.
  const MessageBoxLayout one = LayOutMessageBox(m, 50, 1, 1);
  EXPECT_EQ(one.text.y0, 20 + 8);
  EXPECT_EQ(one.width, 260);
  EXPECT_EQ(one.buttons[0], (Rect{86, 84, 174, 112}));

  // Many buttons widen the box past the text; no icon puts the text at the margin.
  m.iconSize = 0;
  const MessageBoxLayout wide = LayOutMessageBox(m, 50, 2, 3);
  EXPECT_TRUE(wide.icon.Empty());
  EXPECT_EQ(wide.text.x0, 20);
  EXPECT_EQ(wide.width, 3 * 88 + 2 * 8 + 40);
  EXPECT_EQ(wide.buttons[0].x0, 20);
}

}  // namespace
}  // namespace tavora
