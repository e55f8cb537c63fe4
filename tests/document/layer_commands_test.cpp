#include "document/layer_commands.h"

#include <gtest/gtest.h>

#include "document/history.h"

namespace tavora {
namespace {

TEST(LayerCommands, NewAndDuplicateGoAboveTheActiveLayer) {
  auto doc = CreateDocument(4, 4, 72, 0xFFFFFFFF, 0);
  NewLayerCommand(*doc);
  ASSERT_EQ(doc->LayerCount(), 2);
  EXPECT_EQ(std::tuple(doc->active, doc->layers[1].Name(), UndoLabel(*doc)), std::tuple(1, u"Layer 2", u"New Layer"));
  doc->active = 0;
  DuplicateLayerCommand(*doc);  // of the Background
  ASSERT_EQ(doc->LayerCount(), 3);
  EXPECT_EQ(std::tuple(doc->active, doc->layers[1].Name(), doc->layers[2].Name()),
            std::tuple(1, u"Background copy", u"Layer 2"));
  EXPECT_FALSE(doc->layers[1].opaqueBackground);
  EXPECT_EQ(doc->layers[1].pixels.At(3, 3), 0xFFFFFFFFu);
  ASSERT_TRUE(Undo(*doc));
  EXPECT_EQ(doc->LayerCount(), 2);

  // Positions outside the stack, even with an active index out of step,
  // land inside it.
  for (int32_t active : {-7, 1, 9}) {
    doc->active = active;
    InsertLayer(*doc, Layer(4, 4, u"x"), 99);
    EXPECT_GE(doc->active, 0);
    EXPECT_LT(doc->active, doc->LayerCount());
    EXPECT_EQ(doc->layers[doc->active].Name(), u"x");
  }
}

TEST(LayerCommands, DeletingTheActiveTopLayerActivatesTheOneBelow) {
  auto doc = CreateDocument(4, 4, 72, 0xFFFFFFFF, 0);
  NewLayerCommand(*doc);
  NewLayerCommand(*doc);
  ASSERT_EQ(doc->active, 2);
  DeleteLayerCommand(*doc);
  EXPECT_EQ(std::tuple(doc->LayerCount(), doc->active), std::tuple(2, 1));
  doc->active = 0;
  DeleteLayerCommand(*doc);  // the bottom one: the next becomes the bottom
  EXPECT_EQ(std::tuple(doc->LayerCount(), doc->active, doc->layers[0].Name()), std::tuple(1, 0, u"Layer 2"));
}

// The merged and flattened pixels are checked against the composite with
// the layer effects (MergeDownAndFlattenBakeTheEffects); here the commands.
TEST(LayerCommands, MergeDownAndFlattenAreStepsEvenWithNothingToDo) {
  auto doc = CreateDocument(4, 4, 72, 0xFF3060A0, 0);
  NewLayerCommand(*doc);
  MergeDownCommand(*doc);
  ASSERT_EQ(doc->LayerCount(), 1);
  EXPECT_EQ(std::tuple(doc->active, doc->layers[0].Name(), UndoLabel(*doc)), std::tuple(0, u"Background", u"Merge Down"));
  MergeDownCommand(*doc);  // the bottom layer: nothing, but a step all the same
  EXPECT_EQ(std::tuple(doc->LayerCount(), doc->history.states.size()), std::tuple(1, 3u));
  FlattenCommand(*doc);
  EXPECT_EQ(std::tuple(UndoLabel(*doc), doc->LayerCount()), std::tuple(u"Flatten Image", 1));
  // The flat layer is a Background only while every pixel is opaque.
  for (uint32_t corner : {0xFF102030u, 0x00000000u}) {
    doc->layers[0].pixels.At(0, 0) = corner;
    NewLayerCommand(*doc);
    FlattenCommand(*doc);
    ASSERT_EQ(doc->LayerCount(), 1);
    EXPECT_EQ(doc->layers[0].opaqueBackground, corner >> 24 == 255) << std::hex << corner;
  }
}

TEST(LayerCommands, MovesRecordOnlyWhenTheyMove) {
  auto doc = CreateDocument(4, 4, 72, 0xFFFFFFFF, 0);
  NewLayerCommand(*doc);
  const auto states = doc->history.states.size();
  MoveLayerCommand(*doc, +1);  // already the top
  EXPECT_EQ(doc->history.states.size(), states);
  MoveLayerCommand(*doc, -1);
  EXPECT_EQ(doc->history.states.size(), states + 1);
  EXPECT_EQ(std::tuple(UndoLabel(*doc), doc->active, doc->layers[0].Name(), doc->layers[1].Name()),
            std::tuple(u"Move Layer Down", 0, u"Layer 2", u"Background"));
}

}  // namespace
}  // namespace tavora
