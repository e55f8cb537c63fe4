#include "tools/layer_transform_tool.h"

#include <gtest/gtest.h>

#include <random>

#include "document/history.h"
#include "pixels.h"
#include "processing/geometry.h"
#include "tools/tool_table.h"

namespace tavora {
namespace {

using testing_support::SamePixels;

// A Background and, above it, a 20 x 10 block of noise at (30, 20).
std::unique_ptr<Document> Doc() {
  auto doc = CreateDocument(80, 60, 72, 0xFFFFFFFF, 0);
  doc->layers.emplace_back(80, 60, u"Layer 2");
  std::mt19937 rng(5);
  for (int32_t y = 20; y < 30; ++y)
    for (int32_t x = 30; x < 50; ++x) doc->layers[1].pixels.At(x, y) = rng() | 0xFF000000u;
  doc->active = 1;
  return doc;
}

TEST(LayerTransformTool, RotatePreviewsAppliesAsTheCommandAndEscPutsItBack) {
  auto doc = Doc();
  const Surface before = doc->layers[1].pixels;
  LayerTransformTool t;
  // A drag from above the centre to its right is a quarter turn clockwise.
  ASSERT_TRUE(t.Press(*doc, LayerTransform::Rotate, 40, 5, 0, 2));
  t.Drag(*doc, 70, 25, 0);
  EXPECT_DOUBLE_EQ(t.Angle(), 90);
  EXPECT_FALSE(SamePixels(doc->layers[1].pixels, before));  // the preview
  EXPECT_TRUE(doc->history.states.empty());
  t.Drag(*doc, 70, 27, kModShift);  // about 94 degrees, snapped to 90
  EXPECT_DOUBLE_EQ(t.Angle(), 90);
  t.Release(*doc, 70, 25);
  const TransformOverlay o = t.Overlay(2);
  ASSERT_TRUE(o.shown);
  ASSERT_EQ(o.handles.size(), 1u);
  EXPECT_NEAR(o.handles[0].x, 40 + 5 + 8, 1e-9);  // the dot turned to the right side
  t.Apply(*doc);
  EXPECT_FALSE(t.Active());
  ASSERT_EQ(doc->history.states.size(), 1u);
  EXPECT_EQ(UndoLabel(*doc), u"Rotate Layer");
  auto expected = Doc();
  ASSERT_TRUE(FreeRotateLayer(*expected, 90));
  EXPECT_TRUE(SamePixels(doc->layers[1].pixels, expected->layers[1].pixels));
  ASSERT_TRUE(Undo(*doc));
  EXPECT_TRUE(SamePixels(doc->layers[1].pixels, before));

  ASSERT_TRUE(t.Press(*doc, LayerTransform::Rotate, 40, 5, 0, 2));
  t.Drag(*doc, 10, 25, 0);
  t.Cancel(*doc);
  EXPECT_TRUE(SamePixels(doc->layers[1].pixels, before));
  EXPECT_EQ(RedoLabel(*doc), u"Rotate Layer");  // nothing new was recorded
}

TEST(LayerTransformTool, ResizeHandlesKeepProportionsWithShiftAndApplyOnce) {
  auto doc = Doc();
  LayerTransformTool t;
  ASSERT_TRUE(t.Press(*doc, LayerTransform::Resize, 50, 30, 0, 2));  // bottom-right dot
  t.Drag(*doc, 60, 35, 0);
  EXPECT_EQ(t.Target(), (Rect{30, 20, 60, 35}));
  t.Release(*doc, 60, 35);
  ASSERT_TRUE(t.Press(*doc, LayerTransform::Resize, 30, 20, kModShift, 2));  // top-left, proportions kept
  t.Drag(*doc, 0, 19, kModShift);  // the width leads: 60 wide, so 30 high
  EXPECT_EQ(t.Target(), (Rect{0, 5, 60, 35}));
  t.Release(*doc, 0, 19);
  t.Apply(*doc);
  EXPECT_EQ(UndoLabel(*doc), u"Resize Layer");
  EXPECT_EQ(doc->history.states.size(), 1u);
  auto expected = Doc();
  ASSERT_TRUE(ResizeLayerTo(*expected, {0, 5, 60, 35}, 7));
  EXPECT_TRUE(SamePixels(doc->layers[1].pixels, expected->layers[1].pixels));
  // A press away from every dot does nothing; the Background cannot be resized.
  ASSERT_TRUE(t.Press(*doc, LayerTransform::Resize, 30, 20, 0, 2));
  t.Drag(*doc, 35, 25, 0);
  EXPECT_FALSE(t.Changed());
  t.Cancel(*doc);
  doc->active = 0;
  EXPECT_FALSE(t.Press(*doc, LayerTransform::Resize, 0, 0, 0, 2));
}

}  // namespace
}  // namespace tavora
