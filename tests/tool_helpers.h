#pragma once
// Set-up shared by the tests of the tools and of tavora-cli: documents,
// selections, brush parameters and strokes.
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "document/document.h"
#include "tools/brush_engine.h"
#include "tools/selection.h"

namespace tavora::testing_support {

inline uint32_t Grey(uint32_t v) { return 0xFF000000u | v << 16 | v << 8 | v; }

// A white Background and, above it, an active transparent "Layer 2".
inline std::unique_ptr<Document> WithLayer(int32_t w, int32_t h) {
  auto doc = CreateDocument(w, h, 72, 0xFFFFFFFF, 0);
  doc->layers.emplace_back(w, h, u"Layer 2");
  doc->active = 1;
  return doc;
}

inline std::vector<uint8_t> MaskBytes(const SelectionMask& m) { return {m.Data(), m.Data() + m.ByteCount()}; }

// A rectangle selection committed as the Rectangle Select tool would.
inline void SelectRect(Document& doc, double x0, double y0, double x1, double y1) {
  const ShapePoint corners[] = {{x0, y0}, {x1, y1}};
  CommitRegion(doc, *RasterizeShape(doc, ShapeKind::Rectangle, corners, 0), kSelectNew);
}

inline BrushParams Params(BrushTool tool, int32_t size, int32_t hardness) {
  BrushParams p;
  p.tool = tool;
  p.size = size;
  p.hardness = hardness;
  return p;
}

// Presses at the first point, moves through the others, releases.
using Path = std::vector<std::pair<double, double>>;
inline void Stroke(Document& doc, const BrushParams& p, const Path& path, int button = 1) {
  auto it = path.begin();
  BeginStroke(doc, it->first, it->second, button, p);
  while (++it != path.end()) ContinueStroke(doc, it->first, it->second);
  EndStroke(doc);
}

}  // namespace tavora::testing_support
