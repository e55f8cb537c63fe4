#include "cli/cli.h"

#include <gtest/gtest.h>

#include "cli_run.h"
#include "document/composite.h"
#include "file_bytes.h"
#include "formats/webp_codec.h"
#include "pixels.h"
#include "tool_helpers.h"

namespace tavora {
namespace {

using namespace testing_support;

// Background, a half-transparent Multiply layer with a stroke, and a hidden
// layer named with characters outside ASCII.
std::unique_ptr<Document> ThreeLayers() {
  auto doc = CreateDocument(4, 3, 150, 0xFF8080FF, 0);
  doc->layers.emplace_back(4, 3, u"Ink \"q\"");
  doc->layers[1].blendMode = 1;
  doc->layers[1].opacity = 128;
  doc->layers[1].pixels.Fill(0xFF00FF00);
  doc->layers[1].effects.stroke.on = doc->layers[1].effects.dropShadow.on = true;
  doc->layers.emplace_back(4, 3, u"\u00C9t\u00E9 \U0001F600");
  doc->layers[2].visible = false;
  doc->active = 1;
  return doc;
}

TEST(CliInfo, TextAndJsonDescribeEveryLayer) {
  TempDir dir;
  const std::u16string in = Written(*ThreeLayers(), dir, "d.tvl");
  CliResult text = Cli({u"info", in});
  EXPECT_EQ(text.status, kCliOk);
  EXPECT_EQ(text.out,
            "Size: 4 x 3\nDPI: 150\nColors: 16777216\nActive layer: 1\nLayers (bottom first): 3\n"
            "  0: \"Background\", visible, opacity 255, Normal, Background, effects: none\n"
            "  1: \"Ink \"q\"\", visible, opacity 128, Multiply, effects: Drop Shadow, Stroke\n"
            "  2: \"\xC3\x89t\xC3\xA9 \xF0\x9F\x98\x80\", hidden, opacity 255, Normal, effects: none\n");
  CliResult json = Cli({u"info", u"--json", in});
  EXPECT_EQ(json.status, kCliOk);
  EXPECT_EQ(json.out,
            "{\"width\":4,\"height\":3,\"dpi\":150,\"colors\":16777216,\"active\":1,\"layers\":["
            "{\"name\":\"Background\",\"visible\":true,\"opacity\":255,\"blend\":\"Normal\","
            "\"background\":true,\"effects\":[]},"
            "{\"name\":\"Ink \\\"q\\\"\",\"visible\":true,\"opacity\":128,\"blend\":\"Multiply\","
            "\"background\":false,\"effects\":[\"Drop Shadow\",\"Stroke\"]},"
            "{\"name\":\"\xC3\x89t\xC3\xA9 \xF0\x9F\x98\x80\",\"visible\":false,\"opacity\":255,"
            "\"blend\":\"Normal\",\"background\":false,\"effects\":[]}]}\n");
}

TEST(CliConvert, CopiesLayersOrFlattensThemLikeFlattenImage) {
  TempDir dir;
  auto doc = ThreeLayers();
  doc->layers[1].effects = {};  // effects are not drawn into a flattened image here
  const std::u16string in = Written(*doc, dir, "in.tvl");
  EXPECT_EQ(Cli({u"convert", in, U(dir / "copy.KZL")}).status, kCliOk);
  auto copy = ReadLayeredDocument(dir / "copy.KZL");
  ASSERT_TRUE(copy);
  EXPECT_EQ(copy->LayerCount(), 3);

  EXPECT_EQ(Cli({u"convert", u"--flatten", in, U(dir / "flat.tvl")}).status, kCliOk);
  auto flat = ReadLayeredDocument(dir / "flat.tvl");
  ASSERT_TRUE(flat);
  ASSERT_EQ(flat->LayerCount(), 1);
  EXPECT_EQ(flat->layers[0].pixels.At(3, 2), CompositePixel(*doc, 3, 2));
}

TEST(CliErrors, StatusesMessagesAndNoPartialOutput) {
  TempDir dir;
  const std::u16string in = Written(*ThreeLayers(), dir, "in.tvl");
  CliResult missing = Cli({u"info", U(dir / "nope.tvl")});
  EXPECT_EQ(missing.status, kCliCannotOpen);
  EXPECT_EQ(missing.err, "This file could not be opened.\n" + (dir / "nope.tvl").string() + "\n");
  EXPECT_TRUE(missing.out.empty());
  // A format without a reader yet cannot be opened either.
  EXPECT_EQ(Cli({u"convert", U(dir / "in.png"), U(dir / "o.tvl")}).status, kCliCannotOpen);

  CliResult unsaved = Cli({u"convert", in, U(dir / "no-folder" / "o.tvl")});
  EXPECT_EQ(unsaved.status, kCliCannotSave);
  EXPECT_EQ(unsaved.err, "The file could not be saved.\n" + (dir / "no-folder" / "o.tvl").string() + "\n");
  EXPECT_EQ(Cli({u"convert", in, U(dir / "o.bmp")}).status, kCliCannotSave);
  EXPECT_EQ(FilesIn(dir.path()), 1u);

  for (const auto& bad : std::vector<std::vector<std::u16string>>{
           {}, {u"info"}, {u"info", u"a", u"b"}, {u"convert", u"a"}, {u"frobnicate", u"a"},
           {u"info", u"--flatten", u"a.tvl"}, {u"convert", u"--json", u"a", u"b"}}) {
    CliResult r = Cli(bad);
    EXPECT_EQ(r.status, kCliUsage) << bad.size();
    EXPECT_NE(r.err.find("usage: tavora-cli"), std::string::npos);
  }
}

// The fuzzing seeds serve as sample files.
std::u16string Seed(const char* name) {
  return U(std::filesystem::path(TAVORA_SOURCE_DIR) / "fuzz" / "corpus" / name);
}

TEST(CliFormats, PsdHdrAndWebpConvert) {
  TempDir dir;
  // A PSD with one pixel layer keeps it; its name comes from the Unicode name.
  ASSERT_EQ(Cli({u"convert", Seed("psd/packbits.psd"), U(dir / "p.tvl")}).status, kCliOk);
  const auto psd = ReadLayeredDocument(dir / "p.tvl");
  ASSERT_TRUE(psd);
  EXPECT_EQ(psd->layers[0].Name(), u"\u00C9x");
  // HDR at two exposures: one EV brighter is brighter.
  ASSERT_EQ(Cli({u"convert", Seed("radiance_hdr/flat.hdr"), U(dir / "h0.tvl")}).status, kCliOk);
  ASSERT_EQ(Cli({u"convert", u"--exposure=1", Seed("radiance_hdr/flat.hdr"), U(dir / "h1.tvl")}).status, kCliOk);
  EXPECT_GT(Bottom(dir / "h1.tvl").At(1, 0) & 255, Bottom(dir / "h0.tvl").At(1, 0) & 255);
  // WebP: lossless round trip exactly; lossy at a quality; both refused together.
  ASSERT_EQ(Cli({u"convert", u"--lossless", U(dir / "h0.tvl"), U(dir / "w.webp")}).status, kCliOk);
  ASSERT_EQ(Cli({u"convert", U(dir / "w.webp"), U(dir / "w.tvl")}).status, kCliOk);
  EXPECT_TRUE(SamePixels(Bottom(dir / "w.tvl"), Bottom(dir / "h0.tvl")));
  ASSERT_EQ(Cli({u"convert", u"--quality=20", U(dir / "h0.tvl"), U(dir / "q.webp")}).status, kCliOk);
  EXPECT_TRUE(ReadWebpFile(dir / "q.webp"));
  for (const auto& bad : std::vector<std::vector<std::u16string>>{
           {u"convert", u"--quality=0", U(dir / "h0.tvl"), U(dir / "x.webp")},
           {u"convert", u"--exposure=7", Seed("radiance_hdr/flat.hdr"), U(dir / "x.tvl")},
           {u"convert", u"--quality=50", u"--lossless", U(dir / "h0.tvl"), U(dir / "x.webp")}})
    EXPECT_EQ(Cli(bad).status, kCliUsage) << Ascii(bad[1]);
  EXPECT_FALSE(std::filesystem::exists(dir / "x.webp"));
  // A broken file: the message, status 1, nothing written.
  WriteBytes(dir / "broken.psd", "8BPS not really");
  const CliResult broken = Cli({u"convert", U(dir / "broken.psd"), U(dir / "b.tvl")});
  EXPECT_EQ(broken.status, kCliCannotOpen);
  EXPECT_NE(broken.err.find("This file could not be opened."), std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(dir / "b.tvl"));
}

TEST(CliApply, RunsTableOperationsInOrderAndChecksRanges) {
  TempDir dir;
  const std::u16string in = Plain(dir, "in.tvl", 4, 4, 0xFF204080), x = U(dir / "x.tvl");
  CliResult r = Cli({u"apply", u"invert", u"brightness-contrast=10", in, U(dir / "out.tvl")});
  ASSERT_EQ(r.status, kCliOk) << r.err;
  EXPECT_EQ(Bottom(dir / "out.tvl").At(1, 1), 0xFFF3D393u);  // inverted to DFBF7F, then brightness 10 adds 20

  // Values out of range, not finite or empty: the row's message alone, nothing written.
  for (std::u16string bad : {u"gaussian-blur=250", u"gaussian-blur=nan", u"gaussian-blur=inf", u"gaussian-blur=",
                             u"gaussian-blur=0.04", u"brightness-contrast=10,", u"gaussian-blur=2x"}) {
    CliResult range = Cli({u"apply", bad, in, x});
    EXPECT_EQ(range.status, kCliUsage) << Ascii(bad);
    EXPECT_NE(range.err.find("Please enter a value between "), std::string::npos) << range.err;
    EXPECT_EQ(range.err.find("usage:"), std::string::npos) << range.err;
  }
  // An unknown operation, values for an immediate one, an unknown choice, a
  // third colour.
  for (std::u16string bad : {u"frobnicate", u"invert=3", u"add-noise=30,2", u"spiral=10,100,0,#FF0000,#0000FF,#00FF00"})
    EXPECT_EQ(Cli({u"apply", bad, in, x}).status, kCliUsage) << Ascii(bad);
  EXPECT_FALSE(std::filesystem::exists(dir / "x.tvl"));
  EXPECT_EQ(Cli({u"apply", u"Add Noise=30,option,uniform", in, U(dir / "n.tvl")}).status, kCliOk);

  // A typed value is rounded to the row's decimals, as the slider stores it:
  // threshold 127.6 is 128, which turns luminance 127 black (127 would not).
  ASSERT_EQ(Cli({u"apply", u"threshold=127.6", Plain(dir, "grey.tvl", 2, 2, 0xFF7F7F7F), U(dir / "t.tvl")}).status,
            kCliOk);
  EXPECT_EQ(Bottom(dir / "t.tvl").At(0, 0), 0xFF000000u);

  // A spiral takes its colours after the rows.
  r = Cli({u"apply", u"spiral=10,100,0,#FF0000,#0000FF", Plain(dir, "g.tvl", 60, 60, 0xFF808080), U(dir / "s.tvl")});
  ASSERT_EQ(r.status, kCliOk) << r.err;
  const Surface spiral = Bottom(dir / "s.tvl");
  EXPECT_EQ(spiral.At(35, 30), 0xFFFF0000u);  // 5.5 px right of the centre: the line
  EXPECT_EQ(spiral.At(45, 30), 0xFF0000FFu);  // 15.5 px: the gap
}

TEST(CliApply, OpsListsEveryOperationWithItsRows) {
  const CliResult ops = Cli({u"ops"});
  EXPECT_EQ(ops.status, kCliOk);
  for (const char* text : {"gaussian-blur (\"Gaussian Blur\")\n    Radius (px): 0.1..100, default 3\n",
                           "hdr-tone-map (\"HDR Tone Map\")\n    Exposure (EV): -3..3, default 0\n",
                           "edge-detect (\"Edge Detect\")", "\nlens-flare (\"Lens Flare\")\n    Center X:",
                           "\nfill-from-surroundings (", "\nwhiten-area (\"Whiten Area\")\n", "\nselect (",
                           "resize=W,H", "canvas-size=", "crop=", "rotate-left", "free-rotate-layer=", "resize-layer="})
    EXPECT_NE(ops.out.find(text), std::string::npos) << text;
  EXPECT_EQ(ops.out.find("not available yet"), std::string::npos);
}

// select= sets the selection for the steps after it; the flare starts in
// the middle of the selection unless placed; fill-from-surroundings needs
// a selection and keeps to it.
TEST(CliApply, SelectionStepsLensFlareAndFillFromSurroundings) {
  TempDir dir;
  const std::u16string in = Plain(dir, "g.tvl", 80, 60, 0xFF404040), x = U(dir / "x.tvl");
  ASSERT_EQ(Cli({u"apply", u"select=40,0,80,60", u"lens-flare=,,,", in, x}).status, kCliUsage);
  CliResult r = Cli({u"apply", u"select=40,0,80,60", u"lens-flare", in, U(dir / "f.tvl")});
  ASSERT_EQ(r.status, kCliOk) << r.err;
  const Surface flare = Bottom(dir / "f.tvl");
  EXPECT_EQ(flare.At(10, 30), 0xFF404040u);                    // outside the selection
  EXPECT_GT(flare.At(60, 30) & 0xFF, flare.At(45, 5) & 0xFF);  // brightest at the middle
  EXPECT_EQ(Cli({u"apply", u"lens-flare=5,5,0", in, U(dir / "z.tvl")}).status, kCliOk);  // brightness 0
  EXPECT_TRUE(SamePixels(Bottom(dir / "z.tvl"), Bottom(dir / "g.tvl")));

  auto doc = CreateDocument(80, 60, 72, 0xFFE0E0E0, 0);
  for (int32_t px = 10; px < 70; ++px) doc->layers[0].pixels.At(px, 30) = 0xFF000000;
  const std::u16string line = Written(*doc, dir, "line.tvl");
  CliResult none = Cli({u"apply", u"fill-from-surroundings", line, x});
  EXPECT_EQ(none.status, kCliUsage);
  EXPECT_NE(none.err.find("needs a selection"), std::string::npos);
  EXPECT_EQ(Cli({u"apply", u"select=20,20,40,40", u"fill-from-surroundings=101", line, x}).status, kCliUsage);
  EXPECT_FALSE(std::filesystem::exists(dir / "x.tvl"));
  r = Cli({u"apply", u"select=20,25,40,35", u"fill-from-surroundings=2", line, U(dir / "h.tvl")});
  ASSERT_EQ(r.status, kCliOk) << r.err;
  const Surface healed = Bottom(dir / "h.tvl");
  EXPECT_EQ(healed.At(15, 30), 0xFF000000u);  // outside the grown selection
  EXPECT_EQ(healed.At(30, 30), 0xFFE0E0E0u);  // the line is gone inside it
}

TEST(CliPaint, StrokesLikeTheCanvasAndKeepsToTheSelection) {
  TempDir dir;
  CliResult r = Cli({u"paint", u"brush", u"size=6", u"hardness=100", u"color=FF0000", u"select=10,0,30,30", u"2.5,10.5",
                     u"20.5,10.5", u"37.5,10.5", Plain(dir, "w.tvl", 40, 30, 0xFFFFFFFF), U(dir / "p.tvl")});
  ASSERT_EQ(r.status, kCliOk) << r.err;
  const Surface px = Bottom(dir / "p.tvl");
  EXPECT_EQ(px.At(15, 10), 0xFFFF0000u);
  // The same stroke through the engine directly gives the same pixels,
  // held to the same selection.
  auto doc = CreateDocument(40, 30, 72, 0xFFFFFFFF, 0);
  BrushParams params = Params(BrushTool::Brush, 6, 100);
  params.primary = 0xFFFF0000;
  SelectRect(*doc, 10, 0, 30, 30);
  Stroke(*doc, params, {{2.5, 10.5}, {20.5, 10.5}, {37.5, 10.5}});
  EXPECT_TRUE(SamePixels(px, doc->layers[0].pixels));
}

TEST(CliPaint, RefusesWhatItCannotDo) {
  TempDir dir;
  const std::u16string in = Plain(dir, "w.tvl", 8, 8, 0xFFFFFFFF), out = U(dir / "o.tvl");
  for (std::u16string bad : {u"size=501", u"size=nan", u"size=", u"size=1e10"}) {
    CliResult r = Cli({u"paint", u"brush", bad, u"1,1", in, out});
    EXPECT_EQ(r.status, kCliUsage) << Ascii(bad);
    EXPECT_NE(r.err.find("size: Please enter a value between 1 and 500."), std::string::npos) << r.err;
    EXPECT_EQ(r.err.find("usage:"), std::string::npos) << r.err;
  }
  // An option the tool lacks, a tool it cannot stroke, points that are not
  // two finite numbers or missing, a colour that is not hexadecimal.
  for (const auto& bad : std::vector<std::vector<std::u16string>>{
           {u"brush", u"tolerance=5", u"1,1"}, {u"text", u"1,1"}, {u"brush", u"1,1,1"}, {u"brush", u"nan,1"},
           {u"brush", u"1,inf"}, {u"brush", u"1e300,1"}, {u"eraser", u"size=3"}, {u"brush", u"color=red", u"1,1"}}) {
    std::vector<std::u16string> args{u"paint"};
    args.insert(args.end(), bad.begin(), bad.end());
    args.insert(args.end(), {in, out});
    EXPECT_EQ(Cli(args).status, kCliUsage) << Ascii(bad.back());
  }
  EXPECT_EQ(Cli({u"paint", u"brush", u"1,1", U(dir / "missing.tvl"), out}).status, kCliCannotOpen);
  EXPECT_FALSE(std::filesystem::exists(dir / "o.tvl"));
  EXPECT_EQ(Cli({u"paint", u"Eraser", u"button=right", u"1,1", in, out}).status, kCliOk);
  // Rounded as the options bar would store it: size 2.5 paints as size 3.
  ASSERT_EQ(Cli({u"paint", u"brush", u"size=2.5", u"hardness=100", u"4,4", in, out}).status, kCliOk);
  ASSERT_EQ(Cli({u"paint", u"brush", u"size=3", u"hardness=100", u"4,4", in, U(dir / "3.tvl")}).status, kCliOk);
  EXPECT_TRUE(SamePixels(Bottom(dir / "o.tvl"), Bottom(dir / "3.tvl")));
}

// Click tools, clone and heal, colour depth and the selection written as a PGM.

int Status(const std::vector<std::u16string>& args) { return Cli(args).status; }

std::string ReadAll(const std::filesystem::path& p) {
  const Bytes b = ReadBytes(p);
  return {b.begin(), b.end()};
}

// Left half white, right half black.
std::u16string TwoHalves(const TempDir& dir) {
  auto doc = CreateDocument(6, 4, 72, 0xFFFFFFFF, 0);
  for (int32_t y = 0; y < 4; ++y)
    for (int32_t x = 3; x < 6; ++x) doc->layers[0].pixels.At(x, y) = 0xFF000000;
  return Written(*doc, dir, "halves.tvl");
}

TEST(CliClickTools, FillAndWandActOnOneClickAndTheSelectionIsWrittenAsPgm) {
  TempDir dir;
  const auto in = TwoHalves(dir);
  ASSERT_EQ(Status({u"paint", u"fill", u"color=FF0000", u"1.9,2.7", in, U(dir / "f.tvl")}), kCliOk);
  const Surface filled = Bottom(dir / "f.tvl");
  EXPECT_EQ(filled.At(0, 0), 0xFFFF0000u);
  EXPECT_EQ(filled.At(4, 0), 0xFF000000u);
  // The flood ignores the selection, which only weights the paint.
  ASSERT_EQ(Status({u"paint", u"fill", u"color=FF0000", u"select=0,0,1,4", u"4,1", in, U(dir / "s.tvl")}), kCliOk);
  EXPECT_EQ(Bottom(dir / "s.tvl").At(4, 1), 0xFF000000u);

  ASSERT_EQ(Status({u"paint", u"--selection=" + U(dir / "m.pgm"), u"wand", u"wandtol=0", u"4,2", in, U(dir / "w.tvl")}),
            kCliOk);
  std::string want = "P5\n6 4\n255\n";
  for (int y = 0; y < 4; ++y) want += std::string(3, '\0') + std::string(3, '\xFF');
  EXPECT_EQ(ReadAll(dir / "m.pgm"), want);
  // Nothing selected: all zeros, from apply as from paint.
  ASSERT_EQ(Status({u"apply", u"--selection=" + U(dir / "n.pgm"), u"invert", in, U(dir / "i.tvl")}), kCliOk);
  EXPECT_EQ(ReadAll(dir / "n.pgm"), "P5\n6 4\n255\n" + std::string(24, '\0'));
  EXPECT_EQ(Status({u"paint", u"wand", u"1,1", u"2,2", in, U(dir / "x.tvl")}), kCliUsage);  // one click
  EXPECT_EQ(Status({u"paint", u"--selection=" + U(dir / "no" / "m.pgm"), u"wand", u"1,1", in, U(dir / "y.tvl")}),
            kCliCannotSave);
}

TEST(CliClickTools, CloneTakesItsSourceAndColourDepthItsCounts) {
  TempDir dir;
  const auto in = TwoHalves(dir);
  ASSERT_EQ(Status({u"paint", u"clone", u"source=4.5,1.5", u"size=1", u"hardness=100", u"0.5,1.5", in, U(dir / "c.tvl")}),
            kCliOk);
  EXPECT_EQ(Bottom(dir / "c.tvl").At(0, 1), 0xFF000000u);
  // Without a source the clone paints nothing.
  ASSERT_EQ(Status({u"paint", u"clone", u"size=1", u"0.5,1.5", in, U(dir / "n.tvl")}), kCliOk);
  EXPECT_EQ(Bottom(dir / "n.tvl").At(0, 1), 0xFFFFFFFFu);
  EXPECT_EQ(Status({u"paint", u"spot-heal", u"size=3", u"1,1", in, U(dir / "h.tvl")}), kCliOk);

  for (const char16_t* ok : {u"color-depth=2", u"color-depth=256,dither", u"color-depth=32768", u"color-depth=16777216"})
    EXPECT_EQ(Status({u"apply", ok, in, U(dir / "d.tvl")}), kCliOk) << Ascii(ok);
  ASSERT_EQ(Status({u"apply", u"color-depth=4", in, U(dir / "four.tvl")}), kCliOk);
  EXPECT_EQ(ReadLayeredDocument(dir / "four.tvl")->colorCount, 4);
  for (const char16_t* bad : {u"color-depth=3", u"color-depth=256,blur", u"color-depth", u"color-depth=nan"})
    EXPECT_EQ(Status({u"apply", bad, in, U(dir / "bad.tvl")}), kCliUsage) << Ascii(bad);
  EXPECT_FALSE(std::filesystem::exists(dir / "bad.tvl"));
}

}  // namespace
}  // namespace tavora
