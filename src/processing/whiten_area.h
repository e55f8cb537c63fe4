#pragma once
// Whiten Area: lifts dark marks (writing, stains, the shadows of dirt) off a
// light ground (paper, a wall, teeth). The ground's luminance is estimated
// by a closing (a maximum, then a minimum over a large square), pixels
// darker than it by more than the detection threshold are marks, and marks
// are replaced by the ground's colour around them, lifted, saturated and
// tinted as asked, through a feathered mask. Alpha stays.
#include <cstdint>

namespace tavora {

struct WhitenAreaParams {
  // How much darker than the ground a mark is, in per cent of the ground's
  // luminance; below 0 even pixels a little lighter than the ground count,
  // so the whole area takes the fill (teeth, a wall to even out).
  int32_t detection = 15;        // -30..80
  int32_t fillBrightness = 0;    // per cent of the way to white, 0..100
  int32_t fillSaturation = 100;  // per cent of the ground's saturation, 0..300
  int32_t tintHue = 0;           // degrees
  int32_t tintIntensity = 0;     // per cent, 0..100
  int32_t feather = 4;           // pixels, 0..40
};

// A PixelOp. The ground is estimated over a square of about an eighth of
// the area's shorter side (4 to 64 pixels in radius), so marks narrower
// than a quarter of the area's shorter side are found.
void WhitenArea(uint32_t* pixels, int32_t width, int32_t height, const void* params);

// The radius of that square.
int32_t WhitenGroundRadius(int32_t width, int32_t height);

}  // namespace tavora
