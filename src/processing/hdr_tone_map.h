#pragma once
// HDR Tone Map: local tone mapping of an 8-bit layer. The log luminance is
// split into a base, a bilateral smoothing at the smoothing radius that
// stops at edges (so strong edges get no halo), and the detail around it;
// the base's range is compressed towards the highlights, the detail
// boosted, then exposure, colour saturation and gamma are applied. Alpha
// stays; fully transparent pixels are left alone.
#include <cstdint>

namespace tavora {

struct HdrToneMapParams {
  float exposure = 0.0f;      // EV, -3..3
  float compression = 0.55f;  // the base's range is scaled by this, 0.2..1
  float detail = 1.5f;        // the detail's gain, 0.5..3
  float saturation = 1.0f;    // 0.5..1.5
  float gamma = 1.0f;         // 0.5..2; above 1 brightens, as Gamma does
  int32_t radius = 30;        // smoothing radius in pixels, 4..100
};

// A PixelOp over the whole layer (the table asks for it as its margin).
// Reports rows to CurrentProgress() and stops early when it is cancelled.
void HdrToneMap(uint32_t* pixels, int32_t width, int32_t height, const void* params);

}  // namespace tavora
