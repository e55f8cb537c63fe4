#pragma once
// The system codec bridge: PNG, JPEG, BMP, GIF, TIFF and ICO through the
// platform's image codecs. The portable code reaches it through this table,
// which the Windows build fills with its GDI+ codecs at start-up; where no
// codec is registered, those formats cannot be opened or saved.
#include <cstdint>
#include <filesystem>
#include <optional>

#include "document/surface.h"

namespace tavora {

// Format codes of the save flow.
enum class SaveFormat : int32_t { Png = 0, Jpeg = 1, Bmp = 2, Gif = 3, Tiff = 4, WebP = 6 };

struct EncodeOptions {
  SaveFormat format = SaveFormat::Png;
  int32_t quality = 90;      // JPEG and WebP, 1..100
  int32_t paletteSize = 0;   // 1..256: GIF uses a palette of at most this many colours; 0 = full colour
  bool lossless = false;     // WebP
};

struct DecodedImage {
  Surface pixels;      // straight-alpha BGRA
  int32_t dpi = 0;     // 0 when the file records none
};

struct SystemCodec {
  // The first frame of a GIF, the first page of a TIFF, the largest image of
  // an ICO. Nothing on any failure; never a message.
  std::optional<DecodedImage> (*decode)(const std::filesystem::path& path);
  // Writes the picture with its dpi; the existing file is replaced only when
  // the whole new file is written. JPEG and BMP receive an opaque picture.
  bool (*encode)(const std::filesystem::path& path, const Surface& pixels, int32_t dpi,
                 const EncodeOptions& options);
};

// Null switches the bridge off.
void SetSystemCodec(const SystemCodec* codec);
const SystemCodec* CurrentSystemCodec();

}  // namespace tavora
