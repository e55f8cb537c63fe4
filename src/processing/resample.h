#pragma once
// Resampling: the internal algorithms, their weight tables, the separable
// resampler on premultiplied pixels, the sharpening pass, and the rule by
// which Image > Resize / Resample / Upscale picks its work. Resize Layer and
// the full-screen view use the same resampler.
#include <cstdint>
#include <string_view>
#include <vector>

#include "document/document.h"
#include "document/surface.h"

namespace tavora {

// Internal algorithm numbers; the dialog lists them in another order
// (AlgorithmAtPosition). A number outside 0..7 resamples with Lanczos.
enum class ResampleAlgorithm : int32_t {
  Nearest = 0,
  Bilinear = 1,
  Bicubic = 2,
  Lanczos = 3,
  BicubicSmoother = 4,
  BicubicSharper = 5,  // bicubic, then the sharpening pass
  AreaAverage = 6,
  Automatic = 7,       // smoother to enlarge, sharper otherwise
};

// A filter kernel and the distance beyond which it is zero.
struct ResampleKernel {
  double (*function)(double x) = nullptr;
  double support = 0;
};
// The kernel the separable resampler uses for an algorithm (bicubic for
// BicubicSharper; Lanczos for anything without a kernel of its own).
ResampleKernel KernelFor(ResampleAlgorithm algorithm);

// The weights of one axis: target index i reads `taps` source indices from
// first[i] on (indices outside the source stand for the edge pixel).
struct WeightTable {
  int32_t sourceLength = 0, targetLength = 0;
  int32_t taps = 0;               // per target index: ceil(2 x support) + 2
  std::vector<int32_t> first;     // floor(centre - support), may be negative
  std::vector<double> weights;    // targetLength x taps, each row sums to 1; unused taps 0
};
[[nodiscard]] WeightTable BuildWeightTable(int32_t sourceLength, int32_t targetLength,
                                           const ResampleKernel& kernel);

// Weights in fixed point: 1.0 is 1 << kWeightBits.
inline constexpr int kWeightBits = 14;
// Each weight rounded; what rounding loses or gains goes to the row's
// largest weight, so every row sums to exactly 1 << kWeightBits and a flat
// area stays exactly flat.
[[nodiscard]] std::vector<int16_t> QuantiseWeights(const WeightTable& table);

// A table ready for the inner loops: taps beyond the source folded onto the
// edge pixels, zero taps trimmed, and every window of one length lying
// inside the source.
template <typename T>
struct PackedWeights {
  int32_t taps = 0;
  std::vector<int32_t> first;
  std::vector<T> weights;  // targetLength x taps
  bool identity = false;   // every target pixel is its source pixel
};
[[nodiscard]] PackedWeights<int16_t> PackFixedWeights(const WeightTable& table);
[[nodiscard]] PackedWeights<float> PackFloatWeights(const WeightTable& table);

// Straight-alpha pixels in, straight-alpha pixels out; the filtering runs on
// premultiplied values, each pass rounded and clamped to 0..255.
[[nodiscard]] Surface ResampleSeparable(const Surface& source, int32_t width, int32_t height,
                                        const ResampleKernel& kernel);
// The horizontal pass takes two target pixels at a time on processors with
// AVX2 (same sums, same results); tests switch that off to check the plain
// path on the same machine.
void AllowAvx2ResamplingForTesting(bool allowed);

// Any internal algorithm; an unchanged size is an identical copy.
[[nodiscard]] Surface Resample(const Surface& source, int32_t width, int32_t height,
                               ResampleAlgorithm algorithm);

// Unsharp mask: each colour channel moves amount x (pixel - blurred) away
// from a Gaussian blur whose standard deviation is `radius` pixels; alpha
// and fully transparent pixels are kept.
void SharpenPass(Surface& pixels, float radius, float amount);

// ---------------------------------------------------------------- Image > Resize
enum class ResizeMethod : int32_t { Resize = 0, Resample = 1, Upscale = 2 };
enum class UpscaleEngine : int32_t { DetailRecovery = 0, LanczosSharpen = 1, PixelArt = 2 };

struct ResizeOptions {
  ResizeMethod method = ResizeMethod::Resample;
  int32_t algorithmPosition = 0;  // 0..7, the dialog's list order
  UpscaleEngine engine = UpscaleEngine::DetailRecovery;
  int32_t sharpen = 0;            // 0..100, after Resample
  int32_t detail = 50;            // 0..100, detail recovery strength
  int32_t edge = 50;              // 0..100, "Smooth hard edges"
  bool denoise = false;
  int32_t grain = 0;              // 0..100
};

// The dialog's list position 0..7 as an internal algorithm (out of range: 0).
ResampleAlgorithm AlgorithmAtPosition(int32_t position);
// "Resize", "Resample" or "Upscale": also the history label.
std::u16string_view ResizeMethodName(ResizeMethod method);

// One picture at a new size by the options' rule.
[[nodiscard]] Surface ResizeSurface(const Surface& source, int32_t width, int32_t height,
                                    const ResizeOptions& options);

// The largest side the command accepts from any caller; the dialog holds to
// the tighter canvas limits.
inline constexpr int32_t kMaxResizeSide = 32768;
// The Resize / Resample / Upscale command: every layer to the new canvas
// size as one undo step. An unchanged size does nothing and records
// nothing; returns whether the document changed.
bool ResizeImage(Document& doc, int32_t width, int32_t height, const ResizeOptions& options);

}  // namespace tavora
