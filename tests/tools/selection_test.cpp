#include "tools/selection.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <numbers>
#include <random>
#include <tuple>
#include <vector>

#include "base/row_workers.h"
#include "document/document_events.h"
#include "document/history.h"
#include "tool_helpers.h"
#include "tools/tool_table.h"

namespace tavora {
namespace {

using testing_support::MaskBytes;

std::unique_ptr<Document> Doc(int w, int h) { return CreateDocument(w, h, 72, 0xFFFFFFFF, 0); }

std::optional<SelectionRegion> Shape(const Document& doc, ShapeKind kind, const std::vector<ShapePoint>& points,
                                     double feather = 0) {
  return RasterizeShape(doc, kind, points, feather);
}

bool Same(const std::optional<SelectionMask>& a, const std::optional<SelectionMask>& b) {
  if (!a || !b) return !a && !b;
  return a->Width() == b->Width() && MaskBytes(*a) == MaskBytes(*b);
}

// A selection set directly, bounds and all.
void SetMask(Document& doc, const std::vector<uint8_t>& bytes) {
  doc.selection.emplace(doc.width, doc.height);
  std::memcpy(doc.selection->Data(), bytes.data(), bytes.size());
  RecomputeSelectionBounds(doc);
}

int RefMul(int a, int b) { return static_cast<int>(std::lround(a * b / 255.0)); }

int RefCombine(int o, int n, int mode) {
  switch (mode) {
    case kSelectAdd: return n + o - RefMul(o, n);
    case kSelectSubtract: return RefMul(o, 255 - n);
    case kSelectIntersect: return std::min(o, n);
    default: return n;
  }
}

std::vector<uint8_t> Random(std::size_t n, std::mt19937& rng, int percentPlain, uint8_t plain) {
  std::vector<uint8_t> v(n);
  for (auto& b : v) b = int(rng() % 100) < percentPlain ? plain : uint8_t(rng());
  return v;
}

TEST(SelectionMode, ModifiersOverrideTheToolMode) {
  for (int mode = 0; mode < 4; ++mode) {
    EXPECT_EQ(EffectiveMode(0, mode), mode);
    EXPECT_EQ(EffectiveMode(kModShift, mode), mode);
    EXPECT_EQ(EffectiveMode(kModCtrl, mode), kSelectAdd);
    EXPECT_EQ(EffectiveMode(kModAlt | kModShift, mode), kSelectSubtract);
    EXPECT_EQ(EffectiveMode(kModCtrl | kModAlt, mode), kSelectIntersect);
  }
}

TEST(SelectionCombine, TheDocumentPathAppliesTheRulesInsideAndClearsOutsideByMode) {
  // Old byte = x, region byte = y: all 65,536 pairs on one canvas, with a
  // frame of old selection outside the region.
  for (int mode = 0; mode < 4; ++mode) {
    auto doc = Doc(260, 260);
    std::vector<uint8_t> old(260 * 260, 77);
    for (int y = 0; y < 256; ++y)
      for (int x = 0; x < 256; ++x) old[(y + 2) * 260 + x + 2] = uint8_t(x);
    SetMask(*doc, old);
    SelectionMask region(256, 256);
    for (int y = 0; y < 256; ++y)
      for (int x = 0; x < 256; ++x) region.At(x, y) = uint8_t(y);
    CombineSelection(*doc, region, {2, 2, 258, 258}, mode);
    ASSERT_TRUE(doc->selection);
    const bool keepsOutside = mode == kSelectAdd || mode == kSelectSubtract;
    // The region's first row is 0, and so is Intersect's first column.
    for (int y = 0; y < 260; ++y)
      for (int x = 0; x < 260; ++x) {
        const bool inside = x >= 2 && x < 258 && y >= 2 && y < 258;
        const int want = inside ? RefCombine(x - 2, y - 2, mode) : keepsOutside ? 77 : 0;
        ASSERT_EQ(doc->selection->At(x, y), want) << mode << " at " << x << "," << y;
      }
    const Rect expected = keepsOutside ? doc->Bounds()
                          : mode == kSelectNew ? Rect{2, 3, 258, 258}
                                               : Rect{3, 3, 258, 258};
    EXPECT_EQ(doc->selectionBounds, expected) << mode;
  }
}

TEST(SelectionCombine, EdgeCasesWithoutASelection) {
  auto doc = Doc(20, 20);
  SelectionMask region(4, 4);
  std::memset(region.Data(), 200, region.ByteCount());
  CombineSelection(*doc, region, {3, 5, 7, 9}, kSelectSubtract);
  EXPECT_FALSE(doc->selection);  // all zero: freed
  EXPECT_TRUE(doc->selectionBounds.Empty());
  CombineSelection(*doc, region, {3, 5, 7, 9}, kSelectIntersect);  // acts as New
  ASSERT_TRUE(doc->selection);
  EXPECT_EQ(doc->selectionBounds, (Rect{3, 5, 7, 9}));
  EXPECT_EQ(doc->selection->At(6, 8), 200);
  // Intersect with a region elsewhere leaves nothing.
  CombineSelection(*doc, region, {10, 10, 14, 14}, kSelectIntersect);
  EXPECT_FALSE(doc->selection);
}

TEST(SelectionShapes, ARectangleTakesWholePixelsAndEmptyOrOutsideShapesGiveNothing) {
  auto doc = Doc(100, 100);
  auto r = Shape(*doc, ShapeKind::Rectangle, {{7.5, 9.2}, {2.4, 3.6}});
  ASSERT_TRUE(r);
  EXPECT_EQ(r->rect, (Rect{2, 4, 8, 9}));
  EXPECT_EQ(MaskBytes(r->mask), std::vector<uint8_t>(6 * 5, 255));
  r = Shape(*doc, ShapeKind::Rectangle, {{-5, -5}, {3, 3}});
  ASSERT_TRUE(r);
  EXPECT_EQ(r->rect, (Rect{0, 0, 3, 3}));
  const struct {
    ShapeKind kind;
    std::vector<ShapePoint> points;
    double feather;
    const char* why;
  } nothing[] = {
      {ShapeKind::Rectangle, {{-50, 5}, {-10, 20}}, 0, "left of the canvas"},
      {ShapeKind::Ellipse, {{-50, 5}, {-10, 20}}, 3, "9 px of feather margin fall short"},
      {ShapeKind::Ellipse, {{-60, 40}, {-40, 60}}, 6, "beyond the feather's reach"},
      {ShapeKind::Rectangle, {{5, 5.2}, {20, 5.4}}, 0, "rounds to no height"},
      {ShapeKind::Polygon, {}, 0, "no points"},
  };
  for (const auto& c : nothing) EXPECT_FALSE(Shape(*doc, c.kind, c.points, c.feather)) << c.why;
}

TEST(SelectionShapes, AnEllipseIsSymmetricAndMatchesItsSupersampledArea) {
  auto doc = Doc(64, 40);
  auto r = Shape(*doc, ShapeKind::Ellipse, {{10, 6}, {50, 34}});
  ASSERT_TRUE(r);
  EXPECT_EQ(r->rect, (Rect{10, 6, 50, 34}));
  const SelectionMask& m = r->mask;
  for (int y = 0; y < m.Height(); ++y)
    for (int x = 0; x < m.Width(); ++x) {
      ASSERT_EQ(m.At(x, y), m.At(m.Width() - 1 - x, y));
      ASSERT_EQ(m.At(x, y), m.At(x, m.Height() - 1 - y));
    }
  // Against 16 x 16 samples of the true ellipse, anywhere on the canvas.
  r = Shape(*doc, ShapeKind::Ellipse, {{10.3, 5.7}, {50.9, 33.2}});
  ASSERT_TRUE(r);
  const double cx = 30.6, cy = 19.45, rx = 20.3, ry = 13.75;
  double worst = 0, total = 0, area = 0;
  for (int y = r->rect.y0; y < r->rect.y1; ++y)
    for (int x = r->rect.x0; x < r->rect.x1; ++x) {
      int in = 0;
      for (int sy = 0; sy < 16; ++sy)
        for (int sx = 0; sx < 16; ++sx) {
          const double u = (x + (sx + 0.5) / 16 - cx) / rx, v = (y + (sy + 0.5) / 16 - cy) / ry;
          in += u * u + v * v <= 1;
        }
      const double got = r->mask.At(x - r->rect.x0, y - r->rect.y0) / 255.0;
      worst = std::max(worst, std::abs(got - in / 256.0));
      total += std::abs(got - in / 256.0);
      area += got;
    }
  EXPECT_LT(worst, 0.1);
  EXPECT_LT(total / r->rect.Width() / r->rect.Height(), 0.01);
  EXPECT_NEAR(area, std::numbers::pi * rx * ry, std::numbers::pi * rx * ry * 0.005);
  // A zero-size drag still makes a one-pixel dot, not a division by zero.
  r = Shape(*doc, ShapeKind::Ellipse, {{5.5, 5.5}, {5.5, 5.5}});
  ASSERT_TRUE(r);
  EXPECT_EQ(r->rect, (Rect{5, 5, 6, 6}));
  EXPECT_EQ(r->mask.At(0, 0), 255);
}

TEST(SelectionShapes, HalfPixelPolygonEdgesGiveHalfCoverage) {
  auto doc = Doc(30, 30);
  auto h = Shape(*doc, ShapeKind::Polygon, {{2.5, 2.5}, {7.5, 2.5}, {7.5, 7.5}, {2.5, 7.5}});
  ASSERT_TRUE(h);
  EXPECT_EQ(h->rect, (Rect{2, 2, 8, 8}));
  // Corners are a quarter (both half edges), sides a half, the inside whole.
  const int cells[][3] = {{0, 0, 64}, {5, 0, 64}, {0, 3, 128}, {3, 0, 128}, {5, 3, 128}, {3, 5, 128}, {2, 2, 255}};
  for (const auto& c : cells) EXPECT_EQ(h->mask.At(c[0], c[1]), c[2]) << c[0] << "," << c[1];
}

// 4 sub-scanlines, each pixel sampled at 128 points across, inside by the
// same half-open crossing rule.
std::vector<uint8_t> SampledPolygon(const std::vector<ShapePoint>& p, const Rect& r) {
  std::vector<uint8_t> out;
  for (int y = r.y0; y < r.y1; ++y)
    for (int x = r.x0; x < r.x1; ++x) {
      double c = 0;
      for (int k = 0; k < 4; ++k) {
        const double sy = y + (k + 0.5) * 0.25;
        for (int s = 0; s < 128; ++s) {
          const double sx = x + (s + 0.5) / 128;
          bool in = false;
          for (std::size_t i = 0; i < p.size(); ++i) {
            const ShapePoint& a = p[i == 0 ? p.size() - 1 : i - 1];
            const ShapePoint& b = p[i];
            if ((a.y <= sy && sy < b.y) || (b.y <= sy && sy < a.y))
              if (a.x + (sy - a.y) * (b.x - a.x) / (b.y - a.y) < sx) in = !in;
          }
          c += in ? 0.25 / 128 : 0;
        }
      }
      out.push_back(uint8_t(std::lround(c * 255)));
    }
  return out;
}

// Random outlines cross themselves often, so this also holds the even-odd rule.
TEST(SelectionShapes, RandomPolygonsMatchAFinelySampledReference) {
  std::mt19937 rng(11);
  auto doc = Doc(24, 20);
  for (int round = 0; round < 30; ++round) {
    std::vector<ShapePoint> p(3 + rng() % 6);
    for (auto& q : p) q = {-4 + (rng() % 3200) / 100.0, -3 + (rng() % 2600) / 100.0};
    auto r = Shape(*doc, ShapeKind::Polygon, p);
    if (!r) continue;
    const std::vector<uint8_t> want = SampledPolygon(p, r->rect), got = MaskBytes(r->mask);
    for (std::size_t i = 0; i < want.size(); ++i) ASSERT_NEAR(got[i], want[i], 3) << round << " @" << i;
  }
}

TEST(SelectionShapes, FeatherWidensTheRectAndBlursOnlyTheEdge) {
  auto doc = Doc(400, 400);
  auto r = Shape(*doc, ShapeKind::Rectangle, {{100, 100}, {300, 300}}, 10);
  ASSERT_TRUE(r);
  EXPECT_EQ(r->rect, (Rect{72, 72, 328, 328}));  // 10 x 2.6 + 2 = 28
  auto at = [&](int x, int y) { return int(r->mask.At(x - 72, y - 72)); };
  EXPECT_EQ(at(200, 200), 255);
  EXPECT_EQ(at(130, 200), 255);  // beyond the blur's reach from the edge
  EXPECT_EQ(at(72, 200), 0);     // the margin has room to spare
  EXPECT_NEAR(at(99, 200) + at(100, 200), 255, 6);  // the edge lies between them
  EXPECT_GT(at(95, 200), 0);
  EXPECT_LT(at(105, 200), 255);
  for (int i = 0; i < 256; ++i) ASSERT_EQ(r->mask.At(i, 128), r->mask.At(255 - i, 128));
}

TEST(SelectionShapes, FeatheringPastTheCanvasEdgeKeepsThePartThatFallsInside) {
  // The same feathered shapes, once cut by the left edge of a small canvas
  // and once wholly inside a wider one, must agree on every shared pixel:
  // full coverage runs on along the edge, and a shape just outside still
  // reaches in by its feather.
  auto small = Doc(100, 100), wide = Doc(300, 100);
  const struct {
    ShapeKind kind;
    std::vector<ShapePoint> points;
  } shapes[] = {
      {ShapeKind::Rectangle, {{-20, 20}, {50, 80}}},           // a rectangle running past the edge
      {ShapeKind::Ellipse, {{-30, 20}, {25, 70}}},             // an ellipse cut by the edge
      {ShapeKind::Ellipse, {{-12, 40}, {-3, 60}}},             // an ellipse just outside, within the feather
      {ShapeKind::Polygon, {{-40, 10}, {30, 50}, {-5, 90}}}};  // a triangle cut by the edge
  for (const auto& s : shapes) {
    std::vector<ShapePoint> shifted = s.points;
    for (ShapePoint& p : shifted) p.x += 150;
    const auto cut = Shape(*small, s.kind, s.points, 6), whole = Shape(*wide, s.kind, shifted, 6);
    ASSERT_TRUE(cut && whole) << s.points[0].x;
    EXPECT_EQ(cut->rect.x0, 0);
    int covered = 0;
    for (int32_t y = cut->rect.y0; y < cut->rect.y1; ++y)
      for (int32_t x = cut->rect.x0; x < cut->rect.x1; ++x) {
        const uint8_t want = whole->mask.At(x + 150 - whole->rect.x0, y - whole->rect.y0);
        ASSERT_EQ(cut->mask.At(x - cut->rect.x0, y - cut->rect.y0), want) << s.points[0].x << ": " << x << "," << y;
        covered += want > 0;
      }
    EXPECT_GT(covered, 0) << s.points[0].x;
  }
}

std::vector<uint8_t> BruteDisc(const std::vector<uint8_t>& in, int w, int h, int r, bool erode) {
  std::vector<uint8_t> out(in.size());
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      int v = erode ? 255 : 0;  // outside the canvas changes nothing either way
      for (int dy = -r; dy <= r; ++dy)
        for (int dx = -r; dx <= r; ++dx) {
          const int sx = x + dx, sy = y + dy;
          if (dx * dx + dy * dy > r * r || sx < 0 || sy < 0 || sx >= w || sy >= h) continue;
          v = erode ? std::min<int>(v, in[sy * w + sx]) : std::max<int>(v, in[sy * w + sx]);
        }
      out[y * w + x] = uint8_t(v);
    }
  return out;
}

TEST(SelectionMorphology, GrowAndShrinkMatchABruteForceDiscWithRowsSplitOrNot) {
  std::mt19937 rng(3);
  // Every other size has its rows split across five workers.
  const int sizes[][2] = {{1, 1}, {7, 5}, {23, 17}, {40, 3}, {2, 45}, {31, 70}, {37, 60}};
  for (int i = 0; i < 7; ++i) {
    const int w = sizes[i][0], h = sizes[i][1];
    RowWorkers::OverrideProcessorCountForTesting(i % 2 ? 1 : 5);
    for (int r : {0, 1, 2, 3, 5, 8, 13, 40}) {
      for (bool erode : {false, true}) {
        const auto in = Random(std::size_t(w) * h, rng, 85, erode ? 255 : 0);
        std::vector<uint8_t> out(in.size());
        DiscFilter(in.data(), out.data(), w, h, r, erode ? Morphology::Erode : Morphology::Dilate);
        ASSERT_EQ(out, BruteDisc(in, w, h, r, erode)) << w << "x" << h << " r " << r << " erode " << erode;
      }
    }
  }
  RowWorkers::OverrideProcessorCountForTesting(0);
}

TEST(SelectionMorphology, GrowAndShrinkKeepExactDistancesCornersAndTheCanvasEdge) {
  auto doc = Doc(21, 21);
  std::vector<uint8_t> dot(21 * 21, 0);
  dot[10 * 21 + 10] = 200;
  SetMask(*doc, dot);
  GrowSelection(*doc, 3);  // the disc itself is held to the brute force above
  ASSERT_TRUE(doc->selection);
  EXPECT_EQ(std::tuple(doc->selection->At(10, 7), doc->selection->At(8, 8), doc->selection->At(7, 8)),
            std::tuple(200, 200, 0));
  EXPECT_EQ(doc->selectionBounds, (Rect{7, 7, 14, 14}));

  SelectAll(*doc);
  const auto states = doc->history.states.size();
  ShrinkSelection(*doc, 4);  // the canvas edge counts as selected: nothing moves
  EXPECT_EQ(doc->history.states.size(), states);
  EXPECT_EQ(doc->selectionBounds, doc->Bounds());

  // Shrink then grow rounds off corners and keeps the sides.
  std::vector<uint8_t> square(21 * 21, 0);
  for (int y = 3; y < 18; ++y) std::memset(&square[y * 21 + 3], 255, 15);
  SetMask(*doc, square);
  ShrinkSelection(*doc, 3);
  EXPECT_EQ(doc->selectionBounds, (Rect{6, 6, 15, 15}));
  GrowSelection(*doc, 3);
  EXPECT_EQ(doc->selectionBounds, (Rect{3, 3, 18, 18}));
  const SelectionMask& m = *doc->selection;
  for (std::size_t i = 0; i < square.size(); ++i) ASSERT_LE(m.Data()[i], square[i]);
  EXPECT_EQ(m.At(3, 10), 255);
  EXPECT_EQ(m.At(3, 3), 0);  // sqrt(18) from the shrunk corner
  EXPECT_EQ(m.At(4, 4), 255);
  ShrinkSelection(*doc, 20);
  EXPECT_FALSE(doc->selection);
}

TEST(SelectionCommands, EachChangeIsOneStepAndUndoRestoresTheMaskExactly) {
  auto doc = Doc(50, 40);
  std::mt19937 rng(9);
  for (int y = 0; y < 40; ++y)
    for (int x = 0; x < 50; ++x)
      doc->layers[0].pixels.At(x, y) = (x > 5 && x < 30 && y > 8 ? uint32_t(rng() % 256) : 0u) << 24 | 0x123456;
  auto region = Shape(*doc, ShapeKind::Ellipse, {{10, 10}, {20, 25}}, 2);
  ASSERT_TRUE(region);

  struct Step {
    const char* name;
    std::u16string label;
    std::function<void(Document&)> run;
  };
  const std::vector<Step> steps = {
      {"from alpha", u"Selection", [](Document& d) { SelectionFromLayerAlpha(d); }},
      {"grow", u"Selection", [](Document& d) { GrowSelection(d, 2); }},
      {"shrink", u"Selection", [](Document& d) { ShrinkSelection(d, 3); }},
      {"feather", u"Selection", [](Document& d) { FeatherSelectionCommand(d, 1.5); }},
      {"invert", u"Selection", [](Document& d) { InvertSelection(d); }},
      {"move", u"Move Selection Outline", [](Document& d) { MoveSelectionOutline(d, -4, 7); }},
      {"add", u"Selection", [&](Document& d) { CommitRegion(d, *region, kSelectAdd); }},
      {"subtract", u"Selection", [&](Document& d) { CommitRegion(d, *region, kSelectSubtract); }},
      {"select none", u"Deselect", [](Document& d) { SelectNone(d); }},
      {"invert none", u"Selection", [](Document& d) { InvertSelection(d); }},
      {"intersect", u"Selection", [&](Document& d) { CommitRegion(d, *region, kSelectIntersect); }},
      {"select all", u"Selection", [](Document& d) { SelectAll(d); }},
  };
  std::vector<std::optional<SelectionMask>> before;
  for (const Step& s : steps) {
    before.push_back(doc->selection);
    const auto count = doc->history.states.size();
    s.run(*doc);
    EXPECT_EQ(doc->history.states.size(), count + 1) << s.name;
    EXPECT_EQ(UndoLabel(*doc), s.label) << s.name;
    EXPECT_FALSE(Same(before.back(), doc->selection)) << s.name;
  }
  // The last few, undone in turn, give back each earlier mask bit for bit.
  for (std::size_t i = steps.size(); i-- > steps.size() - 4;) {
    ASSERT_TRUE(Undo(*doc));
    EXPECT_TRUE(Same(doc->selection, before[i])) << steps[i].name;
  }
}

TEST(SelectionCommands, NothingIsRecordedWhenNothingWouldChange) {
  auto doc = Doc(30, 30);
  SelectNone(*doc);
  Deselect(*doc);
  FeatherSelectionCommand(*doc, 5);
  GrowSelection(*doc, 3);
  ShrinkSelection(*doc, 3);
  MoveSelectionOutline(*doc, 2, 2);
  SelectionFromLayerAlpha(*doc);  // an opaque layer gives all, which is a change
  EXPECT_EQ(doc->history.states.size(), 1u);
  SelectAll(*doc);  // the same again
  GrowSelection(*doc, 5);
  FeatherSelectionCommand(*doc, 8);  // the edges repeat: a whole selection stays whole
  FeatherSelectionCommand(*doc, 0);
  GrowSelection(*doc, 0);
  EXPECT_EQ(doc->history.states.size(), 1u);
  SelectNone(*doc);
  SelectionMask region(5, 5);
  std::memset(region.Data(), 255, region.ByteCount());
  EXPECT_FALSE(CommitRegion(*doc, {{2, 2, 7, 7}, region}, kSelectSubtract));
  EXPECT_EQ(doc->history.states.size(), 2u);
  EXPECT_EQ(UndoLabel(*doc), u"Deselect");
}

TEST(SelectionCommands, InvertTwiceAndLayerAlphaRoundTrip) {
  auto doc = Doc(16, 16);
  for (int y = 0; y < 16; ++y)
    for (int x = 0; x < 16; ++x) doc->layers[0].pixels.At(x, y) = uint32_t(x * 16 + y) << 24;
  SelectionFromLayerAlpha(*doc);
  ASSERT_TRUE(doc->selection);
  for (int y = 0; y < 16; ++y)
    for (int x = 0; x < 16; ++x) ASSERT_EQ(doc->selection->At(x, y), x * 16 + y);
  EXPECT_EQ(doc->selectionBounds, doc->Bounds());  // only (0, 0) is zero
  const std::optional<SelectionMask> original = doc->selection;
  InvertSelection(*doc);
  EXPECT_EQ(doc->selection->At(3, 4), 255 - 52);
  EXPECT_EQ(doc->selectionBounds, (Rect{0, 0, 16, 16}));
  InvertSelection(*doc);
  EXPECT_TRUE(Same(doc->selection, original));
  SelectAll(*doc);
  InvertSelection(*doc);  // nothing left: no selection at all
  EXPECT_FALSE(doc->selection);
  EXPECT_TRUE(doc->selectionBounds.Empty());
  doc->layers[0].pixels.Fill(0x00FFFFFF);
  SelectAll(*doc);
  SelectionFromLayerAlpha(*doc);  // transparent everywhere
  EXPECT_FALSE(doc->selection);
  EXPECT_EQ(UndoLabel(*doc), u"Selection");
}

TEST(SelectionCommands, MovingTheOutlineShiftsBytesAndLosesThosePastTheEdge) {
  auto doc = Doc(12, 9);
  std::mt19937 rng(2);
  const auto bytes = Random(12 * 9, rng, 30, 0);
  SetMask(*doc, bytes);
  MoveSelectionOutline(*doc, 3, -2);
  ASSERT_TRUE(doc->selection);
  for (int y = 0; y < 9; ++y)
    for (int x = 0; x < 12; ++x) {
      const int sx = x - 3, sy = y + 2;
      ASSERT_EQ(doc->selection->At(x, y), sx >= 0 && sy < 9 ? bytes[sy * 12 + sx] : 0) << x << "," << y;
    }
  MoveSelectionOutline(*doc, -20, 0);  // wholly off the canvas
  EXPECT_FALSE(doc->selection);
  ASSERT_TRUE(Undo(*doc));
  ASSERT_TRUE(Undo(*doc));
  EXPECT_EQ(MaskBytes(*doc->selection), bytes);
}

TEST(SelectionCommands, FeatheringBlursTheWholeMaskAndTellsTheCanvas) {
  static int told = 0;
  DocumentObserver observer;
  observer.selectionChanged = [](Document&) { ++told; };
  SetDocumentObserver(&observer);
  auto doc = Doc(60, 60);
  std::vector<uint8_t> square(60 * 60, 0);
  for (int y = 20; y < 40; ++y) std::memset(&square[y * 60 + 20], 255, 20);
  SetMask(*doc, square);
  FeatherSelectionCommand(*doc, 4);
  SetDocumentObserver(nullptr);
  EXPECT_GE(told, 1);
  EXPECT_EQ(doc->selection->At(30, 30), 255);
  EXPECT_NEAR(doc->selection->At(19, 30) + doc->selection->At(20, 30), 255, 6);
  EXPECT_EQ(doc->selectionBounds.x0, 60 - doc->selectionBounds.x1);  // grown alike on both sides
  EXPECT_LT(doc->selectionBounds.x0, 20);
}

}  // namespace
}  // namespace tavora
