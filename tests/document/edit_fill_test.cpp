#include "document/edit_fill.h"

#include <gtest/gtest.h>

#include "document/blend.h"
#include "document/history.h"

namespace tavora {
namespace {

TEST(EditFill, FillsAndClearsTheSelectionWeightedByItsBytesAsOneStepEach) {
  auto doc = CreateDocument(4, 2, 72, 0xFF102030, 0);
  doc->layers.emplace_back(4, 2, u"Layer 2");
  doc->layers[1].pixels.Fill(0x80FFFFFF);
  doc->active = 1;
  doc->selection.emplace(4, 2);
  doc->selection->At(1, 0) = 255;
  doc->selection->At(2, 0) = 128;
  doc->selectionBounds = {1, 0, 3, 1};
  const Surface& p = doc->layers[1].pixels;
  ASSERT_TRUE(FillSelectionCommand(*doc, 0x00FF0000));
  EXPECT_EQ(UndoLabel(*doc), u"Fill");
  EXPECT_EQ(p.At(1, 0), 0xFFFF0000u);
  EXPECT_EQ(p.At(2, 0), Over(0x80FFFFFF, 0x80FF0000));
  EXPECT_EQ(p.At(0, 0), 0x80FFFFFFu);
  ASSERT_TRUE(ClearCommand(*doc, 0));
  EXPECT_EQ(UndoLabel(*doc), u"Clear");
  EXPECT_EQ(p.At(1, 0), 0u);
  EXPECT_EQ(p.At(2, 0) >> 24, Mul(Over(0x80FFFFFF, 0x80FF0000) >> 24, 127));
  ASSERT_TRUE(Undo(*doc));
  ASSERT_TRUE(Undo(*doc));
  EXPECT_EQ(p.At(1, 0), 0x80FFFFFFu);
  // Without a selection the whole layer; the Background takes the
  // background colour where it is cleared.
  doc->selection.reset();
  doc->active = 0;
  ASSERT_TRUE(ClearCommand(*doc, 0x00FFFFFF));
  EXPECT_EQ(doc->layers[0].pixels.At(3, 1), 0xFFFFFFFFu);
  doc->layers.clear();
  EXPECT_FALSE(FillSelectionCommand(*doc, 0));
}

}  // namespace
}  // namespace tavora
