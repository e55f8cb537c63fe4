#pragma once
// The records the undo history keeps in each Document. The operations on
// them are in history.h.
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/memory.h"
#include "document/layer.h"
#include "document/rect.h"
#include "document/surface.h"

namespace tavora {

inline constexpr int32_t kHistoryTileSize = 64;
inline constexpr std::size_t kHistoryTileBytes = kHistoryTileSize * kHistoryTileSize * 4;
inline constexpr int32_t kMaxHistoryStates = 15;
inline constexpr uint64_t kHistoryBudgetBytes = 805'306'368;  // 768 MiB
inline constexpr int kMaxHistoryLabel = 47;

enum class HistoryKind : int32_t { Tiles = 0, WholeDocument = 1, Selection = 2, OneLayer = 3 };

using TileBlock = std::unique_ptr<uint32_t[], FreeDeleter>;

struct SavedTile {
  int32_t index = 0;  // row x tile columns + column
  TileBlock pixels;   // 64 x 64; only the part inside the layer is used
};

struct DocumentSnapshot {
  int32_t width = 0, height = 0, dpi = 0, colorCount = 0, active = 0;
  std::vector<Layer> layers;
};

struct HistoryState {
  HistoryKind kind = HistoryKind::Tiles;
  std::u16string label;
  int32_t layerIndex = -1;
  int32_t tileColumns = 0;
  std::vector<SavedTile> tiles;
  std::unique_ptr<DocumentSnapshot> document;
  std::unique_ptr<Layer> layer;
  // The selection as it was (whole-document, selection-only, and tile
  // records that saved it).
  bool selectionSaved = false;
  std::optional<SelectionMask> selection;
  Rect selectionBounds;
  // The document's colour count as it was: Color Depth changes it beside the
  // pixels it records, and a save after undo must not keep the palette.
  int32_t colorCount = 0;
  uint64_t bytes = 0;
};

// Built while a stroke is in progress; the grid is a direct index, one cell
// per 64 x 64 tile of the layer.
struct PendingTileRecord {
  uint64_t serial = 0;  // unique for the process: tells records apart
  int32_t layerIndex = -1;
  int32_t columns = 0, rows = 0;
  std::vector<TileBlock> grid;
  std::vector<int32_t> order;  // tile indices in the order saved
  std::u16string label;
  uint64_t bytes = 0;
  bool selectionSaved = false;
  std::optional<SelectionMask> selection;
  Rect selectionBounds;
};

struct HistoryStack {
  std::vector<HistoryState> states;  // oldest first
  int32_t current = 0;  // states before it are applied, from it on redoable
  uint64_t bytes = 0;
  int32_t dropped = 0;
};

}  // namespace tavora
