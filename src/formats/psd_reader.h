#pragma once
// Photoshop documents (".psd", version 1). Ordinary pixel layers are kept
// with their names, visibility, opacity, blend modes and positions; a file
// with anything the editor cannot represent (masks, clipping, adjustment,
// fill and effect layers) opens as the flattened picture it stores. A
// usable file is never refused for the sake of its layers.
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>

#include "document/document.h"
#include "document/surface.h"

namespace tavora {

struct PsdPicture {
  Surface pixels;
  int32_t dpi = 72;
};

// The document the file stands for (layers or the flattened picture), or
// nothing for a broken file. No path is set.
[[nodiscard]] std::unique_ptr<Document> ReadPsd(const std::filesystem::path& path);
[[nodiscard]] std::unique_ptr<Document> ReadPsdBytes(std::span<const uint8_t> bytes);

// The flattened picture alone (thumbnails, batch conversion), or nothing.
[[nodiscard]] std::optional<PsdPicture> ReadPsdFlattened(const std::filesystem::path& path);
[[nodiscard]] std::optional<PsdPicture> ReadPsdFlattenedBytes(std::span<const uint8_t> bytes);

// The blend mode of a four-character key ("norm", "mul ", ...), or -1.
int32_t PsdBlendMode(std::span<const uint8_t, 4> key);

}  // namespace tavora
