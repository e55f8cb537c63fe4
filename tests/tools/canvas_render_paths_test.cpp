// The fast render pass against the plain per-pixel pass: every device pixel
// must come out the same, whatever the zoom, scroll, dpi, alpha or dirty area.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "tools/canvas_view.h"

namespace tavora {
namespace {

enum class Alpha { Opaque, Random, Cutout };

Surface RandomImage(int32_t w, int32_t h, Alpha alpha, uint32_t seed) {
  Surface img(w, h);
  std::mt19937 rng(seed);
  for (std::size_t i = 0; i < img.PixelCount(); ++i) {
    uint32_t p = rng();
    if (alpha == Alpha::Opaque) p |= 0xFF000000u;
    // A cut-out: mostly fully opaque or fully clear, with some soft pixels.
    if (alpha == Alpha::Cutout && (p & 0x3000000u)) p = (p & 0x00FFFFFFu) | ((p & 0x4000000u) ? 0xFF000000u : 0);
    img.Data()[i] = p;
  }
  return img;
}

struct Frame {
  double zoom, dpi;
  int32_t scrollX, scrollY;
  bool smooth;
};

std::vector<uint32_t> Render(const Surface& img, const SelectionMask* sel, const Frame& f, const Rect& area,
                             bool fast) {
  constexpr int32_t kW = 97, kH = 61;
  Document doc;
  doc.width = img.Width();
  doc.height = img.Height();
  doc.zoom = f.zoom;
  doc.scrollX = f.scrollX;
  doc.scrollY = f.scrollY;
  const ClientArea client{kW, kH, f.dpi};
  ClampScroll(doc, client);
  std::vector<uint32_t> target(std::size_t(kW) * kH, 0x12345678u);
  CanvasRender r;
  r.image = &img;
  r.selection = sel;
  r.layout = ComputeLayout(doc, client);
  r.dpiScale = f.dpi;
  r.smooth = f.smooth;
  r.target = target.data();
  r.targetStride = kW;
  AllowFastCanvasRenderForTesting(fast);
  RenderCanvas(r, area);
  AllowFastCanvasRenderForTesting(true);
  return target;
}

TEST(CanvasRenderPaths, FastPassMatchesThePlainPassPixelForPixel) {
  const Frame frames[] = {
      {0.37, 1.0, 0, 0, true},   {0.5, 1.0, 3, 7, true},   {0.6667, 1.0, 11, 0, true},
      {0.2, 1.0, 0, 5, true},    {0.05, 1.0, 0, 0, true},  {0.0833, 1.5, 2, 1, true},
      {0.23, 1.0, 0, 0, true},   {0.15, 1.0, 7, 0, true},
      {1.0, 1.0, 5, 9, true},    {1.0, 1.25, 4, 4, true},  {1.7, 1.0, 13, 17, true},
      {2.0, 1.0, 1, 0, true},    {3.0, 1.5, 40, 33, true}, {13.0, 1.0, 250, 120, true},
      {4.0, 1.0, 9, 9, true},    {0.37, 1.0, 8, 0, false}, {1.7, 1.0, 3, 3, false},
      {13.0, 2.0, 77, 5, false}, {64.0, 1.0, 900, 900, true},
  };
  const struct {
    int32_t w, h;
    Alpha alpha;
  } images[] = {{300, 200, Alpha::Opaque}, {300, 200, Alpha::Random}, {181, 97, Alpha::Cutout},
                {2, 3, Alpha::Random},     {1, 40, Alpha::Cutout},    {40, 1, Alpha::Opaque}};
  const Rect areas[] = {{0, 0, 97, 61}, {13, 7, 58, 40}, {96, 0, 97, 61}};
  uint32_t seed = 1;
  for (const auto& im : images) {
    const Surface img = RandomImage(im.w, im.h, im.alpha, seed++);
    // A selection of scattered blocks, touching the image edges.
    SelectionMask selMask(im.w, im.h);
    for (int32_t y = 0; y < im.h; ++y)
      for (int32_t x = 0; x < im.w; ++x) selMask.At(x, y) = ((x / 7 + y / 5) % 3 == 0) ? 255 : 100;
    for (const Frame& f : frames)
      for (const Rect& area : areas)
        for (const SelectionMask* s : std::vector<const SelectionMask*>{nullptr, &selMask}) {
          SCOPED_TRACE(testing::Message() << im.w << "x" << im.h << " alpha " << int(im.alpha) << " zoom "
                                          << f.zoom << " dpi " << f.dpi << " smooth " << f.smooth << " area "
                                          << area.x0 << "," << area.y0 << " selection " << (s != nullptr));
          const std::vector<uint32_t> plain = Render(img, s, f, area, false);
          const std::vector<uint32_t> fast = Render(img, s, f, area, true);
          ASSERT_EQ(fast, plain);
        }
  }
}

// Bilinear with a source row of extreme alphas: one transparent pixel next
// to opaque ones, where the fast pass reads a neighbour of zero weight.
TEST(CanvasRenderPaths, EdgeNeighboursOfZeroWeightDoNotChangeTheResult) {
  Surface img(5, 4);
  img.Fill(0xFFFFFFFFu);  // white, so any loss of alpha shows over the grey
  for (int32_t y = 0; y < 4; ++y) {
    img.At(1, y) = 0x00FFFFFFu;  // beside the clamped left edge
    img.At(3, y) = 0x80102030u;  // beside the clamped right edge
  }
  for (double zoom : {1.5, 2.0, 3.0, 3.9})
    for (int32_t scroll : {0, 1, 2}) {
      const Frame f{zoom, 1.0, scroll, scroll, true};
      EXPECT_EQ(Render(img, nullptr, f, {0, 0, 97, 61}, true), Render(img, nullptr, f, {0, 0, 97, 61}, false))
          << "zoom " << zoom << " scroll " << scroll;
    }
}

}  // namespace
}  // namespace tavora
