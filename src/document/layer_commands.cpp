#include "document/layer_commands.h"

#include "document/composite.h"

namespace tavora {

void FlattenLayers(Document& doc) {
  if (doc.LayerCount() < 2) return;
  Layer flat;
  flat.SetName(u"Background");
  flat.pixels = FlatCopy(doc, 0, Matte::None);
  flat.effectsDirty = doc.Bounds();
  bool opaque = true;
  const uint32_t* p = flat.pixels.Data();
  for (std::size_t i = 0, n = flat.pixels.PixelCount(); i < n && opaque; ++i) opaque = p[i] >> 24 == 255;
  flat.opaqueBackground = opaque;
  doc.layers.clear();
  doc.layers.push_back(std::move(flat));
  doc.active = 0;
  doc.modified = true;
  doc.composite.reset();
  doc.compositeLayer = -1;
  doc.compositeDirty = doc.Bounds();
}

}  // namespace tavora
