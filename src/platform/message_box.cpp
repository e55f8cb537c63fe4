#include "platform/message_box.h"

#include <algorithm>

namespace tavora {
namespace {

constexpr MessageButton kOk[] = {{u"OK", kAnswerOk}};
constexpr MessageButton kOkCancel[] = {{u"OK", kAnswerOk}, {u"Cancel", kAnswerCancel}};
constexpr MessageButton kYesNo[] = {{u"&Yes", kAnswerYes}, {u"&No", kAnswerNo}};
constexpr MessageButton kYesNoCancel[] = {{u"&Yes", kAnswerYes}, {u"&No", kAnswerNo}, {u"Cancel", kAnswerCancel}};

// Appends the lines of one paragraph (no line breaks in it).
void WrapParagraph(std::u16string_view text, int32_t maxWidth,
                   const std::function<int32_t(std::u16string_view)>& width,
                   std::vector<std::u16string>& lines) {
  std::size_t start = 0;
  for (bool first = true;; first = false) {
    while (start < text.size() && text[start] == u' ') ++start;
    std::u16string_view rest = text.substr(start);
    if (rest.empty() && !first) return;  // the last cut ended the paragraph
    if (width(rest) <= maxWidth) {
      lines.emplace_back(rest);
      return;
    }
    // The longest run of whole words that fits.
    std::size_t cut = 0;
    for (std::size_t space = rest.find(u' '); space != std::u16string_view::npos;
         space = rest.find(u' ', space + 1)) {
      if (width(rest.substr(0, space)) > maxWidth) break;
      cut = space;
    }
    if (cut == 0) {
      // One word wider than the line: after a path separator that fits,
      // else as many characters as fit (at least one, so it always ends).
      std::size_t fits = 1;
      while (fits < rest.size() && width(rest.substr(0, fits + 1)) <= maxWidth) ++fits;
      const std::size_t sep = rest.substr(0, fits).find_last_of(u"\\/");
      cut = sep != std::u16string_view::npos && sep > 0 ? sep + 1 : fits;
    }
    std::u16string_view line = rest.substr(0, cut);
    while (!line.empty() && line.back() == u' ') line.remove_suffix(1);
    lines.emplace_back(line);
    start += cut;
  }
}

}  // namespace

MessageKind MessageKindFromFlags(uint32_t flags) {
  MessageKind kind;
  switch (flags & 0xF) {
    case 1: kind.buttons = MessageButtons::OkCancel; break;
    case 3: kind.buttons = MessageButtons::YesNoCancel; break;
    case 4: kind.buttons = MessageButtons::YesNo; break;
    default: kind.buttons = MessageButtons::Ok; break;
  }
  switch (flags & 0xF0) {
    case 0x10: kind.icon = MessageIcon::Error; break;
    case 0x20: kind.icon = MessageIcon::Question; break;
    case 0x30: kind.icon = MessageIcon::Warning; break;
    case 0x40: kind.icon = MessageIcon::Information; break;
    default: kind.icon = MessageIcon::None; break;
  }
  const int32_t count = static_cast<int32_t>(ButtonsOf(kind.buttons).size());
  kind.defaultButton = std::min(static_cast<int32_t>((flags >> 8) & 0xF), count - 1);
  return kind;
}

std::span<const MessageButton> ButtonsOf(MessageButtons buttons) {
  switch (buttons) {
    case MessageButtons::OkCancel: return kOkCancel;
    case MessageButtons::YesNo: return kYesNo;
    case MessageButtons::YesNoCancel: return kYesNoCancel;
    case MessageButtons::Ok: break;
  }
  return kOk;
}

int32_t EscapeAnswer(MessageButtons buttons) {
  switch (buttons) {
    case MessageButtons::Ok: return kAnswerOk;
    case MessageButtons::YesNo: return 0;
    case MessageButtons::OkCancel:
    case MessageButtons::YesNoCancel: break;
  }
  return kAnswerCancel;
}

std::vector<std::u16string> WrapText(std::u16string_view text, int32_t maxWidth,
                                     const std::function<int32_t(std::u16string_view)>& width) {
  std::vector<std::u16string> lines;
  std::size_t start = 0;
  while (true) {
    const std::size_t end = text.find(u'\n', start);
    std::u16string_view paragraph = text.substr(start, end == std::u16string_view::npos ? end : end - start);
    if (!paragraph.empty() && paragraph.back() == u'\r') paragraph.remove_suffix(1);
    WrapParagraph(paragraph, maxWidth, width, lines);
    if (end == std::u16string_view::npos) break;
    start = end + 1;
  }
  return lines;
}

MessageBoxLayout LayOutMessageBox(const MessageBoxMetrics& m, int32_t textWidth, int32_t lineCount,
                                  int32_t buttonCount) {
  MessageBoxLayout l;
  const int32_t textHeight = std::max(lineCount, 1) * m.lineHeight;
  const int32_t content = std::max(textHeight, m.iconSize);
  const int32_t textLeft = m.margin + (m.iconSize > 0 ? m.iconSize + m.iconGap : 0);
  const int32_t row = buttonCount * m.buttonWidth + std::max(buttonCount - 1, 0) * m.buttonGap;
  l.width = std::max({textLeft + textWidth + m.margin, row + 2 * m.margin, m.minWidth});
  if (m.iconSize > 0) l.icon = {m.margin, m.margin, m.margin + m.iconSize, m.margin + m.iconSize};
  const int32_t textTop = m.margin + (content - textHeight) / 2;
  l.text = {textLeft, textTop, textLeft + textWidth, textTop + textHeight};
  l.bandTop = m.margin + content + m.margin;
  const int32_t buttonTop = l.bandTop + m.bandPadding;
  int32_t x = (l.width - row) / 2;
  for (int32_t i = 0; i < buttonCount; ++i) {
    l.buttons.push_back({x, buttonTop, x + m.buttonWidth, buttonTop + m.buttonHeight});
    x += m.buttonWidth + m.buttonGap;
  }
  l.height = buttonTop + m.buttonHeight + m.bandPadding;
  return l;
}

}  // namespace tavora
