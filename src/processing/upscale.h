#pragma once
// Upscale: enlarging that tries to restore what plain interpolation loses.
// Detail recovery by back-projection, the halo-limited sharpen, Scale2x for
// pixel art, the noise clean-up before enlarging and the film grain after.
#include <cstdint>

#include "document/surface.h"
#include "processing/resample.h"

namespace tavora {

// Past this many target pixels the enlarging engines take the lighter path
// (the kernel and a halo-limited sharpen): the back-projection keeps a
// float copy of the result, 16 bytes a pixel.
inline constexpr int64_t kLightEnlargePixels = 24'000'000;

// The Upscale method when the target has more pixels than the source:
// optional clean-up, the engine, then the grain.
[[nodiscard]] Surface Enlarge(const Surface& source, int32_t width, int32_t height,
                              const ResizeOptions& options);

// Back-projection: enlarge with `kernel`, shrink the estimate back with the
// same resampler, enlarge what it misses of the source and add it times
// `strength`, a few rounds. Each corrected pixel is held to the range of
// the source pixels around it, widened less the higher `edge` (0..100) is.
[[nodiscard]] Surface DetailRecoveryEnlarge(const Surface& source, int32_t width, int32_t height,
                                            ResampleAlgorithm kernel, float strength, int32_t edge);
inline constexpr int kDetailRecoveryRounds = 3;

// Unsharp mask whose result stays within the range of each pixel's 3 x 3
// neighbourhood, widened less the higher `edge` (0..100) is: crisper edges
// without bright or dark rims.
void HaloLimitedSharpen(Surface& pixels, float radius, float amount, int32_t edge);

// The published Scale2x rule: every pixel becomes four, a corner taking a
// neighbour's colour where two neighbours agree along a clean diagonal.
[[nodiscard]] Surface Scale2x(const Surface& source);
// Scale2x while the target is at least twice the current size both ways
// (four times at most), then area average or bilinear to the exact size.
[[nodiscard]] Surface PixelArtEnlarge(const Surface& source, int32_t width, int32_t height);

// Edge-preserving clean-up of compression noise: a 5 x 5 bilateral filter
// that averages only neighbours of similar colour.
void Denoise(Surface& pixels);

// Monochrome grain of up to +-(0.3 x grain) levels keyed by the pixel's
// position, so the same picture always gets the same grain.
void AddGrain(Surface& pixels, int32_t grain);

}  // namespace tavora
