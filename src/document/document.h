#pragma once
// One open image: its canvas, layers (bottom first), selection, composite
// and view state.
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "document/history_types.h"
#include "document/layer.h"
#include "document/rect.h"
#include "document/surface.h"

namespace tavora {

inline constexpr int32_t kDefaultDpi = 72;
inline constexpr int32_t kFullColorCount = 16'777'216;
inline constexpr int kMaxTitleLength = 95;

class Document {
 public:
  int32_t width = 0, height = 0;
  int32_t dpi = kDefaultDpi;
  int32_t colorCount = kFullColorCount;
  std::filesystem::path path;
  std::u16string title;
  bool modified = false;
  int32_t untitledNumber = 0;

  std::vector<Layer> layers;  // index 0 is drawn first
  int32_t active = 0;

  std::optional<SelectionMask> selection;
  Rect selectionBounds;

  HistoryStack history;
  std::unique_ptr<PendingTileRecord> pendingStroke;

  // The flattened image. On the single-layer fast path the composite lives
  // in that layer's own pixels and compositeLayer names it; otherwise it is
  // -1 and the composite is in `composite`.
  std::optional<Surface> composite;
  int32_t compositeLayer = -1;
  Rect compositeDirty;

  // View state, owned by the canvas view: on-screen scale, scroll offsets
  // in device pixels, and the fit mode (0 none, 1 fit without enlarging,
  // 2 fit and enlarge). A new document is fitted without enlarging.
  double zoom = 1.0;
  int32_t scrollX = 0, scrollY = 0;
  int32_t fitMode = 1;

  Rect Bounds() const { return {0, 0, width, height}; }
  int32_t LayerCount() const { return static_cast<int32_t>(layers.size()); }
};

// A new document with one "Background" layer filled with fillColor (alpha
// included); dpi below 1 becomes 72, a colour count below 1 full colour.
// The size must already have passed the size limits.
[[nodiscard]] std::unique_ptr<Document> CreateDocument(int32_t width, int32_t height, int32_t dpi,
                                                       uint32_t fillColor, int32_t colorCount);

// A new document holding a decoded picture as its one "Background" layer,
// taking the pixels without a copy; opaque-flagged only when every pixel
// is. The size must already have passed the size limits.
[[nodiscard]] std::unique_ptr<Document> DocumentFromPicture(Surface pixels, int32_t dpi);

// The active layer after clamping the active index into range, or null when
// there is no document or it has no layers.
Layer* ActiveLayer(Document* doc);

// The file name of the path, or "Untitled-%d".
void SetTitle(Document& doc);

// "base", or "base 2", "base 3", ... until no layer but `ignore` (an index,
// -1 for none) has that name.
std::u16string UniqueLayerName(const Document& doc, int32_t ignore, std::u16string_view base);
// "Layer %d" from the layer count + 1 upwards.
std::u16string NewLayerName(const Document& doc);
// "<name> copy", made unique; a name already ending in " copy" is not doubled.
std::u16string DuplicateLayerName(const Document& doc, std::u16string_view sourceName);

// Numbers for "Untitled-%d" are handed out once per process, from 1.
int32_t TakeUntitledNumber();

}  // namespace tavora
