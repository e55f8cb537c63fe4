#include "document/edit_fill.h"

#include "document/blend.h"
#include "document/composite.h"
#include "document/history.h"

namespace tavora {
namespace {

// The area a fill or clear touches: the selection's bounds or the layer.
template <typename PixelFn>
bool ChangeSelected(Document& doc, std::u16string_view label, PixelFn&& fn) {
  Layer* layer = ActiveLayer(&doc);
  if (!layer) return false;
  const Rect all{0, 0, layer->Width(), layer->Height()};
  const Rect area = Intersect(doc.selection ? doc.selectionBounds : doc.Bounds(), all);
  if (area.Empty()) return false;
  BeginTiles(doc, doc.active, label);
  SaveTiles(doc, area);
  for (int32_t y = area.y0; y < area.y1; ++y) {
    uint32_t* row = layer->pixels.Row(y);
    const uint8_t* mask = doc.selection ? doc.selection->Row(y) : nullptr;
    for (int32_t x = area.x0; x < area.x1; ++x) {
      const uint32_t m = mask ? mask[x] : 255;
      if (m) row[x] = fn(row[x], m);
    }
  }
  CommitTiles(doc);
  Invalidate(doc, doc.active, area);
  return true;
}

}  // namespace

bool FillSelectionCommand(Document& doc, uint32_t color) {
  const uint32_t rgb = color & 0x00FFFFFFu;
  return ChangeSelected(doc, u"Fill", [rgb](uint32_t p, uint32_t m) { return Over(p, rgb | m << 24); });
}

bool ClearCommand(Document& doc, uint32_t backgroundColor) {
  const Layer* layer = ActiveLayer(&doc);
  if (layer && layer->opaqueBackground) {
    const uint32_t matte = backgroundColor | 0xFF000000u;
    return ChangeSelected(doc, u"Clear", [matte](uint32_t p, uint32_t m) {
      uint32_t out = 0;
      for (int shift = 0; shift < 32; shift += 8)
        out |= ((((p >> shift) & 255) * (255 - m) + ((matte >> shift) & 255) * m) / 255) << shift;
      return out;
    });
  }
  return ChangeSelected(doc, u"Clear", [](uint32_t p, uint32_t m) {
    const uint32_t a = Mul(p >> 24, 255 - m);
    return a ? (p & 0x00FFFFFFu) | a << 24 : 0u;
  });
}

}  // namespace tavora
