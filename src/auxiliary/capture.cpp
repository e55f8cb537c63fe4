#include "auxiliary/capture.h"

#include <algorithm>
#include <atomic>
#include <cstring>

namespace tavora {
namespace {

std::atomic<int32_t> g_captures{0};

std::u16string Number(int64_t n) {
  const std::string s = std::to_string(n);
  return {s.begin(), s.end()};
}

}  // namespace

Surface DimmedCopy(const Surface& screen) {
  Surface out(screen.Width(), screen.Height());
  const uint32_t* p = screen.Data();
  uint32_t* q = out.Data();
  for (std::size_t i = 0, n = screen.PixelCount(); i < n; ++i) {
    uint32_t v = 0xFF000000u;
    for (int shift = 0; shift < 24; shift += 8) v |= (((p[i] >> shift) & 255) * 40 / 100) << shift;
    q[i] = v;
  }
  return out;
}

Rect CaptureRegion(int32_t x0, int32_t y0, int32_t x1, int32_t y1, int32_t shotW, int32_t shotH) {
  const Rect r = Intersect({std::min(x0, x1), std::min(y0, y1), std::max(x0, x1), std::max(y0, y1)},
                           {0, 0, shotW, shotH});
  return r.Empty() ? Rect{} : r;
}

Surface CropOpaque(const Surface& shot, const Rect& region) {
  const Rect r = Intersect(region, {0, 0, shot.Width(), shot.Height()});
  if (r.Empty()) return {};
  Surface out(r.Width(), r.Height());
  for (int32_t y = r.y0; y < r.y1; ++y) {
    const uint32_t* src = shot.Row(y) + r.x0;
    uint32_t* dst = out.Row(y - r.y0);
    for (int32_t x = 0; x < r.Width(); ++x) dst[x] = src[x] | 0xFF000000u;
  }
  return out;
}

int32_t CaptureWaitMs(int32_t delayMs) { return std::max(delayMs, 0) + 450; }

std::u16string NextCaptureName() { return u"Capture-" + Number(++g_captures); }

std::u16string CaptureSizeLabel(const Rect& region) {
  return Number(region.Width()) + u" \u00D7 " + Number(region.Height());
}

}  // namespace tavora
