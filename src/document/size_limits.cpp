#include "document/size_limits.h"

#include <cmath>

namespace tavora {
namespace {

bool WithinLimits(double width, double height, double maxPixels) {
  return width >= 1 && width <= kMaxCanvasSide && height >= 1 && height <= kMaxCanvasSide &&
         width * height <= maxPixels;
}

}  // namespace

SizeCheck CheckCanvasSize(double width, double height, SizeRule rule) {
  // NaN fails every comparison, so it is refused below.
  const double w = std::round(width);
  const double h = std::round(height);
  const double maxPixels = rule == SizeRule::Strict ? kStrictMaxCanvasPixels : kMaxCanvasPixels;
  if (!WithinLimits(w, h, maxPixels)) {
    switch (rule) {
      case SizeRule::Standard:
        return {false, 0, 0,
                u"Size must be between 1 and 30000 pixels per side (max 250 megapixels)."};
      case SizeRule::NewImage:
        return {false, 0, 0,
                u"Width and height must be between 1 and 30000 pixels (max 250 megapixels)."};
      case SizeRule::Strict:
        return {false, 0, 0, u"Size must be between 1 and 30000 pixels per side."};
    }
  }
  return {true, static_cast<int32_t>(w), static_cast<int32_t>(h), {}};
}

bool CanvasSizeAllowed(int64_t width, int64_t height) {
  return WithinLimits(static_cast<double>(width), static_cast<double>(height), kMaxCanvasPixels);
}

}  // namespace tavora
