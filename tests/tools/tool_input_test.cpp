#include "tools/tool_input.h"

#include <gtest/gtest.h>

#include "document/history.h"

namespace tavora {
namespace {

TEST(ToolPicker, AveragesTheSampleSquareByAlpha) {
  auto doc = CreateDocument(5, 5, 72, 0xFF000000, 0);
  Surface& px = doc->layers[0].pixels;
  px.At(2, 2) = 0xFFFF0000;
  px.At(3, 2) = 0x00FFFFFF;  // invisible: its colour must not count
  px.At(1, 1) = 0xFF0000FF;
  EXPECT_EQ(PickColor(*doc, 2.5, 2.5, 1), 0xFFFF0000u);
  // Eight visible pixels, one red and one blue: 255 / 8 of each, rounded.
  EXPECT_EQ(PickColor(*doc, 2.5, 2.5, 3), 0xFF200020u);
  EXPECT_EQ(PickColor(*doc, -0.5, 2.5, 3), std::nullopt);  // the centre is off the image
  // Clipped to the image: 24 visible pixels, 255 / 24 of red and blue.
  EXPECT_EQ(PickColor(*doc, 4.5, 4.5, 9), 0xFF0B000Bu);
  px.Fill(0x00123456);
  EXPECT_EQ(PickColor(*doc, 2.5, 2.5, 5), std::nullopt);  // nothing visible
}

TEST(ToolDispatch, EachToolGetsItsPressesAndStrokesAreOneStep) {
  auto doc = CreateDocument(40, 30, 72, 0xFFFFFFFF, 0);
  ToolSettings tools;
  ToolInput input(tools);
  tools.SetTool(kToolBrush);
  input.Press(*doc, 5.5, 5.5, 1, 0);
  EXPECT_TRUE(input.Dragging());
  input.Move(*doc, 30.5, 5.5);
  input.Release(*doc, 30.5, 5.5);
  EXPECT_FALSE(input.Dragging());
  EXPECT_EQ(HistoryRows(*doc).back(), u"Brush");
  EXPECT_EQ(doc->layers[0].pixels.At(20, 5), 0xFF000000u);

  // A tool that has not landed takes no input and records nothing.
  tools.SetTool(kToolText);
  const std::size_t rows = HistoryRows(*doc).size();
  input.Press(*doc, 20.5, 20.5, 1, 0);
  input.Release(*doc, 20.5, 20.5);
  EXPECT_FALSE(input.Dragging());
  EXPECT_EQ(HistoryRows(*doc).size(), rows);

  // The picker's left button sets the primary colour, whichever box holds it.
  tools.SetTool(kToolEyedropper);
  tools.colors.selected = 1;
  input.Press(*doc, 20.5, 5.5, 1, 0);
  input.Release(*doc, 20.5, 5.5);
  EXPECT_EQ(tools.colors.right, 0xFF000000u);
  EXPECT_TRUE(input.TakeColorsChanged());
  input.Press(*doc, 20.5, 20.5, 2, 0);
  input.Release(*doc, 20.5, 20.5);
  EXPECT_EQ(tools.colors.left, 0xFFFFFFFFu);

  // Selection tools: a drag is one "Selection"; the rectangle's modifiers
  // and the tool's mode reach it.
  tools.SetTool(kToolRectSelect);
  input.Press(*doc, 2.2, 2.2, 1, 0);
  input.Move(*doc, 10.2, 8.2);
  input.Release(*doc, 10.2, 8.2);
  ASSERT_TRUE(doc->selection);
  EXPECT_EQ(doc->selectionBounds, (Rect{2, 2, 10, 8}));
  EXPECT_EQ(HistoryRows(*doc).back(), u"Selection");
  tools.Current().selmode = kSelectAdd;
  input.Press(*doc, 20.2, 20.2, 1, kModAlt);  // Alt subtracts whatever the mode
  input.Move(*doc, 30.2, 25.2);
  input.Release(*doc, 30.2, 25.2);
  EXPECT_EQ(doc->selectionBounds, (Rect{2, 2, 10, 8}));

  // A stroke under way ends as its own step when the tool changes.
  tools.SetTool(kToolEraser);
  input.Press(*doc, 4.5, 4.5, 1, 0);
  input.Finish(*doc);
  EXPECT_FALSE(StrokeActive());
  EXPECT_EQ(HistoryRows(*doc).back(), u"Erase");
}

TEST(ToolDispatch, CropShapesMoveAndTextReachTheirTools) {
  auto doc = CreateDocument(40, 30, 72, 0xFFFFFFFF, 0);
  ToolSettings tools;
  ToolInput input(tools);
  input.SetViewScale(2.0);  // handles reach 3 image pixels
  tools.SetTool(kToolCrop);
  input.Press(*doc, 5, 5, 1, 0);
  input.Move(*doc, 20, 12, kModShift);  // squared
  input.Release(*doc, 20, 12, kModShift);
  ASSERT_TRUE(input.CropArea());
  EXPECT_EQ(*input.CropArea(), (Rect{5, 5, 20, 20}));
  EXPECT_TRUE(input.Pending());
  EXPECT_TRUE(input.Key(*doc, ToolKey::Enter));
  EXPECT_EQ(doc->width, 15);
  EXPECT_EQ(HistoryRows(*doc).back(), u"Crop");
  EXPECT_FALSE(input.Pending());
  // Esc drops a rectangle; a double-click inside crops.
  input.Press(*doc, 1, 1, 1, 0);
  input.Release(*doc, 9, 9);
  EXPECT_TRUE(input.Key(*doc, ToolKey::Escape));
  EXPECT_FALSE(input.CropArea());
  input.Press(*doc, 1, 1, 1, 0);
  input.Release(*doc, 9, 9);
  input.DoubleClick(*doc, 5, 5, 1, 0);
  EXPECT_EQ(doc->width, 8);

  // The Move tool takes the arrows; another tool does not.
  tools.SetTool(kToolMove);
  EXPECT_TRUE(input.Key(*doc, ToolKey::Right, kModShift));
  EXPECT_TRUE(input.Pending());
  input.Finish(*doc);
  EXPECT_FALSE(input.Pending());
  EXPECT_EQ(HistoryRows(*doc).back(), u"Move");
  tools.SetTool(kToolBrush);
  EXPECT_FALSE(input.Key(*doc, ToolKey::Right));

  // A layer turned with the Layer Rotate tool is applied when the tool
  // changes; Esc would have put it back.
  doc->layers.emplace_back(doc->width, doc->height, u"Layer 2");
  doc->active = 1;
  doc->layers[1].pixels.At(2, 2) = 0xFF0000FF;
  tools.SetTool(kToolLayerRotate);
  input.Press(*doc, 2.5, 0, 1, 0);
  input.Move(*doc, 6, 2.5);
  input.Release(*doc, 6, 2.5);
  EXPECT_TRUE(input.Pending());
  EXPECT_TRUE(input.TransformHandles().shown);
  input.Finish(*doc);
  EXPECT_FALSE(input.Pending());
  EXPECT_EQ(HistoryRows(*doc).back(), u"Rotate Layer");

  // The Text tool asks its dialog; a cancelled one changes nothing.
  tools.SetTool(kToolText);
  int asked = 0;
  input.SetTextDialog(
      [](void* c, Document&, const TextClick&, TextValues&) {
        ++*static_cast<int*>(c);
        return false;
      },
      &asked);
  const std::size_t rows = HistoryRows(*doc).size();
  input.Press(*doc, 3, 3, 1, 0);
  input.Release(*doc, 3, 3);
  EXPECT_EQ(asked, 1);
  EXPECT_EQ(HistoryRows(*doc).size(), rows);
}

TEST(ToolDispatch, OnlyRubberBandToolsDropStaleMoves) {
  for (int32_t id : {kToolRectSelect, kToolEllipseSelect, kToolMove, kToolCrop, kToolLine, kToolRectangle,
                     kToolEllipse, kToolRoundedRect})
    EXPECT_TRUE(CoalescesMoves(id)) << id;
  for (int32_t id : {kToolBrush, kToolEraser, kToolLasso, kToolPolygonSelect, kToolSmudge, kToolClone})
    EXPECT_FALSE(CoalescesMoves(id)) << id;
}

}  // namespace
}  // namespace tavora
