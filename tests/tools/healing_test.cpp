#include "tools/healing.h"

#include <gtest/gtest.h>

#include <cmath>

#include "document/history.h"
#include "tool_helpers.h"
#include "tools/brush_engine.h"

namespace tavora {
namespace {

using testing_support::Grey;
using testing_support::Stroke;

// Hard, at a spacing of 10 %.
BrushParams Tool(BrushTool tool, int size) {
  BrushParams p = testing_support::Params(tool, size, 100);
  p.spacing = 10;
  return p;
}

TEST(CloneBrush, CopiesFromTheSourceWithTheOffsetRules) {
  ClearCloneSource();
  auto doc = CreateDocument(60, 20, 72, 0xFFFFFFFF, 0);
  Surface& p = doc->layers[0].pixels;
  for (int32_t y = 0; y < 20; ++y)
    for (int32_t x = 0; x < 20; ++x) p.At(x, y) = Grey((x * 7 + y * 13) % 256);
  const Surface before = p;
  BrushParams clone = Tool(BrushTool::Clone, 5);
  Stroke(*doc, clone, {{40.5, 10.5}, {45.5, 10.5}});  // no source yet: nothing at all
  EXPECT_TRUE(doc->history.states.empty());
  SetCloneSource(5.5, 10.5);
  Stroke(*doc, clone, {{40.5, 10.5}, {45.5, 10.5}});  // offset (-35, 0)
  EXPECT_EQ(UndoLabel(*doc), u"Clone");
  EXPECT_EQ(p.At(42, 10), before.At(7, 10));
  EXPECT_EQ(p.At(40, 9), before.At(5, 9));
  // Keep offset: a stroke elsewhere goes on with (-35, 0).
  Stroke(*doc, clone, {{50.5, 5.5}});
  EXPECT_EQ(p.At(50, 5), before.At(15, 5));
  // Without it, each stroke starts from the source point again.
  clone.keepOffset = false;
  Stroke(*doc, clone, {{52.5, 15.5}});
  EXPECT_EQ(p.At(52, 15), before.At(5, 10));
  // A transparent source leaves the destination alone.
  doc->layers.emplace_back(60, 20, u"Layer 2");
  doc->active = 1;
  doc->layers[1].pixels.At(30, 3) = 0xFF0000FFu;
  SetCloneSource(2.5, 3.5);  // transparent there
  Stroke(*doc, clone, {{30.5, 3.5}});
  EXPECT_EQ(doc->layers[1].pixels.At(30, 3), 0xFF0000FFu);
}

TEST(SpotHealing, ReplacesABlemishWithMatchingTexture) {
  // Stripes of period 6; a black blot in the middle.
  auto doc = CreateDocument(80, 80, 72, 0xFFFFFFFF, 0);
  Surface& p = doc->layers[0].pixels;
  for (int32_t y = 0; y < 80; ++y)
    for (int32_t x = 0; x < 80; ++x) p.At(x, y) = Grey(x % 6 < 3 ? 60 : 200);
  const Surface clean = p;
  for (int32_t y = 38; y < 42; ++y)
    for (int32_t x = 38; x < 42; ++x) p.At(x, y) = Grey(0);
  BrushParams spot = Tool(BrushTool::SpotHeal, 8);
  Stroke(*doc, spot, {{40, 40}});
  EXPECT_EQ(UndoLabel(*doc), u"Spot Healing");
  int worst = 0;
  for (int32_t y = 36; y < 44; ++y)
    for (int32_t x = 36; x < 44; ++x) worst = std::max(worst, std::abs(int(p.At(x, y) & 255) - int(clean.At(x, y) & 255)));
  EXPECT_LE(worst, 3);  // the stripes continue through the spot

  // At the corner of a tiny image no candidate fits: the border fills it.
  auto tiny = CreateDocument(8, 8, 72, Grey(100), 0);
  tiny->layers[0].pixels.At(0, 0) = Grey(0);
  tiny->layers[0].pixels.At(1, 0) = Grey(0);
  Stroke(*tiny, Tool(BrushTool::SpotHeal, 3), {{0.5, 0.5}, {1.5, 0.5}});
  EXPECT_NEAR(int(tiny->layers[0].pixels.At(0, 0) & 255), 100, 2);
}

TEST(HealingBrush, KeepsTheTextureAndTakesTheBorderColour) {
  ClearCloneSource();
  // Left half dark with a dot pattern, right half plain light.
  auto doc = CreateDocument(80, 40, 72, Grey(200), 0);
  Surface& p = doc->layers[0].pixels;
  for (int32_t y = 0; y < 40; ++y)
    for (int32_t x = 0; x < 40; ++x) p.At(x, y) = Grey((x + y) % 4 == 0 ? 80 : 40);
  SetCloneSource(20.5, 20.5);
  Stroke(*doc, Tool(BrushTool::Heal, 9), {{60.5, 20.5}});
  EXPECT_EQ(UndoLabel(*doc), u"Healing Brush");
  // The dots come across, lifted to the light surroundings.
  const int dot = p.At(60, 20) & 255, plain = p.At(61, 20) & 255;  // (60+20)%4 == 0
  EXPECT_GT(dot - plain, 25);
  EXPECT_GT(plain, 150);
}

TEST(HealingSearch, FindsAnOffsetThatRepeatsTheTexture) {
  Surface s(120, 120);
  for (int32_t y = 0; y < 120; ++y)
    for (int32_t x = 0; x < 120; ++x) s.At(x, y) = Grey(((x % 9) * 20 + (y % 7) * 9) % 256);
  HealJob job;
  job.image = {[](const void* c, int32_t x, int32_t y) { return static_cast<const Surface*>(c)->At(x, y); }, &s,
               120, 120};
  job.rect = {56, 56, 64, 64};
  job.paint.assign(64, 255);
  const auto found = FindHealingSource(job);
  ASSERT_TRUE(found);
  EXPECT_EQ(found->first % 9, 0) << found->first;
  EXPECT_EQ(found->second % 7, 0) << found->second;
  // Too little ring (a spot filling the image) gives no source.
  job.rect = {0, 0, 120, 120};
  job.paint.assign(120 * 120, 255);
  EXPECT_FALSE(FindHealingSource(job));
}

}  // namespace
}  // namespace tavora
