#pragma once
// Colour adjustments of the active layer, the shared tone-curve routines,
// and ApplyToSelection, the one driver through which adjustments, filters
// and effects change a region of pixels.
#include <cstdint>
#include <string_view>

#include "document/document.h"

namespace tavora {

// Rewrites width x height pixels in place (stride = width).
using PixelOp = void (*)(uint32_t* pixels, int32_t width, int32_t height, const void* params);

// Runs op on the selection's bounding rectangle (or the whole layer), with
// `margin` extra pixels of context, as one undo step named `historyName`;
// the result is blended into the layer by the selection's coverage.
void ApplyToSelection(Document& doc, std::u16string_view historyName, PixelOp op,
                      const void* params, int32_t margin);

inline uint32_t Luminance(uint32_t r, uint32_t g, uint32_t b) { return (77 * r + 150 * g + 29 * b) >> 8; }
// Each channel, alpha included: ((a (255 - m) + b m + 128) 257) >> 16.
uint32_t LerpPixel(uint32_t a, uint32_t b, uint32_t m);

struct ClipRange {
  int32_t low = 0, high = 255;
};
ClipRange PercentileClip(const uint64_t* histogram, uint64_t total, double percent);
void StretchLut(uint8_t* table, int32_t low, int32_t high);
void ApplyChannelLuts(uint32_t* pixels, int32_t width, int32_t height, const uint8_t* red,
                      const uint8_t* green, const uint8_t* blue);
struct Hsv {
  double h = 0, s = 0, v = 0;
};
Hsv RgbToHsv(uint32_t r, uint32_t g, uint32_t b);
void HsvToRgb(double h, double s, double v, int32_t& r, int32_t& g, int32_t& b);

// Parameter blocks.
struct BrightnessContrastParams { int32_t brightness = 0, contrast = 0; };
struct GammaParams { float gamma = 1.0f; int32_t redShift = 0, greenShift = 0, blueShift = 0; };
struct HueSaturationParams { int32_t hue = 0, saturation = 0, lightness = 0; };
struct ColorizeParams { int32_t hue = 200, saturation = 60, lightness = 0; };
struct PosterizeParams { int32_t levels = 4; };
struct ThresholdParams { int32_t threshold = 128; };

void BrightnessContrast(uint32_t* pixels, int32_t width, int32_t height, const void* params);
void Gamma(uint32_t* pixels, int32_t width, int32_t height, const void* params);
void HueSaturation(uint32_t* pixels, int32_t width, int32_t height, const void* params);
void Colorize(uint32_t* pixels, int32_t width, int32_t height, const void* params);
void Grayscale(uint32_t* pixels, int32_t width, int32_t height, const void* params);
void Sepia(uint32_t* pixels, int32_t width, int32_t height, const void* params);
void Invert(uint32_t* pixels, int32_t width, int32_t height, const void* params);
void Posterize(uint32_t* pixels, int32_t width, int32_t height, const void* params);
void Threshold(uint32_t* pixels, int32_t width, int32_t height, const void* params);
void AutoTone(uint32_t* pixels, int32_t width, int32_t height, const void* params);
void AutoContrast(uint32_t* pixels, int32_t width, int32_t height, const void* params);
void AutoColor(uint32_t* pixels, int32_t width, int32_t height, const void* params);

// With false, Hue / Saturation / Lightness takes its plain per-pixel path,
// so tests can hold the table-driven one (same results) against it.
void AllowFastAdjustmentsForTesting(bool allowed);

// Tables of the tone curves, for tests and for the operations above.
void BrightnessContrastTable(int32_t brightness, int32_t contrast, uint8_t* table);
void GammaTable(float gamma, int32_t shift, uint8_t* table);
void PosterizeTable(int32_t levels, uint8_t* table);

}  // namespace tavora
