#pragma once
// The Fill tool and the Magic Wand: one colour match and one scanline
// flood, seeded at the clicked pixel. Fill composes colour into the found
// area of the active layer ("Flood Fill"); the wand makes it a selection
// ("Selection").
#include <algorithm>
#include <cstdint>
#include <optional>

#include "document/document.h"
#include "document/rect.h"
#include "document/surface.h"

namespace tavora {

// The tolerance option 0..100 as a channel threshold: round(255 t² / 10000),
// fine at the low end (10 gives 3, 32 gives 26, 100 gives 255).
int32_t ToleranceThreshold(int32_t tolerance);

// Every fully transparent pixel matches every other; otherwise the largest
// single channel difference, alpha included, must not pass the threshold.
inline bool ColourMatches(uint32_t pixel, uint32_t seed, int32_t threshold) {
  if ((pixel >> 24) == 0 && (seed >> 24) == 0) return true;
  int32_t worst = 0;
  for (int shift = 0; shift < 32; shift += 8) {
    const int32_t d = static_cast<int32_t>((pixel >> shift) & 255) - static_cast<int32_t>((seed >> shift) & 255);
    worst = std::max(worst, d < 0 ? -d : d);
  }
  return worst <= threshold;
}

// The found area: 255 where a pixel belongs to it, the size of the image.
struct FloodResult {
  SelectionMask mask;
  Rect rect;  // the bounds of the marked pixels
};
// Contiguous: a 4-connected scanline flood from the seed (one stacked seed
// per run). Otherwise every matching pixel of the image. Nothing when the
// seed lies outside the image.
std::optional<FloodResult> FloodArea(const Surface& image, int32_t seedX, int32_t seedY, int32_t threshold,
                                     bool contiguous);

struct FillOptions {
  int32_t tolerance = 32;
  int32_t opacity = 100;  // 1..100
  bool contiguous = true;
};
// The Fill tool's click: the found area of the active layer is composed
// with `color` (0xAARRGGBB, laid opaque) at the opacity, weighted by the
// selection, as one history step "Flood Fill". Whether it recorded.
bool FillAt(Document& doc, double x, double y, uint32_t color, const FillOptions& options);

struct WandOptions {
  int32_t tolerance = 32;  // `wandtol`
  bool contiguous = true;
  bool allLayers = false;  // sample the flattened image
  double feather = 0;
};
// The wand's click: the found area, feathered, joins the selection by
// `mode` as one step "Selection". Whether it recorded.
bool MagicWandAt(Document& doc, double x, double y, int32_t mode, const WandOptions& options);

}  // namespace tavora
