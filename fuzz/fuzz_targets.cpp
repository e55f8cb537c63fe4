#include "fuzz_targets.h"

#include <cstring>
#include <string>

#include "base/ini_file.h"
#include "formats/byte_input.h"
#include "formats/clipboard_data.h"
#include "formats/jpeg_dc_decode.h"
#include "formats/layered_format.h"
#include "formats/psd_reader.h"
#include "formats/radiance_hdr.h"
#include "formats/webp_codec.h"

#include <webp/decode.h>

namespace tavora::fuzz {

bool LayeredFormat(const uint8_t* data, std::size_t size) {
  // A run pair fills a whole layer, so a few bytes can ask for gigabytes of
  // honest work; keep each input to what a fuzzer can afford.
  if (size >= 24) {
    uint32_t width, height, count;
    std::memcpy(&width, data + 4, 4);
    std::memcpy(&height, data + 8, 4);
    std::memcpy(&count, data + 20, 4);
    if (uint64_t(width) * height * (count ? count : 1) > (1u << 22)) return true;
  }
  auto doc = ReadLayeredDocumentBytes({data, size});
  return !doc || (doc->LayerCount() >= 1 && doc->active < doc->LayerCount());
}

bool Psd(const uint8_t* data, std::size_t size) {
  // Keep the canvas small: every layer of a large one is honest work.
  if (size >= 22) {
    const uint64_t height = uint64_t(data[14]) << 24 | uint64_t(data[15]) << 16 | data[16] << 8 | data[17];
    const uint64_t width = uint64_t(data[18]) << 24 | uint64_t(data[19]) << 16 | data[20] << 8 | data[21];
    if (width * height > (1u << 20)) return true;
  }
  auto doc = ReadPsdBytes({data, size});
  auto flat = ReadPsdFlattenedBytes({data, size});
  for (const Layer* l = doc ? doc->layers.data() : nullptr; doc && l != doc->layers.data() + doc->LayerCount(); ++l)
    if (l->Width() != doc->width || l->Height() != doc->height || l->blendMode < 0 || l->blendMode > 13) return false;
  return true;
}

bool RadianceHdr(const uint8_t* data, std::size_t size) {
  MemoryInput in({data, size});
  const auto picture = DecodeRadianceHdr(in, 0.5f);
  // Every pixel of a decoded picture is opaque.
  if (picture)
    for (std::size_t i = 0; i < picture->PixelCount(); ++i)
      if (picture->Data()[i] >> 24 != 255) return false;
  return true;
}

bool IniFile(const uint8_t* data, std::size_t size) {
  // What the parser writes back must read again to exactly the same file.
  const auto ini = tavora::IniFile::FromBytes({reinterpret_cast<const char*>(data), size});
  const std::string written = ini.ToBytes();
  return tavora::IniFile::FromBytes(written).ToBytes() == written;
}

}  // namespace tavora::fuzz

namespace tavora::fuzz {

bool Webp(const uint8_t* data, std::size_t size) {
  // Honest decoding of a large claim is slow under the sanitizers; keep each
  // input to what a fuzzer can afford (the limits themselves are unit-tested).
  int width = 0, height = 0;
  if (WebPGetInfo(data, size, &width, &height) && uint64_t(width) * uint64_t(height) > (1u << 22)) return true;
  const auto full = DecodeWebp({data, size});
  const auto thumb = DecodeWebpThumbnail({data, size}, 64);
  // A thumbnail never exceeds the size asked for.
  return !thumb || (thumb->pixels.Width() <= 64 && thumb->pixels.Height() <= 64);
}

}  // namespace tavora::fuzz

namespace tavora::fuzz {

bool ClipboardDib(const uint8_t* data, std::size_t size) {
  // Another program's bitmap block: what parses has the size its header
  // claims, and writing it back parses to the same pixels.
  const auto picture = ParseDibV5({data, size});
  if (!picture) return true;
  if (picture->Width() <= 0 || picture->Height() <= 0) return false;
  if (picture->PixelCount() > (1u << 22)) return true;
  const auto again = ParseDibV5(BuildDibV5(*picture, 96));
  return again && again->Width() == picture->Width() && again->Height() == picture->Height() &&
         std::memcmp(again->Data(), picture->Data(), picture->PixelCount() * 4) == 0;
}

}  // namespace tavora::fuzz

namespace tavora::fuzz {

bool JpegDc(const uint8_t* data, std::size_t size) {
  // The Browse tab's fast path on any file named .jpg: what decodes has an
  // eighth of the size it claims, rounded up, and is opaque.
  const auto image = DecodeJpegDc({data, size});
  if (!image) return true;
  if (image->pixels.Width() != (image->width + 7) / 8 || image->pixels.Height() != (image->height + 7) / 8)
    return false;
  for (std::size_t i = 0; i < image->pixels.PixelCount(); ++i)
    if (image->pixels.Data()[i] >> 24 != 255) return false;
  return true;
}

}  // namespace tavora::fuzz
