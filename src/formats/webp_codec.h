#pragma once
// WebP through libwebp: a full decode for opening (the first frame of an
// animation), a decode to a bounded size for thumbnails, and the encoder
// with the quality and lossless choices of the save options.
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <vector>

#include "document/surface.h"

namespace tavora {

// ".webp", in any case.
bool IsWebpExtension(const std::filesystem::path& path);

struct WebpImage {
  Surface pixels;  // straight-alpha BGRA
  bool hasAlpha = false;
};

// Nothing on any failure (an empty, unreadable or broken file).
[[nodiscard]] std::optional<WebpImage> DecodeWebp(std::span<const uint8_t> bytes);
[[nodiscard]] std::optional<WebpImage> ReadWebpFile(const std::filesystem::path& path);
// Scaled so that the longer side is at most `longestSide`; smaller
// pictures keep their size.
[[nodiscard]] std::optional<WebpImage> DecodeWebpThumbnail(std::span<const uint8_t> bytes, int32_t longestSide);
[[nodiscard]] std::optional<WebpImage> ReadWebpThumbnail(const std::filesystem::path& path, int32_t longestSide);

// Sides of 1..16383; quality clamped to 1..100; lossless keeps the colour
// under fully transparent pixels. The file is created only once the whole
// picture is encoded, and true only when all of it reached the disk.
[[nodiscard]] bool WriteWebpFile(const std::filesystem::path& path, const Surface& pixels, int32_t quality,
                                 bool lossless);
// The encoded bytes alone (benchmarks, tests); nothing on failure.
[[nodiscard]] std::optional<std::vector<uint8_t>> EncodeWebp(const Surface& pixels, int32_t quality, bool lossless);

}  // namespace tavora
