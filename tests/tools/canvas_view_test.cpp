#include "tools/canvas_view.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

namespace tavora {
namespace {

// A document of a size only, at a zoom and horizontal scroll.
Document View(int32_t w, int32_t h, double zoom = 1.0, int32_t scrollX = 0) {
  Document doc;
  doc.width = w;
  doc.height = h;
  doc.zoom = zoom;
  doc.scrollX = scrollX;
  return doc;
}

TEST(CanvasZoom, StepsFromTheTableInBothDirections) {
  const struct {
    double from;
    int direction;
    double want;
  } steps[] = {
      {64.0, +1, 64.0}, {0.02, -1, 0.02},    // the ends of the table stay
      {0.05, -1, 0.03}, {0.04, -1, 0.03}, {0.04, +1, 0.05}, {1.0, +1, 1.5},
      {1.0005, +1, 1.5},                     // within the tolerance of a step
      {0.3333, +1, 0.5}, {0.01, -1, 0.02},   // below the table
  };
  for (const auto& s : steps) EXPECT_EQ(ZoomStepFrom(s.from, s.direction), s.want) << s.from << " " << s.direction;
}

TEST(CanvasZoom, FitNeverEnlargesInModeOneAndDoesInModeTwo) {
  auto doc = CreateDocument(100, 50, 72, 0xFFFFFFFF, 0);
  const ClientArea client{1000, 800, 1.0};
  ASSERT_TRUE(FitToWindow(*doc, true, client));
  EXPECT_EQ(std::pair(doc->zoom, doc->fitMode), std::pair(1.0, 1));
  ASSERT_TRUE(FitToWindow(*doc, false, client));
  EXPECT_EQ(std::pair(doc->zoom, doc->fitMode), std::pair((1000.0 - 24) / 100, 2));  // the width limits
  // 150% screens: the margin and the scale both grow.
  ASSERT_TRUE(FitToWindow(*doc, false, {1000, 800, 1.5}));
  EXPECT_DOUBLE_EQ(doc->zoom, (1000.0 - 36) / 150);
  Document big = View(30000, 10);
  ASSERT_TRUE(FitToWindow(big, true, {40, 40, 1.0}));
  EXPECT_EQ(big.zoom, 0.01);  // never below the minimum
  EXPECT_FALSE(FitToWindow(*doc, true, {19, 500, 1.0}));
}

TEST(CanvasZoom, ZoomingKeepsTheAnchoredImagePointInPlace) {
  Document doc = View(400, 300, 1.0, 50);
  doc.scrollY = 20;
  const ClientArea client{200, 200, 1.0};
  const ImagePoint under = ScreenToImage(ComputeLayout(doc, client), doc, 120, 90);
  SetZoom(doc, 2.0, 120, 90, client);
  EXPECT_EQ(doc.fitMode, 0);
  const ImagePoint after = ScreenToImage(ComputeLayout(doc, client), doc, 120, 90);
  EXPECT_TRUE(std::abs(after.x - under.x) <= 0.5 && std::abs(after.y - under.y) <= 0.5) << after.x << "," << after.y;
  SetZoom(doc, 1000.0, 0, 0, client);
  EXPECT_EQ(doc.zoom, 64.0);
  SetZoom(doc, 0.1, 0, 0, client);  // fits: centred, no scroll
  EXPECT_EQ(doc.scrollX, 0);
  const CanvasLayout small = ComputeLayout(doc, client);
  EXPECT_EQ(std::pair(small.originX, small.originY), std::pair(80, 85));
}

TEST(CanvasZoom, ScrollIsClampedAndResizesRefitFittedDocuments) {
  Document doc = View(400, 300, 1.0, 5000);
  doc.fitMode = 0;
  doc.scrollY = -10;
  ClampScroll(doc, {150, 100, 1.0});
  EXPECT_EQ(std::pair(doc.scrollX, doc.scrollY), std::pair(250, 0));
  EXPECT_EQ(ComputeLayout(doc, {150, 100, 1.0}).originX, -250);
  doc.fitMode = 1;
  KeepFitted(doc, {1000, 1000, 1.0});
  EXPECT_EQ(doc.zoom, 1.0);
  KeepFitted(doc, {224, 1000, 1.0});
  EXPECT_DOUBLE_EQ(doc.zoom, 0.5);
}

TEST(CanvasDirty, RectanglesGrowAndStayInTheClient) {
  DirtyArea dirty;
  dirty.Add({-5, -5, 10, 10}, 100, 80);
  EXPECT_EQ(dirty.Area(), (Rect{0, 0, 10, 10}));
  dirty.Add({50, 70, 200, 200}, 100, 80);
  EXPECT_EQ(dirty.Area(), (Rect{0, 0, 100, 80}));
  dirty.Clear();
  dirty.Add({200, 200, 300, 300}, 100, 80);
  EXPECT_FALSE(dirty.Any());

  CanvasLayout L{2.0, 10, 20, 500, 500};
  EXPECT_EQ(ImageRectToDevice(L, {5, 5, 6, 6}, false), (Rect{17, 27, 25, 35}));
  EXPECT_EQ(ImageRectToDevice(L, {5, 5, 6, 6}, true), (Rect{16, 26, 26, 36}));
  CanvasLayout quarter{0.25, 0, 0, 500, 500};  // pad ceil(1/s) + 1 = 5 image pixels
  EXPECT_EQ(ImageRectToDevice(quarter, {100, 100, 104, 104}, false), (Rect{22, 22, 29, 29}));
}

constexpr uint32_t kSurround = 0xFF112233;

struct Canvas {
  std::vector<uint32_t> pixels;
  int w, h;
  uint32_t At(int x, int y) const { return pixels[std::size_t(y) * w + x]; }
};

Canvas Render(const Surface& image, const SelectionMask* sel, double zoom, int32_t scrollX, int cw, int ch,
              bool smooth = true) {
  Canvas c{std::vector<uint32_t>(std::size_t(cw) * ch, 0xDEADBEEF), cw, ch};
  CanvasRender r;
  r.image = &image;
  r.selection = sel;
  r.layout = ComputeLayout(View(image.Width(), image.Height(), zoom, scrollX), {cw, ch, 1.0});
  r.smooth = smooth;
  r.background = kSurround;
  r.target = c.pixels.data();
  r.targetStride = cw;
  RenderCanvas(r, {0, 0, cw, ch});
  return c;
}

TEST(CanvasRenderPass, TransparencyShowsAWindowFixedCheckerboard) {
  Surface clear(100, 100);
  // Scrolled by 3 pixels, the cells stay where they were on the screen.
  for (int32_t scroll : {0, 3}) {
    const Canvas a = Render(clear, nullptr, 1.0, scroll, 40, 40);
    EXPECT_EQ((std::vector{a.At(7, 0), a.At(8, 0), a.At(8, 8)}),
              (std::vector{0xFFCCCCCCu, 0xFF999999u, 0xFFCCCCCCu})) << scroll;
  }
  // Half-transparent red over a light cell.
  Surface red(100, 100);
  red.Fill(0x80FF0000);
  const Canvas c = Render(red, nullptr, 1.0, 0, 40, 40);
  EXPECT_EQ(c.At(0, 0), 0xFFE56565u);  // (255*128 + 204*127) / 255 = 229, (204*127)/255 = 101
}

TEST(CanvasRenderPass, SamplingFollowsTheZoomAndOneToOneIsThePictureItself) {
  const struct {
    double scale, dpiScale;
    bool smooth;
    SampleMode want;
  } modes[] = {
      {3.0, 1.0, true, SampleMode::Bilinear},    {4.0, 1.0, true, SampleMode::Nearest},
      {0.5, 1.0, true, SampleMode::AreaAverage}, {0.5, 1.0, false, SampleMode::Nearest},
      {6.0, 2.0, true, SampleMode::Bilinear},  // zoom 3 on a 200% screen
  };
  for (const auto& m : modes)
    EXPECT_EQ(SampleModeFor(m.scale, m.dpiScale, m.smooth), m.want) << m.scale << " " << m.dpiScale << " " << m.smooth;

  Surface two(2, 1);
  two.At(0, 0) = 0xFF000000;
  two.At(1, 0) = 0xFFFFFFFF;
  // Zoom 4, nearest: hard edge at device x = 4 (the image is centred at x 0).
  const Canvas n = Render(two, nullptr, 4.0, 0, 8, 4);
  EXPECT_EQ(std::pair(n.At(3, 1), n.At(4, 1)), std::pair(0xFF000000u, 0xFFFFFFFFu));
  // Zoom 2, bilinear: device x 2 maps to ix = 2.5 / 2 - 0.5 = 0.75, weight
  // 192 of 256 on white.
  const Canvas b = Render(two, nullptr, 2.0, 0, 4, 2);
  EXPECT_EQ(b.At(2, 0), 0xFFBFBFBFu);
  EXPECT_EQ(b.At(0, 0), 0xFF000000u);  // clamped at the edge
  // Zoom 0.5, area average: one device pixel covers two columns.
  Surface four(4, 2);
  const uint32_t columns[] = {0xFF000000, 0xFFFFFFFF, 0x00000000, 0xFF0000FF};
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 4; ++x) four.At(x, y) = columns[x];
  // The second pixel: half coverage, alpha 127 of blue over the light cell.
  EXPECT_EQ(Render(four, nullptr, 0.5, 0, 2, 1).pixels, (std::vector{0xFF7F7F7Fu, 0xFF6666E5u}));
  // Smooth at 1:1 is the picture itself.
  Surface img(37, 23);
  for (std::size_t i = 0; i < img.PixelCount(); ++i)
    img.Data()[i] = static_cast<uint32_t>(i * 2654435761u) | (i % 3 ? 0xFF000000u : 0u);
  EXPECT_EQ(Render(img, nullptr, 1.0, 0, 50, 30, true).pixels, Render(img, nullptr, 1.0, 0, 50, 30, false).pixels);
}

TEST(CanvasRenderPass, OutsideTheImageIsTheBackgroundAndSelectionsShowTheirEdge) {
  const auto isDash = [](uint32_t p) { return p == 0xFF000000u || p == 0xFFFFFFFFu; };
  Surface img(4, 4);
  img.Fill(0xFF808080);
  SelectionMask sel(4, 4);
  for (int y = 0; y < 4; ++y)
    for (int x = 2; x < 4; ++x) sel.At(x, y) = 255;  // touches the right edge
  // Zoom 8: 32 x 32 device pixels centred in 48 x 48 (origin 8).
  const Canvas c = Render(img, &sel, 8.0, 0, 48, 48);
  EXPECT_EQ(c.At(2, 2), kSurround);
  EXPECT_EQ(c.At(20, 12), 0xFF808080u);  // inside the image, away from any edge
  EXPECT_TRUE(isDash(c.At(23, 12)));     // the last device column of column 1 meets selected column 2
  EXPECT_TRUE(isDash(c.At(39, 12)));     // selected pixels at the image's right edge are outlined too
  EXPECT_EQ(c.At(30, 12), 0xFF808080u);  // inside the selection
  EXPECT_NE(c.At(39, 8), c.At(39, 12));  // the dashes alternate every 4 device pixels
  // Everything selected: all four sides of the image are outlined, and
  // only they.
  SelectionMask all(4, 4);
  std::fill(all.Data(), all.Data() + all.ByteCount(), uint8_t{255});
  const Canvas a = Render(img, &all, 8.0, 0, 48, 48);
  for (int i = 9; i < 39; i += 3) {
    EXPECT_TRUE(isDash(a.At(8, i)) && isDash(a.At(39, i))) << i;
    EXPECT_TRUE(isDash(a.At(i, 8)) && isDash(a.At(i, 39))) << i;
    EXPECT_EQ(a.At(20, i), 0xFF808080u) << i;
  }
}

TEST(CanvasRenderPass, TheImageAreaIsExactlyWhereTheImageIsDrawn) {
  // Overlays are clipped to ImageArea: it must match the rendered image to
  // the device pixel at fractional zooms, scrolled and centred alike.
  Surface img(7, 5);
  img.Fill(0xFF808080);
  for (double zoom : {0.33, 0.5, 1.0, 1.5, 2.25, 3.0, 7.7})
    for (int32_t scroll : {0, 3}) {
      const Canvas c = Render(img, nullptr, zoom, scroll, 12, 9, false);
      const Document doc = View(7, 5, zoom, scroll);
      const Rect area = ImageArea(ComputeLayout(doc, {12, 9, 1.0}), doc);
      for (int y = 0; y < 9; ++y)
        for (int x = 0; x < 12; ++x)
          ASSERT_EQ(c.At(x, y) != kSurround, area.Contains(x, y)) << zoom << " " << scroll << ": " << x << "," << y;
    }
}

TEST(CanvasGrid, LinesAtEveryVisibleBoundaryFromEightDevicePixels) {
  const Document doc = View(100, 3);
  EXPECT_TRUE(PixelGridLines({6.0, 0, 0, 400, 400}, doc).xs.empty());
  const GridLines g = PixelGridLines({8.0, -12, 10, 40, 400}, doc);
  // Columns start at -12 + 8i: the visible ones are 4, 12, 20, 28, 36.
  EXPECT_EQ(g.xs, (std::vector<int32_t>{4, 12, 20, 28, 36}));
  EXPECT_EQ(g.ys, (std::vector<int32_t>{10, 18, 26}));  // the bottom edge (34) is outside the clip
  EXPECT_EQ(g.clip, (Rect{0, 10, 40, 34}));
  EXPECT_FALSE(PixelGridLines({16.0, 0, 0, 400, 400}, doc).xs.empty());  // 8 at a 200 % screen
}

TEST(CanvasScrollBars, ThumbFollowsThePageAndPositionBothWays) {
  const Document doc = View(1000, 100, 1.0, 600);
  const ScrollMetrics m = ScrollMetricsFor(doc, {400, 300, 1.0}, false);
  EXPECT_EQ(std::pair(m.content, m.page), std::pair(1000, 400));
  const ThumbSpan t = ThumbFor(m, 200, 10);
  EXPECT_EQ(std::pair(t.length, t.start), std::pair(80, 120));  // 400 / 1000 of the track, at 600 of 600
  for (auto [thumb, want] : {std::pair{60, 300}, {500, 600}, {-5, 0}})  // clamped to both ends
    EXPECT_EQ(PositionForThumb(m, 200, 10, thumb), want) << thumb;
  // Everything fits: the thumb fills the track and there is nothing to scroll.
  const ScrollMetrics fits = ScrollMetricsFor(doc, {400, 300, 1.0}, true);
  EXPECT_EQ(ThumbFor(fits, 150, 10).length, 150);
  EXPECT_EQ(PositionForThumb(fits, 150, 10, 40), 0);
  // A huge image keeps a thumb that can be grabbed.
  EXPECT_EQ(ThumbFor({1000000, 400, 0}, 200, 12).length, 12);
  EXPECT_EQ(ScrollLineStep(1.5), 60);
  EXPECT_EQ(ScrollPageStep(401), 360);
}

TEST(CanvasBrushCursor, TwoRingsAndTheSquareToRepaint) {
  const BrushCursorShape c = BrushCursorFor(100, 50, 20, 2.0);  // radius 20 device pixels
  EXPECT_EQ(c.white, (Rect{79, 29, 122, 72}));
  EXPECT_EQ(c.black, (Rect{80, 30, 121, 71}));
  EXPECT_EQ(c.repaint, (Rect{76, 26, 126, 76}));
  // A tiny brush far out still shows a ring of radius 1.5.
  EXPECT_EQ(BrushCursorFor(10, 10, 1, 0.1).black, (Rect{8, 8, 13, 13}));
}

}  // namespace
}  // namespace tavora
