#pragma once
// PNG, JPEG, BMP, GIF, TIFF and ICO through GDI+, as the system codec of the
// codec bridge. Start GDI+ before the table is registered with
// SetSystemCodec(&GdiplusCodecs()); stop it after the last decode or encode.
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "platform/codec_bridge.h"

namespace tavora {

// False when GDI+ cannot be started; the bridge must then stay switched off.
[[nodiscard]] bool StartGdiplusCodecs();
void StopGdiplusCodecs();

const SystemCodec& GdiplusCodecs();

// A PNG held in memory, as the clipboard's "PNG" format carries one; GDI+
// must be running. The encoder always writes the alpha channel; the decoder
// takes PNG bytes only and holds to the size limits.
[[nodiscard]] std::optional<std::vector<uint8_t>> EncodePngInMemory(const Surface& pixels, int32_t dpi);
[[nodiscard]] std::optional<DecodedImage> DecodePngInMemory(std::span<const uint8_t> bytes);

}  // namespace tavora
