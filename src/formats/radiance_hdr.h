#pragma once
// Radiance RGBE pictures (".hdr", ".pic"), tone-mapped while reading to an
// opaque 8-bit picture at one exposure chosen when the file is opened.
// Nothing of the floating-point data is kept; the format is never written.
#include <filesystem>
#include <memory>
#include <optional>

#include "document/document.h"
#include "document/surface.h"
#include "formats/byte_input.h"

namespace tavora {

// The decoded picture, or nothing for a broken or oversized file.
[[nodiscard]] std::optional<Surface> DecodeRadianceHdr(ByteInput& in, float exposure);

// A new modified Document with one opaque Background layer, dpi 72 and no
// path; nothing on any failure.
[[nodiscard]] std::unique_ptr<Document> ReadRadianceHdr(const std::filesystem::path& path, float exposure);

// The fixed curve from a channel value to 8 bits: (1 - e^-v)^(1/2.2) x 255.
uint8_t HdrToByte(float value);

}  // namespace tavora
