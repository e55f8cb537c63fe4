#pragma once
#include <algorithm>
#include <cstdint>

namespace tavora {

// x1 and y1 are exclusive; the rectangle is empty when x1 <= x0 or y1 <= y0.
struct Rect {
  int32_t x0 = 0, y0 = 0, x1 = 0, y1 = 0;

  bool Empty() const { return x1 <= x0 || y1 <= y0; }
  int32_t Width() const { return x1 - x0; }
  int32_t Height() const { return y1 - y0; }
  bool Contains(int32_t x, int32_t y) const { return x >= x0 && x < x1 && y >= y0 && y < y1; }
  bool operator==(const Rect&) const = default;
};

inline Rect Intersect(const Rect& a, const Rect& b) {
  return {std::max(a.x0, b.x0), std::max(a.y0, b.y0), std::min(a.x1, b.x1), std::min(a.y1, b.y1)};
}

// An empty rectangle takes no part: merging into one gives the other.
inline Rect Union(const Rect& a, const Rect& b) {
  if (a.Empty()) return b;
  if (b.Empty()) return a;
  return {std::min(a.x0, b.x0), std::min(a.y0, b.y0), std::max(a.x1, b.x1), std::max(a.y1, b.y1)};
}

}  // namespace tavora
