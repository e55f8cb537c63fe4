#include "document/history.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "document/composite.h"
#include "document/document_events.h"

namespace tavora {
namespace {

constexpr int kJumpGuard = 99999;

uint64_t SurfaceBytes(const Surface* s) { return s ? uint64_t(s->PixelCount()) * 4 : 0; }

// Everything a layer holds: pixels, extended content and effect caches.
uint64_t LayerBytes(const Layer& l) {
  return SurfaceBytes(&l.pixels) + SurfaceBytes(l.extended ? &l.extended->pixels : nullptr) +
         SurfaceBytes(l.styled.get()) + SurfaceBytes(l.under.get()) + SurfaceBytes(l.over.get()) +
         SurfaceBytes(&l.effectsWork);
}

uint64_t SelectionBytes(const std::optional<SelectionMask>& mask) {
  return mask ? mask->ByteCount() : 0;
}

std::u16string Label(std::u16string_view label) {
  return std::u16string(TruncateUtf16(label, kMaxHistoryLabel));
}

Rect TileRect(int32_t column, int32_t row, const Surface& pixels) {
  const int32_t x0 = column * kHistoryTileSize, y0 = row * kHistoryTileSize;
  return {x0, y0, std::min(x0 + kHistoryTileSize, pixels.Width()),
          std::min(y0 + kHistoryTileSize, pixels.Height())};
}

void Push(Document& doc, HistoryState state) {
  CommitTiles(doc);
  HistoryStack& h = doc.history;
  for (std::size_t i = static_cast<std::size_t>(h.current); i < h.states.size(); ++i)
    h.bytes -= h.states[i].bytes;
  h.states.erase(h.states.begin() + h.current, h.states.end());
  h.bytes += state.bytes;
  state.colorCount = doc.colorCount;
  h.states.push_back(std::move(state));
  h.current = static_cast<int32_t>(h.states.size());
  doc.modified = true;
  // Oldest first; the newest state always stays, however large.
  while ((h.bytes > kHistoryBudgetBytes && h.states.size() >= 2) ||
         (h.bytes <= kHistoryBudgetBytes && h.states.size() > std::size_t(kMaxHistoryStates))) {
    h.bytes -= h.states.front().bytes;
    h.states.erase(h.states.begin());
    --h.current;
    ++h.dropped;
  }
  NotifyHistoryChanged(doc);
}

// A state's contents changed in an exchange: its cost and the total follow.
void Recount(HistoryStack& h, HistoryState& s, uint64_t bytes) {
  h.bytes = h.bytes - s.bytes + bytes;
  s.bytes = bytes;
}

void SwapSelection(Document& doc, HistoryState& s) {
  std::swap(doc.selection, s.selection);
  std::swap(doc.selectionBounds, s.selectionBounds);
  NotifySelectionChanged(doc);
}

void Exchange(Document& doc, HistoryState& s) {
  // Whole-document records carry the count in their snapshot.
  if (s.kind != HistoryKind::WholeDocument && s.colorCount != doc.colorCount) {
    std::swap(doc.colorCount, s.colorCount);
    NotifySizeChanged(doc);
  }
  switch (s.kind) {
    case HistoryKind::OneLayer: {
      if (s.layerIndex < 0 || s.layerIndex >= doc.LayerCount() || !s.layer) return;
      Layer& live = doc.layers[s.layerIndex];
      std::swap(live, *s.layer);
      // The layer coming back has its effects drawn afresh, so the one
      // going into the history need not keep its caches.
      s.layer->DropEffectCaches();
      Recount(doc.history, s, LayerBytes(*s.layer) + (s.selectionSaved ? SelectionBytes(doc.selection) : 0));
      if (s.selectionSaved) SwapSelection(doc, s);
      live.effectsDirty = {0, 0, live.Width(), live.Height()};
      live.rebuildEffects = true;
      doc.active = s.layerIndex;
      Invalidate(doc, s.layerIndex, doc.Bounds());
      NotifyLayersChanged(doc);
      return;
    }
    case HistoryKind::WholeDocument: {
      DocumentSnapshot& snap = *s.document;
      std::swap(doc.width, snap.width);
      std::swap(doc.height, snap.height);
      std::swap(doc.dpi, snap.dpi);
      std::swap(doc.colorCount, snap.colorCount);
      std::swap(doc.active, snap.active);
      std::swap(doc.layers, snap.layers);
      doc.layers.reserve(std::max<std::size_t>(doc.layers.size(), 8));
      uint64_t bytes = 0;
      for (Layer& l : snap.layers) {
        l.DropEffectCaches();
        bytes += LayerBytes(l);
      }
      Recount(doc.history, s, bytes + SelectionBytes(doc.selection));
      SwapSelection(doc, s);
      doc.composite.reset();
      doc.compositeLayer = -1;
      doc.compositeDirty = doc.Bounds();
      for (Layer& l : doc.layers) l.effectsDirty = {0, 0, l.Width(), l.Height()};
      NotifyAreaChanged(doc, doc.Bounds());
      NotifySizeChanged(doc);
      NotifyLayersChanged(doc);
      return;
    }
    case HistoryKind::Selection:
      SwapSelection(doc, s);
      return;
    case HistoryKind::Tiles: {
      if (s.layerIndex < 0 || s.layerIndex >= doc.LayerCount()) return;
      Surface& pixels = doc.layers[s.layerIndex].pixels;
      Rect changed;
      for (SavedTile& tile : s.tiles) {
        const Rect r = TileRect(tile.index % s.tileColumns, tile.index / s.tileColumns, pixels);
        if (r.Empty()) continue;  // the layer shrank since: nothing of it is left
        uint32_t row[kHistoryTileSize];
        const std::size_t bytes = std::size_t(r.Width()) * 4;
        for (int32_t y = r.y0; y < r.y1; ++y) {
          uint32_t* live = pixels.Row(y) + r.x0;
          uint32_t* saved = tile.pixels.get() + (y - r.y0) * kHistoryTileSize;
          std::memcpy(row, live, bytes);
          std::memcpy(live, saved, bytes);
          std::memcpy(saved, row, bytes);
        }
        changed = Union(changed, r);
      }
      if (s.selectionSaved) SwapSelection(doc, s);
      Invalidate(doc, s.layerIndex, changed);
      return;
    }
  }
}

}  // namespace

void BeginTiles(Document& doc, int32_t layerIndex, std::u16string_view label) {
  CommitTiles(doc);
  if (layerIndex < 0 || layerIndex >= doc.LayerCount()) return;
  // Tiles cannot keep a text record: a text layer is first kept whole, as a step of its own.
  if (Layer& layer = doc.layers[layerIndex]; layer.text) {
    PushLayer(doc, layerIndex, u"Rasterize Text");
    layer.text.reset();
  }
  const Surface& pixels = doc.layers[layerIndex].pixels;
  static uint64_t serials = 0;
  auto record = std::make_unique<PendingTileRecord>();
  record->serial = ++serials;
  record->layerIndex = layerIndex;
  record->columns = (pixels.Width() + kHistoryTileSize - 1) / kHistoryTileSize;
  record->rows = (pixels.Height() + kHistoryTileSize - 1) / kHistoryTileSize;
  record->grid.resize(std::size_t(record->columns) * std::size_t(record->rows));
  record->label = Label(label);
  doc.pendingStroke = std::move(record);
}

void SaveTiles(Document& doc, const Rect& area) {
  PendingTileRecord* rec = doc.pendingStroke.get();
  if (!rec || rec->layerIndex >= doc.LayerCount()) return;
  const Surface& pixels = doc.layers[rec->layerIndex].pixels;
  // Within the layer and within the grid made when the stroke began.
  const Rect r = Intersect(Intersect(area, {0, 0, pixels.Width(), pixels.Height()}),
                           {0, 0, rec->columns * kHistoryTileSize, rec->rows * kHistoryTileSize});
  if (r.Empty()) return;
  for (int32_t row = r.y0 / kHistoryTileSize; row <= (r.y1 - 1) / kHistoryTileSize; ++row) {
    for (int32_t col = r.x0 / kHistoryTileSize; col <= (r.x1 - 1) / kHistoryTileSize; ++col) {
      const int32_t index = row * rec->columns + col;
      TileBlock& cell = rec->grid[index];
      if (cell) continue;
      cell.reset(static_cast<uint32_t*>(CheckedAlloc(kHistoryTileBytes)));
      const Rect t = TileRect(col, row, pixels);
      for (int32_t y = t.y0; y < t.y1; ++y)
        std::memcpy(cell.get() + (y - t.y0) * kHistoryTileSize, pixels.Row(y) + t.x0,
                    std::size_t(t.Width()) * 4);
      rec->order.push_back(index);
      rec->bytes += kHistoryTileBytes;
    }
  }
}

void SaveSelection(Document& doc) {
  PendingTileRecord* rec = doc.pendingStroke.get();
  if (!rec || rec->selectionSaved) return;
  rec->selectionSaved = true;
  rec->selection = doc.selection;
  rec->selectionBounds = doc.selectionBounds;
  rec->bytes += SelectionBytes(rec->selection);
}

uint32_t PixelBeforeStroke(const Document& doc, int32_t x, int32_t y) {
  if (doc.layers.empty()) return 0;
  const PendingTileRecord* rec = doc.pendingStroke.get();
  const int32_t index = rec ? rec->layerIndex : std::clamp(doc.active, 0, doc.LayerCount() - 1);
  if (index < 0 || index >= doc.LayerCount()) return 0;
  const Surface& pixels = doc.layers[index].pixels;
  if (x < 0 || y < 0 || x >= pixels.Width() || y >= pixels.Height()) return 0;
  if (rec && x < rec->columns * kHistoryTileSize && y < rec->rows * kHistoryTileSize) {
    const TileBlock& cell =
        rec->grid[(y / kHistoryTileSize) * rec->columns + x / kHistoryTileSize];
    if (cell) return cell[(y % kHistoryTileSize) * kHistoryTileSize + x % kHistoryTileSize];
  }
  return pixels.At(x, y);
}

void CommitTiles(Document& doc) {
  std::unique_ptr<PendingTileRecord> rec = std::move(doc.pendingStroke);
  if (!rec || (rec->order.empty() && !rec->selectionSaved)) return;
  HistoryState state;
  state.kind = HistoryKind::Tiles;
  state.label = std::move(rec->label);
  state.layerIndex = rec->layerIndex;
  state.tileColumns = rec->columns;
  state.tiles.reserve(rec->order.size());
  for (int32_t index : rec->order) state.tiles.push_back({index, std::move(rec->grid[index])});
  state.selectionSaved = rec->selectionSaved;
  state.selection = std::move(rec->selection);
  state.selectionBounds = rec->selectionBounds;
  state.bytes = rec->bytes;
  Push(doc, std::move(state));
}

void PushWholeDocument(Document& doc, std::u16string_view label,
                       ExtendedContentAfterPush extended) {
  CommitTiles(doc);
  HistoryState state;
  state.kind = HistoryKind::WholeDocument;
  state.label = Label(label);
  state.document = std::make_unique<DocumentSnapshot>();
  DocumentSnapshot& snap = *state.document;
  snap.width = doc.width;
  snap.height = doc.height;
  snap.dpi = doc.dpi;
  snap.colorCount = doc.colorCount;
  snap.active = doc.active;
  snap.layers = doc.layers;
  state.selectionSaved = true;
  state.selection = doc.selection;
  state.selectionBounds = doc.selectionBounds;
  for (const Layer& l : snap.layers) state.bytes += LayerBytes(l);
  state.bytes += SelectionBytes(state.selection);
  if (extended == ExtendedContentAfterPush::Drop)
    for (Layer& l : doc.layers) l.extended.reset();
  Push(doc, std::move(state));
}

void PushSelection(Document& doc, std::u16string_view label) {
  CommitTiles(doc);
  HistoryState state;
  state.kind = HistoryKind::Selection;
  state.label = Label(label);
  state.selectionSaved = true;
  state.selection = doc.selection;
  state.selectionBounds = doc.selectionBounds;
  state.bytes = SelectionBytes(state.selection);
  Push(doc, std::move(state));
}

void PushLayer(Document& doc, int32_t layerIndex, std::u16string_view label, SelectionInState selection) {
  CommitTiles(doc);
  if (layerIndex < 0 || layerIndex >= doc.LayerCount()) return;
  HistoryState state;
  state.kind = HistoryKind::OneLayer;
  state.label = Label(label);
  state.layerIndex = layerIndex;
  state.layer = std::make_unique<Layer>(doc.layers[layerIndex]);
  state.bytes = LayerBytes(*state.layer);
  if (selection == SelectionInState::Yes) {
    state.selectionSaved = true;
    state.selection = doc.selection;
    state.selectionBounds = doc.selectionBounds;
    state.bytes += SelectionBytes(state.selection);
  }
  Push(doc, std::move(state));
}

bool LastStateIsLayerState(const Document& doc, int32_t layerIndex) {
  const HistoryStack& h = doc.history;
  return !doc.pendingStroke && h.current == static_cast<int32_t>(h.states.size()) &&
         h.current >= 1 && h.states.back().kind == HistoryKind::OneLayer &&
         h.states.back().layerIndex == layerIndex;
}

bool Undo(Document& doc) {
  CommitTiles(doc);
  HistoryStack& h = doc.history;
  if (h.current < 1) return false;
  Exchange(doc, h.states[h.current - 1]);
  --h.current;
  doc.modified = true;
  NotifyHistoryChanged(doc);
  return true;
}

bool Redo(Document& doc) {
  CommitTiles(doc);
  HistoryStack& h = doc.history;
  if (h.current >= static_cast<int32_t>(h.states.size())) return false;
  Exchange(doc, h.states[h.current]);
  ++h.current;
  doc.modified = true;
  NotifyHistoryChanged(doc);
  return true;
}

std::u16string UndoLabel(const Document& doc) {
  const HistoryStack& h = doc.history;
  return h.current >= 1 ? h.states[h.current - 1].label : std::u16string();
}

std::u16string RedoLabel(const Document& doc) {
  const HistoryStack& h = doc.history;
  return h.current < static_cast<int32_t>(h.states.size()) ? h.states[h.current].label
                                                           : std::u16string();
}

std::vector<std::u16string> HistoryRows(const Document& doc) {
  std::vector<std::u16string> rows;
  rows.reserve(doc.history.states.size() + 1);
  rows.push_back(doc.history.dropped > 0 ? u"Earliest kept state" : u"Original");
  for (const HistoryState& s : doc.history.states) rows.push_back(s.label);
  return rows;
}

int JumpToHistoryRow(const Document& doc, int32_t row, HistoryCommand command, void* context) {
  int steps = 0;
  while (steps < kJumpGuard && doc.history.current != row) {
    const bool redo = doc.history.current < row;
    if (!command(context, redo)) break;
    ++steps;
  }
  return steps;
}

}  // namespace tavora
