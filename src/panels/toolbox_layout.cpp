#include "panels/toolbox_layout.h"

#include <algorithm>
#include <cmath>
#include <string_view>

namespace tavora {
namespace {

// Grouped as people look for them: moving and selecting, painting,
// retouching, drawing, then the layer transforms and the view.
constexpr int32_t kOrder[kToolCount] = {
    kToolMove,     kToolRectSelect,    kToolEllipseSelect, kToolLasso,
    kToolPolygonSelect, kToolMagicWand, kToolCrop,         kToolEyedropper,
    kToolBrush,    kToolEraser,        kToolFill,          kToolClone,
    kToolSpotHeal, kToolHeal,          kToolBlur,          kToolSharpen,
    kToolSmudge,   kToolSponge,        kToolBurn,          kToolText,
    kToolLine,     kToolRectangle,     kToolEllipse,       kToolRoundedRect,
    kToolLayerRotate, kToolLayerResize, kToolZoom,         kToolPan,
};

constexpr int kMargin = 5, kButton = 28, kGap = 2, kBox = 24, kSmall = 16;

// One icon per tool, in the notation of ParseGlyph.
constexpr std::u16string_view kGlyphs[kToolCount] = {
    u"Bd 2,3 14,13",                                                       // rectangle select
    u"Ed 1,3 15,13",                                                       // ellipse select
    u"Cd 3,4 8,2 14,4 14,8 9,11 4,10; L 5,10 3,13 5,15",                   // lasso
    u"L 8,1 8,15; L 1,8 15,8; L 6,3 8,1 10,3; L 6,13 8,15 10,13; L 3,6 1,8 3,10; "
    u"L 13,6 15,8 13,10",                                                  // move
    u"L 4,0 4,12 16,12; L 0,4 12,4 12,16",                                 // crop
    u"L3 2,14 9,7; F 8,2 14,8",                                            // eyedropper
    u"C 2,8 8,2 14,8 8,14; P 12,10 15,14 12,15 11,13",                     // fill
    u"L3 2,14 6,10; L 6,10 14,2",                                          // brush
    u"C 1,10 8,3 14,9 7,16; L 4,7 10,13",                                  // eraser
    u"L 8,1 3,9; L 8,1 13,9; E 3,6 13,15",                                 // blur
    u"L3 3,14 9,6; F 8,2 14,8",                                            // smudge
    u"L2 2,14 14,2",                                                       // line
    u"B2 2,4 14,12",                                                       // rectangle
    u"E2 1,3 15,13",                                                       // ellipse
    u"R2 2,4 14,12",                                                       // rounded rectangle
    u"L2 3,2 13,2; L2 8,2 8,14",                                           // text
    u"E2 2,2 11,11; L3 10,10 15,15",                                       // zoom
    u"L 5,5 5,11; L 8,3 8,11; L 11,5 11,11; L 3,9 5,15 11,15 13,10",       // pan
    u"Cd 2,13 5,2 14,6 11,14",                                             // polygon select
    u"L2 2,14 10,6; L 12,1 12,3; L 12,6 12,8; L 9,4 11,4; L 13,4 15,4",    // magic wand
    u"C 8,1 14,15 2,15",                                                   // sharpen
    u"B 2,10 14,14; L2 8,5 8,10; F 5,1 11,6",                              // clone
    u"E 2,2 14,14; L2 8,5 8,11; L2 5,8 11,8",                              // spot heal
    u"L3 8,2 8,14; L3 2,8 14,8",                                           // heal
    u"R 2,4 14,13; F 5,6 7,8; F 9,9 11,11; F 9,6 10,7",                    // sponge
    u"C 8,1 12,7 12,12 8,15 4,12 4,7; L 8,8 8,13",                         // burn
    u"E 2,3 14,15; L 10,1 13,3 10,5",                                      // layer rotate
    u"B 1,7 9,15; L 7,9 15,1; L 10,1 15,1 15,6",                           // layer resize
};

Rect Square(int32_t x, int32_t y, int32_t side) { return {x, y, x + side, y + side}; }

}  // namespace

std::span<const int32_t> ToolboxOrder() { return kOrder; }

ToolboxLayout ComputeToolboxLayout(double scale, int32_t height) {
  const auto px = [scale](int dip) { return static_cast<int32_t>(std::lround(dip * scale)); };
  ToolboxLayout layout;
  const int32_t button = px(kButton), gap = px(kGap), margin = px(kMargin);
  const int32_t colorArea = px(8) + px(kBox) + px(4) + px(kSmall) + margin;
  int32_t columns = 2;
  if (height > 0) {
    const int32_t rowsFit = std::max(1, (height - margin - colorArea + gap) / (button + gap));
    columns = std::max(2, (kToolCount + rowsFit - 1) / rowsFit);
  }
  const int32_t rows = (kToolCount + columns - 1) / columns;
  for (int32_t i = 0; i < kToolCount; ++i) {
    const int32_t x = margin + (i % columns) * (button + gap), y = margin + (i / columns) * (button + gap);
    layout.buttons[static_cast<std::size_t>(kOrder[i])] = Square(x, y, button);
  }
  layout.width = margin * 2 + button * columns + gap * (columns - 1);
  const int32_t top = margin + rows * (button + gap) + px(8);
  const int32_t inset = (button - px(kBox)) / 2;
  layout.leftBox = Square(margin + inset, top, px(kBox));
  layout.rightBox = Square(margin + button + gap + inset, top, px(kBox));
  const int32_t smallInset = (button - px(kSmall)) / 2;
  layout.swap = Square(margin + smallInset, top + px(kBox) + px(4), px(kSmall));
  layout.reset = Square(margin + button + gap + smallInset, top + px(kBox) + px(4), px(kSmall));
  layout.height = layout.reset.y1 + margin;
  return layout;
}

ToolboxHit HitToolbox(const ToolboxLayout& layout, int32_t x, int32_t y) {
  for (int32_t id = 0; id < kToolCount; ++id)
    if (layout.buttons[static_cast<std::size_t>(id)].Contains(x, y)) return {ToolboxPart::Tool, id};
  if (layout.leftBox.Contains(x, y)) return {ToolboxPart::LeftColor, -1};
  if (layout.rightBox.Contains(x, y)) return {ToolboxPart::RightColor, -1};
  if (layout.swap.Contains(x, y)) return {ToolboxPart::Swap, -1};
  if (layout.reset.Contains(x, y)) return {ToolboxPart::Reset, -1};
  return {};
}

std::vector<GlyphStroke> ToolGlyph(int32_t id) { return ParseGlyph(kGlyphs[Tool(id).id]); }

}  // namespace tavora
