#include "formats/clipboard_data.h"

#include <algorithm>
#include <cstring>

#include "document/blend.h"
#include "document/composite.h"
#include "document/document_events.h"
#include "document/history.h"
#include "document/layer_commands.h"

namespace tavora {
namespace {

void PutU16(std::vector<uint8_t>& b, std::size_t at, uint32_t v) {
  b[at] = uint8_t(v), b[at + 1] = uint8_t(v >> 8);
}
void PutU32(std::vector<uint8_t>& b, std::size_t at, uint32_t v) {
  for (int i = 0; i < 4; ++i) b[at + i] = uint8_t(v >> (8 * i));
}
uint32_t U32(std::span<const uint8_t> b, std::size_t at) {
  return uint32_t(b[at]) | uint32_t(b[at + 1]) << 8 | uint32_t(b[at + 2]) << 16 | uint32_t(b[at + 3]) << 24;
}
uint32_t U16(std::span<const uint8_t> b, std::size_t at) { return uint32_t(b[at]) | uint32_t(b[at + 1]) << 8; }

constexpr uint32_t kBiRgb = 0, kBiBitfields = 3;

}  // namespace

std::optional<CopiedPixels> CopySelectedPixels(Document& doc) {
  Layer* layer = ActiveLayer(&doc);
  if (!layer) return std::nullopt;
  const Rect all{0, 0, layer->Width(), layer->Height()};
  const Rect area = Intersect(doc.selection ? doc.selectionBounds : all, all);
  if (area.Empty()) return std::nullopt;
  CopiedPixels copy{Surface(area.Width(), area.Height()), area};
  for (int32_t y = area.y0; y < area.y1; ++y) {
    const uint32_t* src = layer->pixels.Row(y);
    const uint8_t* mask = doc.selection ? doc.selection->Row(y) : nullptr;
    uint32_t* out = copy.pixels.Row(y - area.y0) - area.x0;
    for (int32_t x = area.x0; x < area.x1; ++x) {
      const uint32_t p = src[x], m = mask ? mask[x] : 255;
      out[x] = m == 255 ? p : (p & 0x00FFFFFFu) | Mul(p >> 24, m) << 24;
    }
  }
  return copy;
}

std::vector<uint8_t> BuildDibV5(const Surface& pixels, int32_t dpi) {
  const int32_t w = pixels.Width(), h = pixels.Height();
  std::vector<uint8_t> b(kDibV5HeaderSize + pixels.PixelCount() * 4, 0);
  const uint32_t perMetre = static_cast<uint32_t>(dpi / 0.0254);
  PutU32(b, 0, kDibV5HeaderSize);
  PutU32(b, 4, uint32_t(w));
  PutU32(b, 8, uint32_t(h));  // positive: rows bottom-up
  PutU16(b, 12, 1);
  PutU16(b, 14, 32);
  PutU32(b, 16, kBiBitfields);
  PutU32(b, 20, uint32_t(pixels.PixelCount() * 4));
  PutU32(b, 24, perMetre);
  PutU32(b, 28, perMetre);
  PutU32(b, 40, 0x00FF0000u);
  PutU32(b, 44, 0x0000FF00u);
  PutU32(b, 48, 0x000000FFu);
  PutU32(b, 52, 0xFF000000u);
  std::memcpy(&b[56], "BGRs", 4);  // LCS_sRGB
  PutU32(b, 108, 4);               // LCS_GM_IMAGES
  for (int32_t y = 0; y < h; ++y)
    std::memcpy(&b[kDibV5HeaderSize + std::size_t(h - 1 - y) * std::size_t(w) * 4], pixels.Row(y), std::size_t(w) * 4);
  return b;
}

namespace {

// The checks and rows shared by both headers; `minHeader` is the smallest
// header size the format allows.
std::optional<Surface> ParseDib(std::span<const uint8_t> block, uint32_t minHeader) {
  if (block.size() < std::max<std::size_t>(minHeader, 40)) return std::nullopt;
  const uint32_t headerSize = U32(block, 0);
  const int32_t w = static_cast<int32_t>(U32(block, 4)), h = static_cast<int32_t>(U32(block, 8));
  const uint32_t bits = U16(block, 14), compression = U32(block, 16);
  if (headerSize < minHeader || bits != 32 || w <= 0 || h == 0 || h == INT32_MIN ||
      (compression != kBiRgb && compression != kBiBitfields))
    return std::nullopt;
  const int64_t rows = h < 0 ? -int64_t(h) : h;
  if (int64_t(w) * rows >= 250'000'000) return std::nullopt;
  uint64_t pixelsAt = headerSize;
  // A 40-byte header is followed by its three colour masks; only the usual
  // order of the channels is read.
  if (headerSize == 40 && compression == kBiBitfields) {
    pixelsAt += 12;
    if (block.size() < 52 || U32(block, 40) != 0x00FF0000u || U32(block, 44) != 0x0000FF00u ||
        U32(block, 48) != 0x000000FFu)
      return std::nullopt;
  }
  const uint64_t need = pixelsAt + uint64_t(w) * uint64_t(rows) * 4;
  if (need > block.size()) return std::nullopt;
  Surface out(w, static_cast<int32_t>(rows));
  for (int64_t y = 0; y < rows; ++y) {
    const int64_t from = h > 0 ? rows - 1 - y : y;
    std::memcpy(out.Row(static_cast<int32_t>(y)), block.data() + pixelsAt + std::size_t(from) * std::size_t(w) * 4,
                std::size_t(w) * 4);
  }
  OpaqueIfAlphaUnused(out);
  return out;
}

}  // namespace

std::optional<Surface> ParseDibV5(std::span<const uint8_t> block) { return ParseDib(block, kDibV5HeaderSize); }

std::optional<Surface> ParseDib32(std::span<const uint8_t> block) { return ParseDib(block, 40); }

void OpaqueIfAlphaUnused(Surface& pixels) {
  uint32_t* p = pixels.Data();
  const std::size_t n = pixels.PixelCount();
  for (std::size_t i = 0; i < n; ++i)
    if (p[i] >> 24) return;
  for (std::size_t i = 0; i < n; ++i) p[i] |= 0xFF000000u;
}

void PasteAsLayer(Document& doc, Surface pixels, const std::optional<Rect>& from) {
  if (pixels.Empty()) return;
  if (doc.selection) {
    PushSelection(doc, u"Deselect");
    doc.selection.reset();
    doc.selectionBounds = {};
    NotifySelectionChanged(doc);
  }
  PushWholeDocument(doc, u"Paste", ExtendedContentAfterPush::Keep);
  const int32_t w = pixels.Width(), h = pixels.Height();
  int32_t x = (doc.width - w) / 2, y = (doc.height - h) / 2;
  if (from && from->Width() == w && from->Height() == h && Intersect(*from, doc.Bounds()) == *from) {
    x = from->x0;
    y = from->y0;
  }
  Layer layer(doc.width, doc.height, u"Pasted");
  if (x >= 0 && y >= 0 && x + w <= doc.width && y + h <= doc.height) {
    for (int32_t row = 0; row < h; ++row)
      std::memcpy(layer.pixels.Row(y + row) + x, pixels.Row(row), std::size_t(w) * 4);
  } else {
    layer.extended = std::make_unique<ExtendedContent>();
    layer.extended->x = x;
    layer.extended->y = y;
    layer.extended->pixels = std::move(pixels);
    layer.RebuildFromExtended();
  }
  InsertLayer(doc, std::move(layer), -1);
}

}  // namespace tavora
