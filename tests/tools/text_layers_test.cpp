#include "tools/text_layers.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "document/blend.h"
#include "document/composite.h"
#include "document/history.h"
#include "document/layer_commands.h"
#include "pixels.h"
#include "platform/drawing_bridge.h"
#include "tool_helpers.h"
#include "tools/move_tool.h"
#include "tools/shapes.h"

namespace tavora {
namespace {

using testing_support::SamePixels;

// Stands in for GDI+: 4 pixels per character of the longest line and a
// quarter of the size per line, within a 2-pixel transparent margin, in
// the text's colour at alpha 200.
struct FakeText {
  static TextExtent Extent(const TextRecord& r) {
    std::size_t lines = 1, longest = 0, run = 0;
    for (char16_t c : r.text) {
      if (c == u'\n') {
        ++lines;
        run = 0;
      } else {
        longest = std::max(longest, ++run);
      }
    }
    return {static_cast<int32_t>(4 + 4 * longest), static_cast<int32_t>(4 + r.fontSize / 4 * lines)};
  }
  static std::optional<Surface> Render(const TextRecord& r) {
    const TextExtent e = Extent(r);
    Surface s(e.width, e.height);
    for (int32_t y = 2; y < e.height - 2; ++y)
      for (int32_t x = 2; x < e.width - 2; ++x) s.At(x, y) = (r.color & 0x00FFFFFFu) | 200u << 24;
    return s;
  }
  static std::optional<TextExtent> Measure(const TextRecord& r) { return Extent(r); }
};
const SystemDrawing kFake{nullptr, &FakeText::Render, &FakeText::Measure, nullptr};

TextValues Values(std::u16string text, uint32_t color = 0xFF0000FF, int32_t size = 16) {
  TextValues v;
  v.text = std::move(text);
  v.fontName = u"Test Sans";
  v.fontSize = size;
  v.color = color;
  return v;
}

class TextLayers : public ::testing::Test {
 protected:
  void SetUp() override { SetSystemDrawing(&kFake); }
  void TearDown() override { SetSystemDrawing(nullptr); }

