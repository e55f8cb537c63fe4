#pragma once
// The brush engine: a mouse drag becomes a row of round dabs on the active
// layer, one drag one history step. The footprint, spacing and stroke
// bookkeeping here are shared by every tool that paints with dabs.
#include <cstdint>
#include <string_view>
#include <vector>

#include "document/document.h"
#include "document/rect.h"

namespace tavora {

enum class BrushTool { Brush, Eraser, Blur, Smudge, Sharpen, Sponge, Burn, Clone, SpotHeal, Heal };

// The luminance band Sponge and Burn work on (the options record's `range`).
inline constexpr int32_t kRangeAll = 0, kRangeShadows = 1, kRangeMidtones = 2,
                         kRangeHighlights = 3;

// The tool options of one stroke; values out of range are clamped when the
// stroke begins. Colours are 0xAARRGGBB like Surface pixels.
struct BrushParams {
  BrushTool tool = BrushTool::Brush;
  int32_t size = 14;       // 1..500 pixels
  int32_t hardness = 85;   // 0..100
  int32_t opacity = 100;   // 1..100
  int32_t spacing = 12;    // 1..200 per cent of size (Brush and Eraser)
  int32_t strength = 50;   // 0..100 (Blur, Smudge, Sharpen)
  int32_t range = kRangeAll;
  int32_t exposure = 50;   // 1..100 (Sponge, Burn)
  bool keepOffset = true;  // Clone, Heal: "Keep offset between strokes"
  uint32_t primary = 0xFF000000, secondary = 0xFFFFFFFF;
};

// "Brush", "Erase", "Blur", "Smudge", "Sharpen", "Sponge", "Burn", "Clone",
// "Spot Healing", "Healing Brush".
std::u16string_view BrushHistoryName(BrushTool tool);

// Path length between dabs: a share of the size for Brush, Eraser, Clone
// and Heal, a fixed 8 % for the other retouching tools; never below one
// pixel.
double DabStep(const BrushParams& params);

// ---- footprint
// The pixels a dab of radius size / 2 at (cx, cy) may reach:
// floor(c - r - 1) .. ceil(c + r + 1), not clipped.
Rect DabBox(int32_t size, double cx, double cy);

// Per-pixel weight over DabBox, row-major, 0 where the dab does not reach.
// A pixel's distance is measured from its centre. Hardness 97 and above is
// a hard tip with a one-pixel antialiased edge; below, a solid core of
// radius r x hardness falls off by smoothstep to half a pixel past r.
struct Footprint {
  Rect box;
  std::vector<double> weight;

  double At(int32_t x, int32_t y) const {
    return weight[std::size_t(y - box.y0) * std::size_t(box.Width()) + std::size_t(x - box.x0)];
  }
};
Footprint DabFootprint(int32_t size, int32_t hardness, double cx, double cy);

// The byte the painting dabs use for a weight; 0 means the pixel is skipped.
inline uint8_t CoverageByte(double weight) {
  return static_cast<uint8_t>(static_cast<int32_t>(weight * 255.0 + 0.5));
}

// ---- strokes (one at a time, on the UI thread)
// Button-down: button 1 paints the primary colour, 2 the secondary. Opens
// the stroke's history record on the active layer and places the first dab;
// a stroke still in progress is ended first. A document without layers
// starts nothing.
void BeginStroke(Document& doc, double x, double y, int button, const BrushParams& params);
// Every mouse move while the button is down; dabs keep their spacing over
// the whole path however the moves are spaced.
void ContinueStroke(Document& doc, double x, double y);
// Button-up: the stroke becomes one history step, even when it changed
// nothing. A button-up for another document is ignored.
void EndStroke(Document& doc);
// One dab of the current stroke's tool; nothing without a stroke on doc.
void Dab(Document& doc, double x, double y);

bool StrokeActive();

// ---- the clone source, shared by the Clone brush and the Healing Brush
// Ctrl+click: a new source point; the next stroke measures its offset
// from it. Until a source is set, those two tools paint nothing.
void SetCloneSource(double x, double y);
bool CloneSourceSet();
// Forgets the source (a new session, tests).
void ClearCloneSource();
// The document is closing: its stroke (if any) is dropped without a step,
// so the engine never touches the document again.
void ForgetStroke(const Document& doc);

}  // namespace tavora
