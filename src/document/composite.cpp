#include "document/composite.h"

#include <algorithm>
#include <cstring>

#include "base/row_workers.h"
#include "document/blend.h"
#include "document/blend_rows.h"
#include "document/document_events.h"
#include "document/layer_effects.h"

namespace tavora {
namespace {

// Buffers are canvas-sized; a missing or short one is skipped rather than read
// past its end.
inline bool Covers(const Surface* s, int32_t x1, int32_t y) {
  return s && s->Width() >= x1 && s->Height() > y;
}

// Starts fetching the head of a layer's row before it is laid: a narrow
// dirty rectangle reads short pieces of many distant rows, where the
// processor's own prefetching has no run to follow. Each piece is on a page
// of its own, and a prefetch alone may be dropped on a page-table miss, so
// one word of it is read outright; the reads of all layers overlap.
inline void FetchAhead(const Surface* s, int32_t x0, int32_t x1, int32_t y) {
  if (!s || s->Width() < x1 || s->Height() <= y) return;
  const char* p = reinterpret_cast<const char*>(s->Row(y) + x0);
  const int32_t bytes = std::min<int32_t>((x1 - x0) * 4, 512);
  for (int32_t b = 0; b < bytes; b += 64) __builtin_prefetch(p + b);
  (void)*reinterpret_cast<const volatile uint32_t*>(p);
}

void FetchRowAhead(const CompositeRowsContext& ctx, int32_t y) {
  for (int32_t li = 0; li < ctx.layerCount; ++li) {
    const Layer& layer = ctx.layers[li];
    if (!layer.visible) continue;
    FetchAhead(layer.under.get(), ctx.x0, ctx.x1, y);
    FetchAhead(layer.styled ? &*layer.styled : &layer.pixels, ctx.x0, ctx.x1, y);
    FetchAhead(layer.over.get(), ctx.x0, ctx.x1, y);
  }
}

}  // namespace

void CompositeRows(int first, int end, void* context) {
  const auto& ctx = *static_cast<const CompositeRowsContext*>(context);
  const int32_t n = ctx.x1 - ctx.x0;
  if (first < end) FetchRowAhead(ctx, ctx.y0 + first);
  for (int row = first; row < end; ++row) {
    const int32_t y = ctx.y0 + row;
    uint32_t* out = ctx.output + std::size_t(y) * std::size_t(ctx.outputStride) + ctx.x0;
    std::memset(out, 0, std::size_t(n) * sizeof(uint32_t));
    if (row + 1 < end) FetchRowAhead(ctx, y + 1);
    for (int32_t li = 0; li < ctx.layerCount; ++li) {
      const Layer& layer = ctx.layers[li];
      if (!layer.visible) continue;  // its effects too
      const uint32_t opacity = static_cast<uint32_t>(layer.opacity);
      if (Covers(layer.under.get(), ctx.x1, y))
        LayEffectRow(out, layer.under->Row(y) + ctx.x0, n, opacity);
      const Surface& own = layer.styled ? *layer.styled : layer.pixels;
      if (Covers(&own, ctx.x1, y))
        LayRow(out, own.Row(y) + ctx.x0, n, opacity, layer.blendMode);
      if (Covers(layer.over.get(), ctx.x1, y))
        LayEffectRow(out, layer.over->Row(y) + ctx.x0, n, opacity);
    }
  }
}

void Invalidate(Document& doc, int32_t layerIndex, const Rect& rect) {
  Rect area = Intersect(rect, doc.Bounds());
  if (area.Empty()) return;
  if (layerIndex >= 0 && layerIndex < doc.LayerCount()) {
    Layer& layer = doc.layers[layerIndex];
    if (AnyEffectOn(layer)) {
      const int32_t m = EffectMargin(layer);
      area = Intersect({area.x0 - m, area.y0 - m, area.x1 + m, area.y1 + m}, doc.Bounds());
      layer.effectsDirty = Union(layer.effectsDirty, area);
    }
  }
  doc.compositeDirty = Union(doc.compositeDirty, area);
  NotifyAreaChanged(doc, area);
}

namespace {

// The one layer whose own buffer can serve as the composite, or -1.
int32_t FastPathLayer(const Document& doc) {
  int32_t found = -1;
  for (int32_t i = 0; i < doc.LayerCount(); ++i) {
    if (!doc.layers[i].visible) continue;
    if (found >= 0) return -1;
    found = i;
  }
  if (found < 0) return -1;
  const Layer& l = doc.layers[found];
  const bool plain = !l.pixels.Empty() && l.Width() == doc.width && l.Height() == doc.height &&
                     l.opacity == 255 && l.blendMode == kBlendNormal && !AnyEffectOn(l) &&
                     !l.styled;
  return plain ? found : -1;
}

// A hidden layer's effects wait until it is shown (its dirty rectangle
// keeps growing meanwhile); a layer with none on drops its caches.
void RenderDirtyEffects(Document& doc) {
  for (Layer& layer : doc.layers) {
    if (layer.visible && !layer.effectsDirty.Empty()) RenderLayerEffects(layer);
    else if (!AnyEffectOn(layer)) RenderLayerEffects(layer);
  }
}

// Caches that no longer show their layer's effects (a parameter or the fx
// switch changed without an invalidation) are drawn whole, and where they
// show, the composite is redone: a flat copy or a merge never bakes stale
// effects.
void MarkStaleEffects(Document& doc) {
  for (Layer& layer : doc.layers) {
    if (!EffectCachesStale(layer)) continue;
    layer.effectsDirty = {0, 0, layer.Width(), layer.Height()};
    if (layer.visible) doc.compositeDirty = doc.Bounds();
  }
}

}  // namespace

void FinishCanvasChange(Document& doc) {
  const bool hadSelection = doc.selection.has_value();
  doc.selection.reset();
  doc.selectionBounds = {};
  doc.composite.reset();
  doc.compositeLayer = -1;
  doc.compositeDirty = doc.Bounds();
  for (Layer& l : doc.layers) {
    l.effectsDirty = {0, 0, l.Width(), l.Height()};
    l.rebuildEffects = true;
  }
  doc.modified = true;
  if (hadSelection) NotifySelectionChanged(doc);
  NotifySizeChanged(doc);
  NotifyLayersChanged(doc);
  NotifyAreaChanged(doc, doc.Bounds());
}

void Composite(Document& doc) {
  MarkStaleEffects(doc);
  const int32_t fast = FastPathLayer(doc);
  if (fast >= 0) {
    doc.compositeLayer = fast;
    doc.composite.reset();
    doc.compositeDirty = {};
    RenderDirtyEffects(doc);
    return;
  }
  doc.compositeLayer = -1;
  Rect area;
  if (doc.composite && doc.composite->Width() == doc.width &&
      doc.composite->Height() == doc.height) {
    area = Intersect(doc.compositeDirty, doc.Bounds());
  } else {
    // First composite, or the canvas changed size since the last one.
    doc.composite.emplace(doc.width, doc.height);
    area = doc.Bounds();
  }
  doc.compositeDirty = {};
  if (area.Empty()) return;
  RenderDirtyEffects(doc);

  CompositeRowsContext ctx;
  ctx.layers = doc.layers.data();
  ctx.layerCount = doc.LayerCount();
  ctx.output = doc.composite->Data();
  ctx.outputStride = doc.width;
  ctx.x0 = area.x0;
  ctx.y0 = area.y0;
  ctx.x1 = area.x1;
  RowWorkers::Run(area.Height(), &CompositeRows, &ctx);
}

const Surface& CompositeSource(const Document& doc) {
  if (doc.compositeLayer >= 0 && doc.compositeLayer < doc.LayerCount())
    return doc.layers[doc.compositeLayer].pixels;
  static const Surface kNone;
  return doc.composite ? *doc.composite : kNone;
}

uint32_t CompositePixel(Document& doc, int32_t x, int32_t y) {
  if (!doc.Bounds().Contains(x, y)) return 0;
  Composite(doc);
  return CompositeSource(doc).At(x, y);
}

Surface FlatCopy(Document& doc, uint32_t matteColor, Matte matte) {
  Composite(doc);
  Surface copy(CompositeSource(doc));
  if (matte == Matte::Use) {
    const uint32_t backdrop = matteColor | 0xFF000000u;
    uint32_t* p = copy.Data();
    for (std::size_t i = 0, n = copy.PixelCount(); i < n; ++i) p[i] = Over(backdrop, p[i]);
  }
  return copy;
}

}  // namespace tavora
