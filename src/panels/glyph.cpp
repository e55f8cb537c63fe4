#include "panels/glyph.h"

namespace tavora {
namespace {

GlyphStroke::Kind KindFor(char16_t c) {
  switch (c) {
    case u'C': return GlyphStroke::Kind::Closed;
    case u'E': return GlyphStroke::Kind::Ellipse;
    case u'F': return GlyphStroke::Kind::FilledEllipse;
    case u'B': return GlyphStroke::Kind::Box;
    case u'R': return GlyphStroke::Kind::RoundBox;
    case u'P': return GlyphStroke::Kind::Filled;
    default: return GlyphStroke::Kind::Lines;
  }
}

}  // namespace

std::vector<GlyphStroke> ParseGlyph(std::u16string_view text) {
  std::vector<GlyphStroke> strokes;
  while (!text.empty()) {
    const std::size_t end = text.find(u';');
    std::u16string_view part = text.substr(0, end);
    text = end == text.npos ? std::u16string_view{} : text.substr(end + 1);
    while (!part.empty() && part.front() == u' ') part.remove_prefix(1);
    if (part.empty()) continue;
    GlyphStroke stroke;
    stroke.kind = KindFor(part.front());
    std::size_t i = 1;
    for (; i < part.size() && part[i] != u' '; ++i) {
      if (part[i] == u'd') stroke.dashed = true;
      else if (part[i] >= u'1' && part[i] <= u'9') stroke.width = part[i] - u'0';
    }
    int32_t value = 0;
    bool inNumber = false;
    for (; i <= part.size(); ++i) {
      const char16_t c = i < part.size() ? part[i] : u' ';
      if (c >= u'0' && c <= u'9') {
        value = value * 10 + (c - u'0');
        inNumber = true;
      } else if (inNumber) {
        stroke.points.push_back(value);
        value = 0;
        inNumber = false;
      }
    }
    strokes.push_back(std::move(stroke));
  }
  return strokes;
}

}  // namespace tavora
