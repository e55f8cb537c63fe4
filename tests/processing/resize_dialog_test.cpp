#include "processing/resize_dialog.h"

#include <gtest/gtest.h>

#include <fstream>

#include "temp_dir.h"

namespace tavora {
namespace {

using testing_support::TempDir;

TEST(ResampleDialog, ListPositionsMapToTheInternalAlgorithms) {
  const int32_t internal[8] = {7, 1, 2, 4, 5, 3, 6, 0};
  for (int32_t p = 0; p < 8; ++p) EXPECT_EQ(int32_t(AlgorithmAtPosition(p)), internal[p]) << p;
  EXPECT_EQ(AlgorithmAtPosition(8), ResampleAlgorithm::Automatic);
  EXPECT_EQ(AlgorithmAtPosition(-1), ResampleAlgorithm::Automatic);
  ASSERT_EQ(ResizeAlgorithms().size(), 8u);
  ASSERT_EQ(UpscaleEngines().size(), 3u);
  ASSERT_EQ(ResizeMethods().size(), 3u);
  EXPECT_EQ(ResizeAlgorithms()[7].text, u"Nearest neighbor (hard pixels)");
  EXPECT_EQ(ResizeMethods()[2].summary, u"enlarge and restore detail");
  EXPECT_EQ(ScalePresets().size(), 9u);
  for (const auto& list : {ResizeAlgorithms(), UpscaleEngines(), ResizeMethods()})
    for (const ResizeListEntry& e : list) EXPECT_FALSE(e.help.empty()) << std::string(e.text.begin(), e.text.end());

  // The help line and the live controls follow the method.
  ResizeOptions o;
  o.algorithmPosition = 6;
  EXPECT_EQ(ResizeHelpLine(o), u"Averages the covered pixels. Best for large reductions: smooth, no aliasing.");
  EXPECT_TRUE(ResizeControlsFor(o).sharpen);
  EXPECT_FALSE(ResizeControlsFor(o).engine);
  o.method = ResizeMethod::Upscale;
  o.engine = UpscaleEngine::LanczosSharpen;
  EXPECT_EQ(ResizeHelpLine(o), u"Lanczos enlargement followed by halo-limited sharpening.");
  EXPECT_TRUE(ResizeControlsFor(o).detail);
  o.engine = UpscaleEngine::PixelArt;
  EXPECT_FALSE(ResizeControlsFor(o).detail);
  EXPECT_TRUE(ResizeControlsFor(o).grain);
  o.method = ResizeMethod::Resize;
  EXPECT_FALSE(ResizeControlsFor(o).algorithm);
}

TEST(ResampleDialog, RemembersItsValuesAndReplacesThoseOutOfRange) {
  TempDir dir;
  SettingsStore store;
  store.Open(dir.path());
  const ResizeOptions defaults = LoadResizeOptions(store);
  EXPECT_EQ(defaults.method, ResizeMethod::Resample);
  EXPECT_EQ(defaults.detail, 50);
  EXPECT_EQ(defaults.edge, 50);

  ResizeOptions o;
  o.method = ResizeMethod::Upscale;
  o.algorithmPosition = 5;
  o.engine = UpscaleEngine::PixelArt;
  o.sharpen = 30;
  o.detail = 90;
  o.grain = 12;
  o.denoise = true;
  o.edge = 0;
  SaveResizeOptions(store, o);
  // Closed at once: on Windows an open file cannot be replaced.
  const std::string text = [&] {
    std::ifstream file(store.Path(), std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(file)), {});
  }();
  EXPECT_EQ(text,
            "[Dlg Resize Image]\r\nmode=2\r\nalgo1=5\r\nalgo2=2\r\nsharpen=30\r\ndetail=90\r\ngrain=12\r\n"
            "denoise=1\r\nedge=0\r\n");
  const ResizeOptions back = LoadResizeOptions(store);
  for (const ResizeSetting& s : ResizeSettings()) EXPECT_EQ(s.get(back), s.get(o)) << std::string(s.key.begin(), s.key.end());

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
  const struct {
    SizeField field;
    double value;
    bool keep;
    SizeFields want;
  } cases[] = {
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
