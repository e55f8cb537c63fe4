#pragma once
// The neighbourhood filters, each a PixelOp run through ApplyToSelection,
// and the shared box and Gaussian blurs (which selection feathering uses).
#include <cstdint>

namespace tavora {

// One horizontal and one vertical moving-average pass of radius r, in place,
// on every byte channel, repeating the edge pixels.
void BoxBlurPass(uint32_t* pixels, int32_t width, int32_t height, int32_t radius);
// The three-box approximation of a Gaussian, with premultiplied alpha.
void GaussianBlur(uint32_t* pixels, int32_t width, int32_t height, float radius);
// The same on one byte per pixel (a selection mask): no alpha to weigh.
void GaussianBlurBytes(uint8_t* bytes, int32_t width, int32_t height, float radius);

void Premultiply(uint32_t* pixels, std::size_t count);
void Unpremultiply(uint32_t* pixels, std::size_t count);
// Whether every pixel has alpha 255 (the two conversions leave such runs alone).
bool AllOpaque(const uint32_t* pixels, std::size_t count);

struct BlurParams { float strength = 1.0f; };
struct GaussianBlurParams { float radius = 2.0f; };
struct LensBlurParams { float radius = 5.0f; float glow = 0.0f; };
struct MotionBlurParams { float distance = 10.0f; float angle = 0.0f; };
struct SharpenParams { float radius = 1.0f; int32_t amount = 100; int32_t threshold = 0; };
struct AddNoiseParams { int32_t amount = 10; bool monochromatic = false; bool gaussian = false; };
struct PixelateParams { int32_t blockSize = 8; };

void Blur(uint32_t* pixels, int32_t width, int32_t height, const void* params);
void GaussianBlurOp(uint32_t* pixels, int32_t width, int32_t height, const void* params);
void LensBlur(uint32_t* pixels, int32_t width, int32_t height, const void* params);
void MotionBlur(uint32_t* pixels, int32_t width, int32_t height, const void* params);
void Sharpen(uint32_t* pixels, int32_t width, int32_t height, const void* params);
void AddNoise(uint32_t* pixels, int32_t width, int32_t height, const void* params);
void Pixelate(uint32_t* pixels, int32_t width, int32_t height, const void* params);
void Emboss(uint32_t* pixels, int32_t width, int32_t height, const void* params);
void EdgeDetect(uint32_t* pixels, int32_t width, int32_t height, const void* params);

// The margin the blurs and Sharpen ask for around the selection.
int32_t BlurMargin(float firstValue);

// With false, the filters take their plain pixel-by-pixel paths, so tests
// can hold the faster ones (same results) against them.
void AllowFastFiltersForTesting(bool allowed);
// With false, the fast paths keep to SSE2 even where AVX2 is available.
void AllowAvx2FiltersForTesting(bool allowed);

}  // namespace tavora
