#pragma once
// The toolbar's portable half: its buttons and their icons, where each sits,
// what a click hits, and the zoom box's choices and typed values.
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "document/rect.h"

namespace tavora {

struct ToolbarItem {
  enum class Kind : uint8_t { Button, Separator, ZoomBox };
  Kind kind = Kind::Button;
  int32_t command = 0;         // buttons: the menu command they issue
  std::u16string_view tip;     // buttons: the tooltip
  std::u16string_view glyph;   // buttons: the icon (see glyph.h)
};
// Left to right.
std::span<const ToolbarItem> ToolbarItems();

struct ToolbarLayout {
  std::vector<Rect> items;  // one per item, in order
  int32_t width = 0, height = 0;
};
// All sizes scale with dpi / 96.
ToolbarLayout ComputeToolbarLayout(double scale);
// The button under a point, as an index into ToolbarItems(), or -1.
int32_t HitToolbar(const ToolbarLayout& layout, int32_t x, int32_t y);

// The zoom box's list, in order.
std::span<const std::u16string_view> ZoomChoices();
struct ZoomChoice {
  enum class Kind : uint8_t { Fit, ActualPixels, Zoom };
  Kind kind = Kind::Zoom;
  double zoom = 1.0;  // for Kind::Zoom
};
ZoomChoice ZoomChoiceAt(std::size_t index);
// A zoom as the box shows it: whole percents plainly, others to a tenth
// ("12.5%", "66.7%").
std::u16string ZoomPercentText(double zoom);
// A typed percent ("150", "150%", " 33.3 % ") as a zoom, held to 1 % ..
// 6400 %; nothing for text that is not a positive number.
std::optional<double> ParseZoomPercent(std::u16string_view text);

}  // namespace tavora
