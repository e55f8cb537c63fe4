#include "panels/layer_thumbnail.h"

#include <algorithm>

namespace tavora {

std::vector<uint32_t> LayerThumbnail(const Layer& layer, int32_t size) {
  std::vector<uint32_t> out(std::size_t(size) * std::size_t(size));
  const int32_t w = layer.Width(), h = layer.Height();
  const double scale = w > 0 && h > 0 ? std::min(double(size) / w, double(size) / h) : 0;
  const int32_t tw = std::max(1, static_cast<int32_t>(w * scale));
  const int32_t th = std::max(1, static_cast<int32_t>(h * scale));
  const int32_t ox = (size - tw) / 2, oy = (size - th) / 2;
  const int32_t cell = std::max(1, size / 8);
  for (int32_t y = 0; y < size; ++y) {
    for (int32_t x = 0; x < size; ++x) {
      const uint32_t grey = ((x / cell + y / cell) & 1) ? 153 : 204;
      uint32_t c = 0;
      if (scale > 0 && x >= ox && x < ox + tw && y >= oy && y < oy + th) {
        // Nearest sample at the thumbnail pixel's centre.
        const int32_t sx = std::min(w - 1, static_cast<int32_t>((x - ox + 0.5) / scale));
        const int32_t sy = std::min(h - 1, static_cast<int32_t>((y - oy + 0.5) / scale));
        c = layer.pixels.At(sx, sy);
      }
      const uint32_t a = c >> 24;
      uint32_t px = 0xFF000000u;
      for (int shift = 0; shift < 24; shift += 8)
        px |= ((((c >> shift) & 255) * a + grey * (255 - a)) / 255) << shift;
      out[std::size_t(y) * size + x] = px;
    }
  }
  return out;
}

}  // namespace tavora