  static std::unique_ptr<Document> Doc() { return testing_support::WithLayer(40, 30); }
  // New text on a layer of its own, clicked at (x, y).
  static TextOutcome Add(Document& doc, double x, double y, const TextValues& v) {
    return ApplyTextClick(doc, TextClickAt(doc, x, y), v, ToolOptions{});
  }
};

TEST_F(TextLayers, NewLayersAreNamedAfterTheFirst23CharactersAndMadeUnique) {
  auto doc = Doc();
  const struct {
    std::u16string text, name;
  } cases[] = {
      {u"Hello", u"Text: Hello"},
      {u"abcdefghijklmnopqrstuvwxyz", u"Text: abcdefghijklmnopqrstuvw"},
      {u"one\r\ntwo\rthree\nfour", u"Text: one two three four"},
      // A pair cut at the limit is dropped whole.
      {u"1234567890123456789012\U0001F600", u"Text: 1234567890123456789012"},
  };
  for (const auto& c : cases) EXPECT_EQ(TextLayerName(*doc, c.text), c.name);
  ASSERT_EQ(Add(*doc, 5, 5, Values(u"Hi")), TextOutcome::Added);
  ASSERT_EQ(Add(*doc, 5, 20, Values(u"Hi")), TextOutcome::Added);
  EXPECT_EQ(doc->layers[2].Name(), u"Text: Hi");
  EXPECT_EQ(doc->layers[3].Name(), u"Text: Hi 2");
}

TEST_F(TextLayers, AddingPutsTheTextOnANewLayerWithItsRecordAsOneStep) {
  auto doc = Doc();
  doc->active = 0;
  ASSERT_EQ(Add(*doc, 10.7, 6.2, Values(u"ab\ncde", 0xFF00FF00)), TextOutcome::Added);
  ASSERT_EQ(doc->LayerCount(), 3);
  EXPECT_EQ(doc->active, 1);  // just above the active one
  const Layer& l = doc->layers[1];
  ASSERT_TRUE(l.text);
  EXPECT_EQ(l.text->text, u"ab\ncde");
  EXPECT_EQ(l.text->color, 0xFF00FF00u);
  EXPECT_EQ(std::pair(l.text->x, l.text->y), std::pair(8, 4));  // the box's corner 2 up and left of the click
  // The box is 16 x 12: the rendering at (8, 4), nothing else.
  for (auto [x, y, want] : {std::tuple{10, 6, 0xC800FF00u}, {21, 13, 0xC800FF00u}, {22, 6, 0u}, {9, 6, 0u}})
    EXPECT_EQ(l.pixels.At(x, y), want) << x << "," << y;
  EXPECT_FALSE(l.extended);
  EXPECT_EQ(UndoLabel(*doc), u"Add Text");
  ASSERT_TRUE(Undo(*doc));
  EXPECT_EQ(doc->LayerCount(), 2);
  ASSERT_TRUE(Redo(*doc));
  EXPECT_TRUE(doc->layers[1].text);

  // Past the canvas edge the rest is kept as extended content.
  ASSERT_EQ(Add(*doc, 35, 27, Values(u"wide text")), TextOutcome::Added);
  const Layer& edge = doc->layers[doc->active];
  ASSERT_TRUE(edge.extended);
  EXPECT_EQ(std::pair(edge.extended->x, edge.extended->y), std::pair(33, 25));
  EXPECT_EQ(edge.extended->pixels.Width(), 40);
  EXPECT_EQ(edge.extended->pixels.At(30, 3), 0xC80000FFu);
  EXPECT_EQ(edge.pixels.At(39, 29), 0xC80000FFu);
}

// Laid as shapes are: how opacity and the selection weigh each pixel is
// held by the shape tests; here, that the opacity reaches it.
TEST_F(TextLayers, WithoutANewLayerTheTextIsLaidIntoTheActiveLayerAtTheOpacity) {
  auto doc = Doc();
  doc->layers[1].pixels.Fill(0xFF808080);
  ToolOptions options;
  options.text_newlayer = 0;
  options.opacity = 60;
  // The box runs from x 14 to 38, its glyph area from 16 to 36.
  ASSERT_EQ(ApplyTextClick(*doc, TextClickAt(*doc, 16, 8), Values(u"abcde"), options), TextOutcome::Drawn);
  EXPECT_EQ(doc->LayerCount(), 2);
  EXPECT_FALSE(doc->layers[1].text);
  EXPECT_EQ(UndoLabel(*doc), u"Text");
  EXPECT_EQ(doc->layers[1].pixels.At(25, 10), Over(0xFF808080, 0x0000FFu | 120u << 24));  // 200 x 60 / 100
  EXPECT_EQ(doc->layers[1].pixels.At(15, 10), 0xFF808080u);  // the box's margin
  EXPECT_EQ(TextLayerAt(*doc, 25, 10), -1);                  // nothing to edit there
}

TEST_F(TextLayers, ClicksFindTheTopmostVisibleTextAndEditingReplacesItAsOneStep) {
  auto doc = Doc();
  ASSERT_EQ(Add(*doc, 6, 6, Values(u"lower text")), TextOutcome::Added);  // box 4..48 x 4..12
  // Hidden text is not clicked: the next text goes over it.
  doc->layers[2].visible = false;
  ASSERT_EQ(Add(*doc, 8, 8, Values(u"up")), TextOutcome::Added);  // box 6..18 x 6..14
  doc->layers[2].visible = true;
  EXPECT_EQ(TextLayerAt(*doc, 10, 10), 3);
  EXPECT_EQ(TextLayerAt(*doc, 30, 10), 2);
  EXPECT_EQ(TextLayerAt(*doc, 30, 13), -1);
  doc->layers[3].visible = false;
  EXPECT_EQ(TextLayerAt(*doc, 10, 10), 2);

  const TextClick click = TextClickAt(*doc, 30, 10);
  ASSERT_EQ(click.layer, 2);
  TextValues v = TextDialogStart(*doc, click, ToolOptions{}, 0xFF123456);
  EXPECT_EQ(v, ValuesOfRecord(*doc->layers[2].text));
  EXPECT_EQ(ApplyTextClick(*doc, click, v, ToolOptions{}), TextOutcome::Nothing);  // unchanged
  const Layer before = doc->layers[2];
  const std::size_t states = doc->history.states.size();
  v.text = u"new";
  v.color = 0xFFFF0000;
  ASSERT_EQ(ApplyTextClick(*doc, click, v, ToolOptions{}), TextOutcome::Edited);
  EXPECT_EQ(doc->history.states.size(), states + 1);
  EXPECT_EQ(UndoLabel(*doc), u"Edit Text");
  const Layer& edited = doc->layers[2];
  EXPECT_EQ(edited.text->text, u"new");
  EXPECT_EQ(edited.text->x, 4);  // edited text stays where it was
  EXPECT_EQ(edited.pixels.At(6, 6), 0xC8FF0000u);
  EXPECT_EQ(edited.pixels.At(30, 6), 0u);  // the old text is gone
  ASSERT_TRUE(Undo(*doc));
  EXPECT_TRUE(SamePixels(doc->layers[2].pixels, before.pixels));
  EXPECT_EQ(doc->layers[2].text->text, u"lower text");
}

TEST_F(TextLayers, EmptyCancelledOrInvalidTextDoesNothing) {
  auto doc = Doc();
  const TextClick click = TextClickAt(*doc, 5, 5);
  TextValues tooSmall = Values(u"x");
  tooSmall.fontSize = 3;
  for (const std::optional<TextValues>& v : {std::optional<TextValues>(), std::optional(Values(u"")),
                                              std::optional(tooSmall)})
    EXPECT_EQ(ApplyTextClick(*doc, click, v, ToolOptions{}), TextOutcome::Nothing);
  SetSystemDrawing(nullptr);
  EXPECT_EQ(ApplyTextClick(*doc, click, Values(u"x"), ToolOptions{}), TextOutcome::Nothing);
  EXPECT_EQ(doc->LayerCount(), 2);
  EXPECT_TRUE(doc->history.states.empty());
}

TEST(TextValuesCheck, SizeNameAndLengthAreHeldToTheirLimits) {
  const auto with = [](auto change) {
    TextValues v;
    v.text = u"x";
    change(v);
    return CheckTextValues(v);
  };
  const std::u16string longest(2047, u'a');
  const struct {
    TextProblem problem;
    TextField field;
  } cases[] = {
      {with([](TextValues&) {}), TextField::None},
      {with([](TextValues& v) { v.fontSize = 3; }), TextField::Size},
      {with([](TextValues& v) { v.fontSize = 2001; }), TextField::Size},
      {with([](TextValues& v) { v.fontSize = 2000; }), TextField::None},
      {with([](TextValues& v) { v.fontName = std::u16string(64, u'f'); }), TextField::Font},
      {with([](TextValues& v) { v.fontName.clear(); }), TextField::Font},
      {with([&](TextValues& v) { v.text = longest + u"b"; }), TextField::Text},
      // A line break typed as "\r\n" counts once.
      {with([&](TextValues& v) { v.text = longest.substr(1) + u"\r\n"; }), TextField::None},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.problem.field, c.field) << std::string(c.problem.message.begin(), c.problem.message.end());
    EXPECT_EQ(c.problem.message.empty(), c.field == TextField::None);
  }
  EXPECT_EQ(with([](TextValues& v) { v.fontSize = 3; }).message, u"Please enter a value between 4 and 2000.");
  EXPECT_EQ(ParseFontSize(u"72"), 72);
  EXPECT_FALSE(ParseFontSize(u"2001"));
  EXPECT_FALSE(ParseFontSize(u"big"));
}

// Anything but the Text tool that changes a text layer's pixels makes it
// an ordinary layer; undoing that change makes it editable again.
TEST_F(TextLayers, OtherEditsEndEditabilityAndUndoBringsItBack) {
  auto doc = Doc();
  ASSERT_EQ(Add(*doc, 6, 6, Values(u"hello")), TextOutcome::Added);
  const int32_t text = doc->active;
  const Surface rendered = doc->layers[text].pixels;

  // A brush stroke: a tile step, so the layer is first kept whole.
  testing_support::Stroke(*doc, BrushParams{}, {{20, 20}});
  EXPECT_FALSE(doc->layers[text].text);
  std::vector<std::u16string> rows = HistoryRows(*doc);
  EXPECT_EQ(rows[rows.size() - 2], u"Rasterize Text");
  EXPECT_EQ(rows.back(), u"Brush");
  ASSERT_TRUE(Undo(*doc));
  EXPECT_TRUE(SamePixels(doc->layers[text].pixels, rendered));
  EXPECT_FALSE(doc->layers[text].text);
  ASSERT_TRUE(Undo(*doc));
  ASSERT_TRUE(doc->layers[text].text);

  // A shape keeps the layer whole in its own step.
  const SystemDrawing withShapes{[](Surface& s, const ShapeDrawing&) { return !s.Empty(); }, &FakeText::Render,
                                 &FakeText::Measure, nullptr};
  SetSystemDrawing(&withShapes);
  ShapeGeometry shape;
  shape.x1 = shape.y1 = 9;
  ASSERT_TRUE(DrawShapeOnLayer(*doc, shape));
  EXPECT_EQ(UndoLabel(*doc), u"Line");
  EXPECT_FALSE(doc->layers[text].text);
  ASSERT_TRUE(Undo(*doc));
  ASSERT_TRUE(doc->layers[text].text);

  // Moving the whole layer carries the text along; moving selected pixels ends it.
  MoveTool move;
  move.Nudge(*doc, 3, -1, 0);
  move.Commit(*doc);
  EXPECT_EQ(std::pair(doc->layers[text].text->x, doc->layers[text].text->y), std::pair(7, 3));
  EXPECT_EQ(TextLayerAt(*doc, 8, 4), text);
  SelectAll(*doc);
  move.Nudge(*doc, 1, 0, 0);
  move.Commit(*doc);
  EXPECT_FALSE(doc->layers[text].text);
  ASSERT_TRUE(Undo(*doc));
  EXPECT_EQ(doc->layers[text].text->x, 7);
  ASSERT_TRUE(Undo(*doc) && Undo(*doc));
  EXPECT_EQ(doc->layers[text].text->x, 4);

  // Merging a layer into a text layer ends it as well.
  doc->layers.emplace(doc->layers.begin() + text + 1, doc->width, doc->height, u"above");
  doc->active = text + 1;
  MergeDownCommand(*doc);
  EXPECT_FALSE(doc->layers[text].text);
  ASSERT_TRUE(Undo(*doc));
  EXPECT_TRUE(doc->layers[text].text);
}

}  // namespace
}  // namespace tavora
