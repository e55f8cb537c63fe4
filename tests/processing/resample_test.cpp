#include "processing/resample.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "document/history.h"
#include "file_bytes.h"
#include "pixels.h"
#include "processing/filters.h"
#include "processing/processing_helpers.h"
#include "processing/resize_dialog.h"
#include "processing/upscale.h"
#include "temp_dir.h"

namespace tavora {
namespace {

using testing_support::Painted;
using testing_support::Processors;
using testing_support::Px;
using testing_support::SamePixels;
using testing_support::TempDir;
constexpr auto Random = testing_support::RandomSurface;

// Smooth shapes, a hard edge and fine texture: something like a photo.
Surface Photo(int32_t w, int32_t h) {
  return Painted(w, h, [&](int32_t x, int32_t y) {
    const double red = std::clamp(255.0 - std::hypot(x - w * 0.4, y - h * 0.5) * 12.0, 0.0, 255.0);
    const double g = 128 + 90 * std::sin(x * 0.9) * std::cos(y * 0.7), b = x > w * 0.7 ? 230 : 40;
    return Px(255, uint32_t(red), uint32_t(g), uint32_t(b));
  });
}

// The definition, written plainly: quantised weights over clamped indices
// on premultiplied pixels, each pass rounded and clamped.
Surface Reference(const Surface& source, int32_t w, int32_t h, const ResampleKernel& kernel) {
  const int32_t sw = source.Width(), sh = source.Height();
  const WeightTable tx = BuildWeightTable(sw, w, kernel), ty = BuildWeightTable(sh, h, kernel);
  const std::vector<int16_t> qx = QuantiseWeights(tx), qy = QuantiseWeights(ty);
  Surface pre(source);
  Premultiply(pre.Data(), pre.PixelCount());
  auto weigh = [](auto at, const std::vector<int16_t>& q, const WeightTable& t, int32_t i, int32_t length) {
    uint32_t out = 0;
    for (int c = 0; c < 4; ++c) {
      int32_t acc = 0;
      for (int32_t k = 0; k < t.taps; ++k)
        acc += q[std::size_t(i * t.taps + k)] * int32_t((at(std::clamp(t.first[std::size_t(i)] + k, 0, length - 1)) >> (8 * c)) & 255);
      out |= uint32_t(std::clamp((acc + 8192) >> 14, 0, 255)) << (8 * c);
    }
    return out;
  };
  Surface mid(w, sh), out(w, h);
  for (int32_t y = 0; y < sh; ++y)
    for (int32_t x = 0; x < w; ++x) mid.At(x, y) = weigh([&](int32_t j) { return pre.At(j, y); }, qx, tx, x, sw);
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < w; ++x) out.At(x, y) = weigh([&](int32_t j) { return mid.At(x, j); }, qy, ty, y, sh);
  Unpremultiply(out.Data(), out.PixelCount());
  return out;
}

constexpr ResampleAlgorithm kKernelAlgorithms[] = {ResampleAlgorithm::Bilinear, ResampleAlgorithm::Bicubic,
                                                   ResampleAlgorithm::Lanczos, ResampleAlgorithm::BicubicSmoother,
                                                   ResampleAlgorithm::AreaAverage};

TEST(ResampleWeights, HandWorkedTables) {
  const double third = 1.0 / 3.0;
  const struct {
    ResampleAlgorithm algorithm;
    int32_t source, target, taps;
    std::vector<int32_t> first;
    std::vector<double> weights;
  } cases[] = {
      // Enlarging: the kernel as is; the tap left of the image is the edge pixel.
      {ResampleAlgorithm::Bilinear, 2, 4, 4, {-1, -1, 0, 0},
       {.25, .75, 0, 0, 0, .75, .25, 0, .25, .75, 0, 0, 0, .75, .25, 0}},
      // Reducing: support 2, the triangle evaluated at half the distance.
      {ResampleAlgorithm::Bilinear, 4, 2, 6, {-1, 1},
       {.125, .375, .375, .125, 0, 0, .125, .375, .375, .125, 0, 0}},
      {ResampleAlgorithm::AreaAverage, 3, 1, 5, {0}, {third, third, third, 0, 0}},
      // Lanczos 10 -> 3: support 3 x 10/3 = 10, so ceil(20) + 2 taps.
      {ResampleAlgorithm::Lanczos, 10, 3, 22, {-9, -5, -2}, {}},
  };
  for (const auto& c : cases) {
    const WeightTable t = BuildWeightTable(c.source, c.target, KernelFor(c.algorithm));
    EXPECT_EQ(t.taps, c.taps) << c.source << "->" << c.target;
    EXPECT_EQ(t.first, c.first) << c.source << "->" << c.target;
    for (std::size_t i = 0; i < c.weights.size(); ++i) EXPECT_NEAR(t.weights[i], c.weights[i], 1e-12) << i;
  }
}

TEST(ResampleWeights, RowsSumToOneAndTheDegenerateRowTakesItsFirstTap) {
  for (ResampleAlgorithm a : kKernelAlgorithms)
    for (auto [s, t] : {std::pair{7, 3}, {3, 7}, {1, 5}, {640, 27}, {13, 13}}) {
      const WeightTable table = BuildWeightTable(s, t, KernelFor(a));
      const std::vector<int16_t> q = QuantiseWeights(table);
      for (int32_t i = 0; i < t; ++i) {
        double sum = 0;
        int32_t fixed = 0;
        for (int32_t k = 0; k < table.taps; ++k) {
          sum += table.weights[std::size_t(i * table.taps + k)];
          fixed += q[std::size_t(i * table.taps + k)];
        }
        ASSERT_NEAR(sum, 1.0, 1e-12) << int(a) << " " << s << "->" << t;
        ASSERT_EQ(fixed, 1 << kWeightBits) << int(a) << " " << s << "->" << t;
      }
    }
  // A kernel that is zero everywhere: each row reads only its first tap,
  // so every target pixel repeats the source pixel at floor(c - support).
  const ResampleKernel zero{[](double) { return 0.0; }, 1.0};
  const WeightTable t = BuildWeightTable(4, 8, zero);
  EXPECT_EQ(t.weights[0], 1.0);
  EXPECT_EQ(t.weights[1], 0.0);
  Surface ramp(4, 1);
  for (int32_t x = 0; x < 4; ++x) ramp.At(x, 0) = 0xFF000000u | uint32_t(x * 60);
  const Surface out = ResampleSeparable(ramp, 8, 1, zero);
  for (int32_t i = 0; i < 8; ++i)
    EXPECT_EQ(out.At(i, 0) & 255, uint32_t(std::max(int(std::floor((i + 0.5) / 2 - 1)), 0) * 60)) << i;
}

TEST(ResampleFast, MatchesThePlainDefinitionOnRandomImages) {
  const struct { int32_t sw, sh, w, h; } sizes[] = {
      {37, 23, 11, 50}, {64, 64, 17, 9}, {5, 7, 40, 33}, {1, 9, 6, 2}, {33, 1, 1, 1}, {50, 40, 50, 13}, {13, 17, 29, 17},
  };
  // Split or not, and (where the processor has it) with the two-pixel AVX2
  // horizontal pass or without.
  for (bool avx2 : {true, false})
    for (int processors : {1, 16}) {
      AllowAvx2ResamplingForTesting(avx2);
      const Processors split(processors);
      for (const auto& s : sizes)
        for (ResampleAlgorithm a : kKernelAlgorithms) {
          const Surface source = Random(s.sw, s.sh, uint32_t(s.sw * 31 + s.h));
          EXPECT_TRUE(SamePixels(ResampleSeparable(source, s.w, s.h, KernelFor(a)),
                                 Reference(source, s.w, s.h, KernelFor(a))))
              << "algorithm " << int(a) << ", " << s.sw << "x" << s.sh << " -> " << s.w << "x" << s.h
              << (avx2 ? "" : ", without AVX2");
        }
    }
  AllowAvx2ResamplingForTesting(true);
}

TEST(ResampleFast, NearestTakesTheCentredSourcePixel) {
  Surface source(3, 2);
  for (int32_t i = 0; i < 6; ++i) source.Data()[i] = 0xFF000000u | uint32_t(i);
  const Surface out = Resample(source, 7, 3, ResampleAlgorithm::Nearest);
  const uint32_t columns[7] = {0, 0, 1, 1, 1, 2, 2}, rows[3] = {0, 1, 1};
  for (int32_t y = 0; y < 3; ++y)
    for (int32_t x = 0; x < 7; ++x) EXPECT_EQ(out.At(x, y), source.At(columns[x], rows[y])) << x << "," << y;
}

TEST(ResampleFast, AnUnchangedSizeIsAnIdenticalCopyForEveryAlgorithmAndMethod) {
  const Surface source = Random(19, 11, 5);
  for (int32_t a : {0, 1, 2, 3, 4, 5, 6, 7, 42})
    EXPECT_TRUE(SamePixels(Resample(source, 19, 11, ResampleAlgorithm(a)), source)) << a;
  for (ResizeMethod m : {ResizeMethod::Resize, ResizeMethod::Resample, ResizeMethod::Upscale}) {
    const ResizeOptions o{.method = m, .sharpen = 100, .denoise = true, .grain = 100};
    EXPECT_TRUE(SamePixels(ResizeSurface(source, 19, 11, o), source)) << int(m);
  }
}

TEST(ResampleFast, TransparentPixelsLeaveNoDarkFringe) {
  // An opaque red square on transparent black: every visible pixel of the
  // result must still be pure red, whatever its alpha.
  const Surface source =
      Painted(12, 12, [](int32_t x, int32_t y) { return x >= 3 && x < 9 && y >= 4 && y < 8 ? 0xFFFF0000u : 0u; });
  std::vector<Surface> results;
  for (ResampleAlgorithm a : kKernelAlgorithms) {
    results.push_back(Resample(source, 31, 29, a));
    results.push_back(Resample(source, 5, 7, a));
  }
  for (UpscaleEngine e : {UpscaleEngine::DetailRecovery, UpscaleEngine::LanczosSharpen})
    results.push_back(ResizeSurface(source, 30, 30, {.method = ResizeMethod::Upscale, .engine = e}));
  for (std::size_t r = 0; r < results.size(); ++r) {
    int visible = 0;
    for (std::size_t i = 0; i < results[r].PixelCount(); ++i) {
      const uint32_t p = results[r].Data()[i];
      if (!(p >> 24)) continue;
      ++visible;
      ASSERT_EQ(p & 0xFFFFFF, 0xFF0000u) << "result " << r << " pixel " << i << " alpha " << (p >> 24);
    }
    EXPECT_GT(visible, 0);
  }
}

TEST(ResampleAutomatic, SmootherWhenThePixelCountGrowsSharperOtherwise) {
  const Surface source = Random(20, 20, 11);
  auto sharper = [&](int32_t w, int32_t h) {
    Surface s = Resample(source, w, h, ResampleAlgorithm::Bicubic);
    SharpenPass(s, 0.8f, 0.45f);
    return s;
  };
  // Only the width grows: more pixels.
  EXPECT_TRUE(SamePixels(Resample(source, 30, 20, ResampleAlgorithm::Automatic),
                         Resample(source, 30, 20, ResampleAlgorithm::BicubicSmoother)));
  // One side grows, the other shrinks more: fewer pixels; as many: not more.
  EXPECT_TRUE(SamePixels(Resample(source, 30, 10, ResampleAlgorithm::Automatic), sharper(30, 10)));
  EXPECT_TRUE(SamePixels(Resample(source, 40, 10, ResampleAlgorithm::Automatic), sharper(40, 10)));
  EXPECT_TRUE(SamePixels(Resample(source, 30, 10, ResampleAlgorithm::BicubicSharper), sharper(30, 10)));
  EXPECT_FALSE(SamePixels(sharper(30, 10), Resample(source, 30, 10, ResampleAlgorithm::Bicubic)));
  // Upscale to no more pixels is the automatic choice, with nothing of its own.
  const ResizeOptions o{
      .method = ResizeMethod::Upscale, .engine = UpscaleEngine::PixelArt, .denoise = true, .grain = 80};
  for (auto [w, h] : {std::pair{15, 15}, {40, 10}})
    EXPECT_TRUE(SamePixels(ResizeSurface(source, w, h, o), Resample(source, w, h, ResampleAlgorithm::Automatic)));
}

TEST(ResampleSharpen, RaisesEdgeContrastKeepsFlatAreasAlphaAndTransparency) {
  Surface s = Painted(12, 4, [](int32_t x, int32_t) { return x < 6 ? 0xC0505050u : 0xC0A0A0A0u; });
  s.At(0, 0) = 0;
  Surface out = s;
  SharpenPass(out, 0.8f, 0.45f);
  EXPECT_LT(out.At(5, 2) & 255, 0x50u);  // dark side of the edge darker
  EXPECT_GT(out.At(6, 2) & 255, 0xA0u);  // bright side brighter
  EXPECT_EQ(out.At(2, 2), s.At(2, 2));   // flat: unchanged
  EXPECT_EQ(out.At(0, 0), 0u);
  for (int32_t x = 1; x < 12; ++x) EXPECT_EQ(out.At(x, 1) >> 24, 0xC0u);
}

// ---------------------------------------------------------------- Upscale
Surface Doubled(Surface s, int times) {
  while (times-- > 0) s = Scale2x(s);
  return s;
}

TEST(ResampleUpscale, Scale2xSmoothsAStaircaseAsPublished) {
  const uint32_t X = 0xFF000000u, o = 0xFFFFFFFFu;
  Surface source(3, 3);
  source.Fill(o);
  source.At(0, 0) = source.At(1, 0) = source.At(0, 1) = X;
  const uint32_t want[36] = {X, X, X, X, o, o, X, X, X, o, o, o, X, X, X, o, o, o,
                             X, o, o, o, o, o, o, o, o, o, o, o, o, o, o, o, o, o};
  Surface wanted(6, 6);
  std::copy(want, want + 36, wanted.Data());
  EXPECT_TRUE(SamePixels(Scale2x(source), wanted));
}

TEST(ResampleUpscale, PixelArtDoublesWhileItCanThenResamples) {
  // Two colours at random: plenty of agreeing neighbours for Scale2x.
  Surface source = Random(6, 5, 3);
  for (std::size_t i = 0; i < 30; ++i) source.Data()[i] = source.Data()[i] & 1 ? 0xFF2040F0u : 0x80FFFF00u;
  const struct { int32_t w, h, doublings; ResampleAlgorithm last; } cases[] = {
      {18, 15, 1, ResampleAlgorithm::Bilinear},   // x3
      {96, 80, 4, ResampleAlgorithm::Nearest},    // x16: exact, nothing after
      {192, 160, 4, ResampleAlgorithm::Bilinear}, // x32: still four
      {4, 12, 0, ResampleAlgorithm::Bilinear},    // narrower but taller
      {4, 3, 0, ResampleAlgorithm::AreaAverage},  // smaller both ways
  };
  const ResizeOptions o{.method = ResizeMethod::Upscale, .engine = UpscaleEngine::PixelArt};
  for (const auto& c : cases) {
    const Surface doubled = Doubled(source, c.doublings);
    const Surface want = Resample(doubled, c.w, c.h, c.last);
    EXPECT_TRUE(SamePixels(PixelArtEnlarge(source, c.w, c.h), want)) << c.w << "x" << c.h;
    if (int64_t(c.w) * c.h > 30) {
      EXPECT_TRUE(SamePixels(ResizeSurface(source, c.w, c.h, o), want)) << c.w;
    }
  }
  EXPECT_FALSE(SamePixels(Doubled(source, 1), Resample(source, 12, 10, ResampleAlgorithm::Nearest)));
}

double ErrorAfterShrinking(const Surface& big, const Surface& original) {
  const Surface back = Resample(big, original.Width(), original.Height(), ResampleAlgorithm::Bicubic);
  double sum = 0;
  for (std::size_t i = 0; i < back.PixelCount(); ++i)
    for (int s = 0; s < 24; s += 8) {
      const double d = double((back.Data()[i] >> s) & 255) - double((original.Data()[i] >> s) & 255);
      sum += d * d;
    }
  return sum / double(back.PixelCount() * 3);
}

TEST(ResampleUpscale, DetailRecoveryReproducesTheOriginalBetterWithoutHalos) {
  const Surface source = Photo(40, 36);
  ResizeOptions o{.method = ResizeMethod::Upscale};
  const Surface recovered = ResizeSurface(source, 80, 72, o);
  const double plain = ErrorAfterShrinking(Resample(source, 80, 72, ResampleAlgorithm::Bicubic), source);
  const double better = ErrorAfterShrinking(recovered, source);
  EXPECT_LT(better, plain * 0.5) << better << " vs " << plain;
  o.engine = UpscaleEngine::LanczosSharpen;
  EXPECT_LT(ErrorAfterShrinking(ResizeSurface(source, 80, 72, o), source), plain);

  // A grey step: Lanczos rings past both sides, the recovery held to the
  // neighbourhoods (edge 100) does not.
  const Surface step = Painted(16, 4, [](int32_t x, int32_t) { return x < 8 ? 0xFF404040u : 0xFFC0C0C0u; });
  auto range = [](const Surface& s) {
    const auto [lo, hi] = std::minmax_element(s.Data(), s.Data() + s.PixelCount(),
                                              [](uint32_t a, uint32_t b) { return (a & 255) < (b & 255); });
    return std::pair{*lo & 255, *hi & 255};
  };
  const auto rung = range(Resample(step, 40, 10, ResampleAlgorithm::Lanczos));
  EXPECT_TRUE(rung.first < 0x40 && rung.second > 0xC0);
  EXPECT_EQ(range(DetailRecoveryEnlarge(step, 40, 10, ResampleAlgorithm::Lanczos, 2.0f, 100)),
            (std::pair{0x40u, 0xC0u}));
  o.edge = 100;
  EXPECT_EQ(range(ResizeSurface(step, 40, 10, o)), (std::pair{0x40u, 0xC0u}));  // and its sharpen
}

TEST(ResampleUpscale, GrainIsTheSameEveryTimeAndCentredOnThePicture) {
  Surface flat(64, 48);
  flat.Fill(0xFF808080u);
  flat.At(3, 3) = 0;
  const ResizeOptions o{.method = ResizeMethod::Upscale, .engine = UpscaleEngine::PixelArt, .grain = 50};
  auto run = [&](int processors) {
    const Processors split(processors);
    return ResizeSurface(flat, 128, 96, o);
  };
  const Surface a = run(1);
  EXPECT_TRUE(SamePixels(a, run(16)));
  double sum = 0;
  int changed = 0;
  for (int32_t y = 0; y < 96; ++y)
    for (int32_t x = 0; x < 128; ++x) {
      const uint32_t p = a.At(x, y);
      if (x / 2 == 3 && y / 2 == 3) {
        EXPECT_EQ(p, 0u);  // transparent stays so
        continue;
      }
      const int d = int(p & 255) - 128;
      ASSERT_EQ(p >> 24, 255u);
      ASSERT_TRUE(int((p >> 8) & 255) - 128 == d && int((p >> 16) & 255) - 128 == d);  // monochrome
      ASSERT_LE(std::abs(d), 15);  // 0.3 x grain
      sum += d;
      changed += d != 0;
    }
  EXPECT_GT(changed, 128 * 96 / 2);
  EXPECT_LT(std::abs(sum / (128 * 96)), 0.5);
}

TEST(ResampleUpscale, DenoiseSmoothsSmallNoiseButKeepsAHardEdge) {
  std::mt19937 rng(4);
  const Surface s = Painted(24, 16, [&](int32_t x, int32_t) {
    const uint32_t v = uint32_t((x < 12 ? 60 : 200) + int(rng() % 9) - 4);
    return Px(255, v, v, v);
  });
  auto spread = [](const Surface& img, int32_t x0, int32_t x1) {
    double sum = 0, sq = 0, n = 0;
    for (int32_t y = 0; y < img.Height(); ++y)
      for (int32_t x = x0; x < x1; ++x) {
        const double v = img.At(x, y) & 255;
        sum += v;
        sq += v * v;
        ++n;
      }
    return std::sqrt(sq / n - (sum / n) * (sum / n));
  };
  Surface clean = s;
  Denoise(clean);
  EXPECT_LT(spread(clean, 0, 10), spread(s, 0, 10) * 0.5);
  for (int32_t y = 0; y < 16; ++y) {
    EXPECT_NEAR(int(clean.At(11, y) & 255), 60, 5);
    EXPECT_NEAR(int(clean.At(12, y) & 255), 200, 5);
  }
}

// ---------------------------------------------------------------- the command
TEST(ResampleCommand, OneUndoStepResizesEveryLayerAndUndoBringsItBack) {
  auto doc = CreateDocument(30, 20, 72, 0xFFFFFFFF, 0);
  doc->layers.emplace_back(30, 20, u"Layer 2");
  doc->layers[1].pixels = Random(30, 20, 8);
  doc->layers[1].extended = std::make_unique<ExtendedContent>(ExtendedContent{-5, 0, Surface(40, 20)});
  doc->selection = SelectionMask(30, 20);
  const Surface bottom = doc->layers[0].pixels, top = doc->layers[1].pixels;
  ResizeOptions o{.algorithmPosition = 5, .sharpen = 40};
  EXPECT_FALSE(ResizeImage(*doc, 30, 20, o));  // the same size: nothing happens
  EXPECT_EQ(UndoLabel(*doc), u"");

  ASSERT_TRUE(ResizeImage(*doc, 45, 13, o));
  EXPECT_EQ(UndoLabel(*doc), u"Resample");
  EXPECT_EQ(doc->history.states.size(), 1u);
  EXPECT_EQ(std::pair(doc->width, doc->height), std::pair(45, 13));
  EXPECT_TRUE(SamePixels(doc->layers[0].pixels, ResizeSurface(bottom, 45, 13, o)));
  EXPECT_TRUE(SamePixels(doc->layers[1].pixels, ResizeSurface(top, 45, 13, o)));
  EXPECT_TRUE(!doc->layers[1].extended && !doc->selection && doc->modified);

  ASSERT_TRUE(Undo(*doc));
  EXPECT_EQ(std::pair(doc->width, doc->height), std::pair(30, 20));
  EXPECT_TRUE(SamePixels(doc->layers[1].pixels, top));
  EXPECT_TRUE(doc->layers[1].extended && doc->selection);
  ASSERT_TRUE(Redo(*doc));
  EXPECT_EQ(doc->layers[1].pixels.Width(), 45);

  for (auto [method, label] : {std::pair{ResizeMethod::Resize, u"Resize"}, {ResizeMethod::Upscale, u"Upscale"}}) {
    o.method = method;
    ASSERT_TRUE(ResizeImage(*doc, doc->width + 5, 14, o));
    EXPECT_EQ(UndoLabel(*doc), label);
  }
}

TEST(ResampleCommand, SidesAreClampedForCallersThatBypassTheDialog) {
  auto doc = CreateDocument(2, 1, 72, 0xFF123456, 0);
  ASSERT_TRUE(ResizeImage(*doc, 100000, -3, {.method = ResizeMethod::Resize}));
  EXPECT_EQ(std::pair(doc->width, doc->height), std::pair(kMaxResizeSide, 1));
  Surface want(kMaxResizeSide, 1);
  want.Fill(0xFF123456u);
  EXPECT_TRUE(SamePixels(doc->layers[0].pixels, want));
}

// ---------------------------------------------------------------- the Resize Image dialog
TEST(ResampleDialog, ListPositionsMapToTheInternalAlgorithms) {
  const int32_t internal[8] = {7, 1, 2, 4, 5, 3, 6, 0};
  for (int32_t p = 0; p < 8; ++p) EXPECT_EQ(int32_t(AlgorithmAtPosition(p)), internal[p]) << p;
  for (int32_t p : {8, -1}) EXPECT_EQ(AlgorithmAtPosition(p), ResampleAlgorithm::Automatic) << p;
  for (const auto& list : {ResizeAlgorithms(), UpscaleEngines(), ResizeMethods()})
    for (const ResizeListEntry& e : list) EXPECT_FALSE(e.help.empty()) << std::string(e.text.begin(), e.text.end());

  // The help line and the live controls follow the method.
  ResizeOptions o{.algorithmPosition = 6};
  EXPECT_EQ(ResizeHelpLine(o), u"Averages the covered pixels. Best for large reductions: smooth, no aliasing.");
  EXPECT_TRUE(ResizeControlsFor(o).sharpen && !ResizeControlsFor(o).engine);
  o.method = ResizeMethod::Upscale;
  o.engine = UpscaleEngine::LanczosSharpen;
  EXPECT_EQ(ResizeHelpLine(o), u"Lanczos enlargement followed by halo-limited sharpening.");
  EXPECT_TRUE(ResizeControlsFor(o).detail);
  o.engine = UpscaleEngine::PixelArt;
  EXPECT_TRUE(!ResizeControlsFor(o).detail && ResizeControlsFor(o).grain);
  o.method = ResizeMethod::Resize;
  EXPECT_FALSE(ResizeControlsFor(o).algorithm);
}

TEST(ResampleDialog, RemembersItsValuesAndReplacesThoseOutOfRange) {
  TempDir dir;
  SettingsStore store;
  store.Open(dir.path());
  const ResizeOptions defaults = LoadResizeOptions(store);
  EXPECT_EQ(std::tuple(defaults.method, defaults.detail, defaults.edge), std::tuple(ResizeMethod::Resample, 50, 50));

  const ResizeOptions o{ResizeMethod::Upscale, 5, UpscaleEngine::PixelArt, 30, 90, 0, true, 12};
  SaveResizeOptions(store, o);
  const testing_support::Bytes text = testing_support::ReadBytes(store.Path());
  EXPECT_EQ(std::string(text.begin(), text.end()),
            "[Dlg Resize Image]\r\nmode=2\r\nalgo1=5\r\nalgo2=2\r\nsharpen=30\r\ndetail=90\r\ngrain=12\r\n"
            "denoise=1\r\nedge=0\r\n");
  const ResizeOptions back = LoadResizeOptions(store);
  for (const ResizeSetting& s : ResizeSettings())
    EXPECT_EQ(s.get(back), s.get(o)) << std::string(s.key.begin(), s.key.end());

  const struct { const char16_t* key; int32_t value; } bad[] = {
      {u"mode", 3}, {u"algo1", -1}, {u"algo2", 7}, {u"sharpen", 101}, {u"detail", 500}, {u"grain", -4},
      {u"denoise", 2}, {u"edge", 1000}};
  for (const auto& b : bad) store.SetInt(kResizeSection, b.key, b.value);
  const ResizeOptions replaced = LoadResizeOptions(store);
  for (const ResizeSetting& s : ResizeSettings())
    EXPECT_EQ(s.get(replaced), s.fallback) << std::string(s.key.begin(), s.key.end());
}

TEST(ResampleDialog, PresetsAndKeepAspectFillTheFields) {
  const SizeFields start{400, 300, 100};
  const struct { SizeField field; double value; bool keep; SizeFields want; } cases[] = {
      {SizeField::Preset, 2, true, {200, 150, 50}},          // 50%
      {SizeField::Preset, 8, false, {1600, 1200, 400}},      // a preset scales both sides either way
      {SizeField::Preset, 0, true, start},                   // Custom changes nothing
      {SizeField::Percent, 33.333, true, {133, 100, 33.33}},
      {SizeField::Width, 200, true, {200, 150, 50}},
      {SizeField::Width, 200, false, {200, 300, 50}},
      {SizeField::Height, 100, true, {133, 100, 33.33}},
      {SizeField::Width, 1, true, {1, 1, 0.25}},             // the other side stays at least 1
      {SizeField::Percent, 0.01, true, {1, 1, 0.01}},
  };
  for (const auto& c : cases) {
    const SizeFields got = FollowSizeField(400, 300, start, c.field, c.value, c.keep);
    EXPECT_EQ(got, c.want) << int(c.field) << " " << c.value << ": " << got.width << "x" << got.height << " "
                           << got.percent;
  }
}

TEST(ResampleDialog, SizesOutsideTheLimitsGetTheMessage) {
  const std::u16string_view message = u"Size must be between 1 and 30000 pixels per side (max 250 megapixels).";
  const struct { double w, h; bool ok; } cases[] = {
      {1, 1, true}, {30000, 8333, true}, {30001, 1, false}, {0, 5, false}, {20000, 20000, false}, {5, -1, false},
  };
  for (const auto& c : cases)
    EXPECT_EQ(ResizeSizeMessage(c.w, c.h), c.ok ? u"" : message) << c.w << "x" << c.h;
}

}  // namespace
}  // namespace tavora
