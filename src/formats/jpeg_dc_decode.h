#pragma once
// A JPEG at an eighth of its size, from the DC coefficients alone: each
// 8 x 8 block becomes one pixel of its average colour. The AC coefficients
// are only skipped, with no inverse transform and no full-size colour
// conversion, so a 12-megapixel photograph gives its 500 x 375 picture in a
// fraction of a full decode: the fast path of the Browse tab's thumbnails.
// Baseline and extended sequential Huffman files with one (grey) or three
// (YCbCr, or RGB by the Adobe marker) components; anything else (progressive,
// arithmetic, lossless, CMYK, 12-bit, damaged) gives nothing, and the caller
// falls back to a full decode.
#include <cstdint>
#include <optional>
#include <span>

#include "document/surface.h"

namespace tavora {

struct JpegDcImage {
  Surface pixels;          // opaque BGRA, ceil(width / 8) x ceil(height / 8)
  int32_t width = 0;       // the picture's own size
  int32_t height = 0;
};

[[nodiscard]] std::optional<JpegDcImage> DecodeJpegDc(std::span<const uint8_t> bytes);

}  // namespace tavora
