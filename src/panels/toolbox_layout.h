#pragma once
// The toolbox's portable half: where each tool button and the colour boxes
// sit, what a click hits, and the line drawings of the tool icons.
#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "document/rect.h"
#include "panels/glyph.h"
#include "tools/tool_table.h"

namespace tavora {

struct ToolboxLayout {
  std::array<Rect, kToolCount> buttons;  // by tool id
  Rect leftBox, rightBox, swap, reset;
  int32_t width = 0, height = 0;
};
// All sizes scale with dpi / 96. Two columns of tools, or more when the
// toolbox is not tall enough for them and the colour boxes (height 0: any
// height will do).
ToolboxLayout ComputeToolboxLayout(double scale, int32_t height = 0);
// The tools in order, left to right and top to bottom.
std::span<const int32_t> ToolboxOrder();

enum class ToolboxPart : uint8_t { None, Tool, LeftColor, RightColor, Swap, Reset };
struct ToolboxHit {
  ToolboxPart part = ToolboxPart::None;
  int32_t tool = -1;
};
ToolboxHit HitToolbox(const ToolboxLayout& layout, int32_t x, int32_t y);

// A tool's icon.
std::vector<GlyphStroke> ToolGlyph(int32_t id);

}  // namespace tavora
