#include "document/layer_commands.h"

#include <gtest/gtest.h>

#include "document/composite.h"
#include "document/history.h"
#include "pixels.h"

namespace tavora {
namespace {

using testing_support::Px;
using testing_support::SamePixels;

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

TEST(LayerCommands, MergeDownKeepsWhatTheCanvasShowed) {
  auto doc = CreateDocument(16, 8, 72, 0xFF3060A0, 0);
  for (int x = 0; x < 16; ++x) doc->layers[0].pixels.At(x, 3) = Px(255, x * 15, 200, 40);
  Layer top(16, 8, u"Shade");
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 16; ++x) top.pixels.At(x, y) = Px(y * 30, 255 - x * 10, x * 12, 90);
  top.opacity = 128;
  top.blendMode = 1;  // Multiply
  doc->layers.push_back(std::move(top));
  doc->active = 1;
  Composite(*doc);
  const Surface before = CompositeSource(*doc);
  MergeDownCommand(*doc);
  ASSERT_EQ(doc->LayerCount(), 1);
  EXPECT_EQ(std::tuple(doc->active, doc->layers[0].Name()), std::tuple(0, u"Background"));
  EXPECT_TRUE(SamePixels(doc->layers[0].pixels, before));
  Composite(*doc);
  EXPECT_TRUE(SamePixels(CompositeSource(*doc), before));
  EXPECT_EQ(UndoLabel(*doc), u"Merge Down");

  MergeDownCommand(*doc);  // the bottom layer: nothing, but a step all the same
  EXPECT_EQ(doc->LayerCount(), 1);
  EXPECT_EQ(doc->history.states.size(), 2u);
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

TEST(LayerCommands, FlattenIsAStepEvenForOneLayer) {
  auto doc = CreateDocument(4, 4, 72, 0x00FFFFFF, 0);
  FlattenCommand(*doc);
  EXPECT_EQ(std::tuple(UndoLabel(*doc), doc->LayerCount()), std::tuple(u"Flatten Image", 1));
  NewLayerCommand(*doc);
  doc->layers[1].pixels.Fill(0xFF102030);
  FlattenCommand(*doc);
  ASSERT_EQ(doc->LayerCount(), 1);
  EXPECT_TRUE(doc->layers[0].opaqueBackground);
}

}  // namespace
}  // namespace tavora
