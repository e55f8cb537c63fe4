#pragma once
// The effect renderer's scratch planes and the two tools it draws with: the
// three-box Gaussian and the exact Euclidean distance transform. Both work
// on a window of the canvas; a value is only read where the window reaches
// far enough around it, so a small window gives exactly the values a
// canvas-wide one would. That is what lets a brush dab re-render the
// effects of its own rectangle only.
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>

#include "base/memory.h"
#include "document/rect.h"
#include "document/surface.h"

namespace tavora {

// A rectangle of values in canvas coordinates (it may reach past the canvas).
template <typename T>
class Plane {
 public:
  Plane() = default;
  explicit Plane(const Rect& area) : area_(area) {
    if (!area.Empty())
      data_.reset(static_cast<T*>(CheckedAlloc(std::size_t(area.Width()) * std::size_t(area.Height()) * sizeof(T))));
  }
  const Rect& Area() const { return area_; }
  int32_t Width() const { return area_.Width(); }
  int32_t Height() const { return area_.Height(); }
  bool Empty() const { return area_.Empty(); }
  // The row of canvas row y; element 0 is canvas column Area().x0.
  T* Row(int32_t y) { return data_.get() + std::size_t(y - area_.y0) * std::size_t(Width()); }
  const T* Row(int32_t y) const { return data_.get() + std::size_t(y - area_.y0) * std::size_t(Width()); }
  T At(int32_t x, int32_t y) const { return Row(y)[x - area_.x0]; }
  T* Data() { return data_.get(); }
  void Fill(T value) {
    const std::size_t n = std::size_t(Width()) * std::size_t(Height());
    for (std::size_t i = 0; i < n; ++i) data_[i] = value;
  }

 private:
  Rect area_;
  std::unique_ptr<T[], FreeDeleter> data_;
};

inline Rect Grow(const Rect& r, int32_t by) { return {r.x0 - by, r.y0 - by, r.x1 + by, r.y1 + by}; }

// The radii of three moving averages applied in turn (a radius of 0 skips
// its pass); together they reach the sum of the radii.
struct BoxRadii {
  int32_t r[3] = {0, 0, 0};
  int32_t Reach() const { return r[0] + r[1] + r[2]; }
};
// The boxes of the shared Gaussian Blur for a radius (as the Effects menu's
// Gaussian Blur and selection feathering use them): about 1.5 x radius of reach.
BoxRadii GaussianRadii(float radius);
// Three boxes that reach exactly `reach` pixels: a Gaussian of about
// reach / 3 standard deviations, for effects whose size is their reach.
BoxRadii ReachRadii(int32_t reach);

// Blurs a plane in place with the boxes, each a horizontal then a vertical
// pass with the edge values repeated, rounding every pass as the shared
// Gaussian does. Values within the boxes' reach of a side that is not
// backed by the same constant beyond it are not to be read afterwards.
void BlurPlane(Plane<uint8_t>& plane, const BoxRadii& radii);
void BlurPlane(Plane<uint16_t>& plane, const BoxRadii& radii);
// Four byte channels per value (premultiplied colour).
void BlurPlane(Plane<uint32_t>& plane, const BoxRadii& radii);

// Squared Euclidean distances from each pixel of `target` to the nearest
// site (a non-zero value of `sites`), exactly, as long as that distance is
// at most `cap`; kFarAway otherwise. `sites` must cover target grown by cap
// as far as sites can lie (pixels outside it are not sites).
inline constexpr uint32_t kFarAway = 0xFFFFFFFFu;
Plane<uint32_t> DistanceSquared(const Plane<uint8_t>& sites, const Rect& target, int32_t cap);
// The same with the sites read straight from a layer's pixels (those of
// alpha 128 or more, or for insideSites false below 128; past the pixels
// there are sites only when surroundingsAreSites), each squared distance
// d2 given as table[d2], and table[cap * cap + 1] beyond the cap: the table
// needs cap * cap + 2 entries (an empty plane comes back otherwise).
Plane<uint8_t> DistanceTable(const Surface& pixels, bool insideSites, bool surroundingsAreSites, const Rect& target,
                             int32_t cap, std::span<const uint8_t> table);

// Runs body(first, end) over `count` items, on the row workers when the
// work (in pixels) is worth starting threads for, else on the caller.
inline constexpr int64_t kEffectParallelWork = 1 << 17;
void ForEachSlice(int32_t count, int64_t work, void (*body)(int first, int end, void* context), void* context);
template <typename F>
void ForEachSlice(int32_t count, int64_t work, F& body) {
  ForEachSlice(count, work, [](int first, int end, void* f) { (*static_cast<F*>(f))(first, end); }, &body);
}

}  // namespace tavora
