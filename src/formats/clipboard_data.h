#pragma once
// What crosses the clipboard, apart from the clipboard itself: the copied
// pixels of the active layer weighted by the selection, the 32-bit
// version-5 bitmap block other programs read, the checks on such blocks
// from other programs, and the pasted layer's place in the document.
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "document/document.h"
#include "document/rect.h"
#include "document/surface.h"

namespace tavora {

// The selected part of the active layer: the selection's bounds (or the
// whole layer), alpha scaled by the selection bytes. Nothing when empty.
struct CopiedPixels {
  Surface pixels;  // top-down, straight alpha
  Rect from;       // where on the canvas they came from
};
[[nodiscard]] std::optional<CopiedPixels> CopySelectedPixels(Document& doc);

// The CF_DIBV5 block: a 124-byte BITMAPV5HEADER (bit fields, sRGB, the
// document's resolution) and the pixels bottom-up.
inline constexpr std::size_t kDibV5HeaderSize = 124;
[[nodiscard]] std::vector<uint8_t> BuildDibV5(const Surface& pixels, int32_t dpi);
// A 32-bit block from any program: header of at least 124 bytes, positive
// width, non-zero height (negative: top-down), BI_RGB or BI_BITFIELDS, fewer
// than 250,000,000 pixels, and the bytes to hold them. A picture whose alpha
// bytes are all 0 comes back opaque.
[[nodiscard]] std::optional<Surface> ParseDibV5(std::span<const uint8_t> block);
// The same for a plain 32-bit CF_DIB: a header of at least 40 bytes, the
// three colour masks after a 40-byte one with BI_BITFIELDS (the usual
// order only).
[[nodiscard]] std::optional<Surface> ParseDib32(std::span<const uint8_t> block);
// Every pixel opaque when not one has a non-zero alpha byte.
void OpaqueIfAlphaUnused(Surface& pixels);

// Paste into the document: a selection is first dropped ("Deselect"), then
// "Paste" adds a layer "Pasted" above the active one. The picture lands at
// `from` when given and still fits the canvas, else centred; what falls
// outside the canvas is kept as the layer's extended content.
void PasteAsLayer(Document& doc, Surface pixels, const std::optional<Rect>& from);

}  // namespace tavora
