#pragma once
// The healing solver behind the Spot Healing brush and the Healing Brush:
// a source patch (found by search, or given by the clone offset) is laid
// over the painted area, and its colour and lighting are adapted to the
// area's border by relaxing the difference between target and source
// (a membrane), so the patch keeps its texture and loses its seams.
#include <cstdint>
#include <optional>
#include <vector>

#include "document/rect.h"
#include "document/surface.h"

namespace tavora {

// The layer's pixels as they were when the stroke began.
struct PixelSource {
  uint32_t (*at)(const void* context, int32_t x, int32_t y) = nullptr;
  const void* context = nullptr;
  int32_t width = 0, height = 0;  // the layer
  uint32_t At(int32_t x, int32_t y) const { return at(context, x, y); }
};

struct HealJob {
  PixelSource image;
  Rect rect;                   // the stroke's dirty rectangle, within the layer
  std::vector<uint8_t> paint;  // rect-sized: painted coverage x selection / 255
  bool useOffset = false;      // the Healing Brush's clone offset
  int32_t offsetX = 0, offsetY = 0;
  int32_t amount = 100;        // the tool's opacity, 1..100
};

// Spot Healing's search: the offset whose ring around the painted area
// best matches the ring's own texture (a uniform colour shift costs
// nothing). Nothing when the ring is too small or no offset fits.
std::optional<std::pair<int32_t, int32_t>> FindHealingSource(const HealJob& job);

// The healed pixels of job.rect (rect-sized, row-major): the source plus
// the relaxed difference, mixed into the start pixels by paint x amount.
// Without a source the painted area is filled smoothly from its border.
std::vector<uint32_t> HealRegion(const HealJob& job);

}  // namespace tavora
