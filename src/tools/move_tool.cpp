#include "tools/move_tool.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "document/blend.h"
#include "document/composite.h"
#include "document/document_events.h"
#include "document/history.h"
#include "tools/selection.h"
#include "tools/text_layers.h"

namespace tavora {
namespace {

int32_t Round(double v) { return static_cast<int32_t>(std::floor(std::clamp(v, -1e9, 1e9) + 0.5)); }

Rect Shifted(const Rect& r, int32_t dx, int32_t dy) {
  return {r.x0 + dx, r.y0 + dy, r.x1 + dx, r.y1 + dy};
}

Rect ContentRect(const Layer& l) {
  return {l.extended->x, l.extended->y, l.extended->x + l.extended->pixels.Width(),
          l.extended->y + l.extended->pixels.Height()};
}

// Gives the layer extended content covering at least `need` (canvas
// coordinates), keeping what it holds.
void GrowContent(Layer& layer, const Rect& need) {
  if (!layer.extended) {
    layer.extended = std::make_unique<ExtendedContent>();
    layer.extended->pixels = layer.pixels;
  }
  const Rect have = ContentRect(layer);
  const Rect want = Union(have, need);
  if (want == have) return;
  Surface grown(want.Width(), want.Height());
  for (int32_t y = have.y0; y < have.y1; ++y)
    std::memcpy(grown.Row(y - want.y0) + (have.x0 - want.x0), layer.extended->pixels.Row(y - have.y0),
                std::size_t(have.Width()) * 4);
  layer.extended->pixels = std::move(grown);
  layer.extended->x = want.x0;
  layer.extended->y = want.y0;
}

// The canvas pixels of `area` copied again from the extended content.
void RebuildArea(Layer& layer, const Rect& canvasArea) {
  const Rect area = Intersect(canvasArea, {0, 0, layer.Width(), layer.Height()});
  if (area.Empty() || !layer.extended) return;
  const Rect content = ContentRect(layer);
  for (int32_t y = area.y0; y < area.y1; ++y) {
    uint32_t* row = layer.pixels.Row(y);
    std::fill(row + area.x0, row + area.x1, 0u);
    const Rect span = Intersect({area.x0, y, area.x1, y + 1}, content);
    if (span.Empty()) continue;
    std::memcpy(row + span.x0, layer.extended->pixels.Row(y - content.y0) + (span.x0 - content.x0),
                std::size_t(span.Width()) * 4);
  }
  layer.rebuildEffects = true;
}

// The pixel store the move works in: the extended content, or the canvas
// pixels of a Background layer; `origin` is its top-left corner.
Surface& Store(Layer& layer, bool background, int32_t& originX, int32_t& originY) {
  if (background) {
    originX = originY = 0;
    return layer.pixels;
  }
  originX = layer.extended->x;
  originY = layer.extended->y;
  return layer.extended->pixels;
}

}  // namespace

void MoveTool::Press(Document& doc, double x, double y, uint32_t fill) {
  if (doc_ && doc_ != &doc) Commit(*doc_);
  if (!ActiveLayer(&doc)) return;
  fill_ = fill | 0xFF000000u;
  dragging_ = true;
  pressX_ = x;
  pressY_ = y;
  dragStartX_ = dx_;
  dragStartY_ = dy_;
}

void MoveTool::Drag(Document& doc, double x, double y) {
  if (!dragging_) return;
  MoveTo(doc, dragStartX_ + Round(x - pressX_), dragStartY_ + Round(y - pressY_));
}

void MoveTool::Release(Document& doc, double x, double y) {
  if (!dragging_) return;
  Drag(doc, x, y);
  dragging_ = false;
  if (doc_ == &doc && floating_) {
    RecomputeSelectionBounds(doc);
    NotifySelectionChanged(doc);
  }
}

void MoveTool::Nudge(Document& doc, int32_t dx, int32_t dy, uint32_t fill) {
  if (doc_ && doc_ != &doc) Commit(*doc_);
  if (!doc_) {
    fill_ = fill | 0xFF000000u;
    dx_ = dy_ = 0;
  }
  MoveTo(doc, dx_ + dx, dy_ + dy);
  if (doc_ == &doc && floating_) {
    RecomputeSelectionBounds(doc);
    NotifySelectionChanged(doc);
  }
}

bool MoveTool::Begin(Document& doc, uint32_t fill) {
  Layer* layer = ActiveLayer(&doc);
  if (!layer) return false;
  layer_ = doc.active;
  background_ = layer->opaqueBackground;
  fill_ = fill | 0xFF000000u;
  floating_ = doc.selection.has_value() && !doc.selectionBounds.Empty();
  const Rect canvas = doc.Bounds();
  const Rect lifted = floating_ ? Intersect(doc.selectionBounds, canvas) : Rect{};
  if (floating_ && lifted.Empty()) return false;
  PushLayer(doc, layer_, u"Move", floating_ ? SelectionInState::Yes : SelectionInState::No);
  if (floating_) EndTextEditing(*layer);
  doc_ = &doc;
  dx_ = dy_ = 0;
  if (!floating_) {
    if (!background_) GrowContent(*layer, {});
    if (background_) {
      // The whole picture moves within the canvas: keep it as it was.
      piece_ = layer->pixels;
    } else {
      originX_ = layer->extended->x;
      originY_ = layer->extended->y;
    }
    return true;
  }
  // Lift the selected pixels, weighted by the selection, out of the layer.
  if (!background_) GrowContent(*layer, canvas);
  int32_t sx = 0, sy = 0;
  Surface& store = Store(*layer, background_, sx, sy);
  mask_ = *doc.selection;
  maskBounds_ = doc.selectionBounds;
  pieceFrom_ = lifted;
  piece_ = Surface(lifted.Width(), lifted.Height());
  for (int32_t y = lifted.y0; y < lifted.y1; ++y) {
    uint32_t* row = store.Row(y - sy) - sx;
    const uint8_t* m = mask_.Row(y);
    uint32_t* out = piece_.Row(y - lifted.y0) - lifted.x0;
    for (int32_t x = lifted.x0; x < lifted.x1; ++x) {
      const uint32_t p = row[x], a = p >> 24, cover = m[x];
      if (cover == 0) continue;
      const uint32_t kept = Mul(a, cover);
      out[x] = kept ? (p & 0x00FFFFFFu) | kept << 24 : 0;
      if (background_) {
        row[x] = cover == 255 ? fill_ : Over(p, (fill_ & 0x00FFFFFFu) | cover << 24);
      } else {
        const uint32_t left = Mul(a, 255 - cover);
        row[x] = left ? (p & 0x00FFFFFFu) | left << 24 : 0;
      }
    }
  }
  pieceAt_ = {};
  return true;
}

void MoveTool::MoveTo(Document& doc, int32_t dx, int32_t dy) {
  if (doc_ && doc_ != &doc) return;
  if (!doc_ && (dx != 0 || dy != 0) && !Begin(doc, fill_)) return;
  if (!doc_ || (dx == dx_ && dy == dy_)) return;
  if (layer_ >= doc.LayerCount()) {  // the layers changed under the move
    Commit(doc);
    return;
  }
  Layer& layer = doc.layers[layer_];
  if (floating_) MovePiece(doc, layer, dx, dy);
  else MoveLayer(doc, layer, dx, dy);
  if (!floating_) MoveTextRecord(layer, dx - dx_, dy - dy_);
  dx_ = dx;
  dy_ = dy;
  doc.modified = true;
}

void MoveTool::MoveLayer(Document& doc, Layer& layer, int32_t dx, int32_t dy) {
  if (background_) {
    // Shifted within the canvas; what it uncovers takes the fill colour.
    const int32_t w = layer.Width(), h = layer.Height();
    for (int32_t y = 0; y < h; ++y) {
      uint32_t* row = layer.pixels.Row(y);
      const int32_t sy = y - dy;
      if (sy < 0 || sy >= h) {
        std::fill(row, row + w, fill_);
        continue;
      }
      const uint32_t* src = piece_.Row(sy);
      for (int32_t x = 0; x < w; ++x) {
        const int32_t sx = x - dx;
        row[x] = sx < 0 || sx >= w ? fill_ : src[sx];
      }
    }
    layer.rebuildEffects = true;
  } else {
    layer.extended->x = originX_ + dx;
    layer.extended->y = originY_ + dy;
    layer.RebuildFromExtended();
  }
  Invalidate(doc, layer_, doc.Bounds());
}

void MoveTool::HidePiece(Layer& layer) {
  if (pieceAt_.Empty()) return;
  int32_t sx = 0, sy = 0;
  Surface& store = Store(layer, background_, sx, sy);
  const Rect area = Intersect(pieceAt_, {sx, sy, sx + store.Width(), sy + store.Height()});
  for (int32_t y = area.y0; y < area.y1; ++y)
    std::memcpy(store.Row(y - sy) + (area.x0 - sx), under_.Row(y - pieceAt_.y0) + (area.x0 - pieceAt_.x0),
                std::size_t(area.Width()) * 4);
}

void MoveTool::ShowPiece(Layer& layer, const Rect& at) {
  int32_t sx = 0, sy = 0;
  Surface& store = Store(layer, background_, sx, sy);
  pieceAt_ = at;
  under_ = Surface(at.Width(), at.Height());
  const Rect area = Intersect(at, {sx, sy, sx + store.Width(), sy + store.Height()});
  for (int32_t y = area.y0; y < area.y1; ++y) {
    uint32_t* row = store.Row(y - sy) - sx;
    uint32_t* saved = under_.Row(y - at.y0) - at.x0;
    const uint32_t* p = piece_.Row(y - at.y0) - at.x0;
    for (int32_t x = area.x0; x < area.x1; ++x) {
      saved[x] = row[x];
      row[x] = Over(row[x], p[x]);
    }
  }
}

void MoveTool::MovePiece(Document& doc, Layer& layer, int32_t dx, int32_t dy) {
  const Rect before = pieceAt_.Empty() ? pieceFrom_ : pieceAt_;
  HidePiece(layer);
  const Rect at = Shifted(pieceFrom_, dx, dy);
  if (!background_) GrowContent(layer, at);
  ShowPiece(layer, at);
  const Rect changed = Union(before, at);
  if (!background_) RebuildArea(layer, changed);
  layer.rebuildEffects = true;
  Invalidate(doc, layer_, Intersect(changed, doc.Bounds()));
  // The outline follows; its true bounds are found when the drag ends.
  if (!doc.selection) doc.selection.emplace(mask_.Width(), mask_.Height());
  ShiftMask(mask_, dx, dy, *doc.selection);
  doc.selectionBounds = Intersect(Shifted(maskBounds_, dx, dy), doc.Bounds());
  NotifySelectionChanged(doc);
}

void MoveTool::Commit(Document& doc) {
  if (doc_ != &doc) return;
  if (layer_ < doc.LayerCount()) {
    Layer& layer = doc.layers[layer_];
    // Content that fits the canvas again needs no extended copy.
    if (layer.extended && Intersect(ContentRect(layer), doc.Bounds()) == ContentRect(layer))
      layer.extended.reset();
    if (floating_ && doc.selection) RecomputeSelectionBounds(doc);
    NotifyLayersChanged(doc);
  }
  Reset();
}

void MoveTool::Forget(const Document& doc) {
  if (doc_ == &doc) Reset();
}

void MoveTool::Reset() {
  doc_ = nullptr;
  layer_ = -1;
  dragging_ = false;
  dx_ = dy_ = 0;
  piece_ = under_ = Surface();
  mask_ = SelectionMask();
  pieceAt_ = pieceFrom_ = {};
}

}  // namespace tavora
