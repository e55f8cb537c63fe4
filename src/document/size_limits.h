#pragma once
// The canvas size limits every command and reader holds to.
#include <cstdint>
#include <string_view>

namespace tavora {

inline constexpr int32_t kMaxCanvasSide = 30000;
inline constexpr double kMaxCanvasPixels = 250'000'000.0;
inline constexpr double kStrictMaxCanvasPixels = 150'000'000.0;

enum class SizeRule {
  Standard,   // resize, canvas size, resize layer
  NewImage,   // the new-image dialog and its like
  Strict,     // the one size dialog that holds to 150 megapixels
};

struct SizeCheck {
  bool ok = false;
  int32_t width = 0;   // the values rounded to whole pixels
  int32_t height = 0;
  std::u16string_view message;  // empty when ok
};

// Rounds the entered values to the nearest whole pixel, then checks them.
SizeCheck CheckCanvasSize(double width, double height, SizeRule rule = SizeRule::Standard);

// For readers: whole-pixel sizes from a file.
bool CanvasSizeAllowed(int64_t width, int64_t height);

}  // namespace tavora
