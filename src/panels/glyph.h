#pragma once
// Button icons as a few strokes on a 16 x 16 grid, written as short texts
// so a whole set of icons reads as one table.
#include <cstdint>
#include <string_view>
#include <vector>

namespace tavora {

struct GlyphStroke {
  enum class Kind : uint8_t { Lines, Closed, Ellipse, FilledEllipse, Box, RoundBox, Filled };
  Kind kind = Kind::Lines;
  int32_t width = 1;  // pen width in grid units
  bool dashed = false;
  std::vector<int32_t> points;  // x, y pairs; boxes and ellipses use two corners
};

// Strokes separated by ';', each a kind letter (L lines, C closed, E
// ellipse, F filled ellipse, B box, R rounded box, P filled polygon), an
// optional pen width digit and 'd' for dashed, then x,y points on the grid:
// "E2 2,2 12,12; L3 11,11 15,15" is a magnifier.
std::vector<GlyphStroke> ParseGlyph(std::u16string_view text);

}  // namespace tavora
