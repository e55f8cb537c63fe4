#include "cli/cli.h"

#include <gtest/gtest.h>

#include "document/composite.h"
#include "formats/layered_format.h"
#include "pixels.h"
#include "temp_dir.h"
#include "tool_helpers.h"

namespace tavora {
namespace {

using testing_support::SamePixels;
using testing_support::TempDir;

struct Result {
  int status;
  std::string out, err;
};

Result Cli(std::vector<std::u16string> args) {
  Result r;
  r.status = RunCli(args, r.out, r.err);
  return r;
}

std::u16string U(const std::filesystem::path& p) { return p.u16string(); }
std::string Ascii(std::u16string_view text) { return {text.begin(), text.end()}; }

// Writes a one-layer document of one colour and returns its path as an argument.
std::u16string Plain(const TempDir& dir, const char* name, int32_t w, int32_t h, uint32_t colour) {
  EXPECT_TRUE(WriteLayeredDocument(*CreateDocument(w, h, 72, colour, 0), dir / name));
  return U(dir / name);
}

// Background, a half-transparent Multiply layer with a stroke, and a hidden
// layer named with characters outside ASCII.
std::unique_ptr<Document> ThreeLayers() {
  auto doc = CreateDocument(4, 3, 150, 0xFF8080FF, 0);
  doc->layers.emplace_back(4, 3, u"Ink \"q\"");
  doc->layers[1].blendMode = 1;
  doc->layers[1].opacity = 128;
  doc->layers[1].pixels.Fill(0xFF00FF00);
  doc->layers[1].effects.stroke.on = true;
  doc->layers[1].effects.dropShadow.on = true;
  doc->layers.emplace_back(4, 3, u"\u00C9t\u00E9 \U0001F600");
  doc->layers[2].visible = false;
  doc->active = 1;
  return doc;
}

TEST(CliInfo, TextAndJsonDescribeEveryLayer) {
  TempDir dir;
  ASSERT_TRUE(WriteLayeredDocument(*ThreeLayers(), dir / "d.tvl"));
  Result text = Cli({u"info", U(dir / "d.tvl")});
  EXPECT_EQ(text.status, kCliOk);
  EXPECT_EQ(text.out,
            "Size: 4 x 3\nDPI: 150\nColors: 16777216\nActive layer: 1\nLayers (bottom first): 3\n"
            "  0: \"Background\", visible, opacity 255, Normal, Background, effects: none\n"
            "  1: \"Ink \"q\"\", visible, opacity 128, Multiply, effects: Drop Shadow, Stroke\n"
            "  2: \"\xC3\x89t\xC3\xA9 \xF0\x9F\x98\x80\", hidden, opacity 255, Normal, effects: none\n");
  Result json = Cli({u"info", u"--json", U(dir / "d.tvl")});
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
  ASSERT_TRUE(WriteLayeredDocument(*doc, dir / "in.tvl"));
  EXPECT_EQ(Cli({u"convert", U(dir / "in.tvl"), U(dir / "copy.KZL")}).status, kCliOk);
  auto copy = ReadLayeredDocument(dir / "copy.KZL");
  ASSERT_TRUE(copy);
  EXPECT_EQ(copy->LayerCount(), 3);
  EXPECT_EQ(copy->layers[2].Name(), doc->layers[2].Name());

  EXPECT_EQ(Cli({u"convert", u"--flatten", U(dir / "in.tvl"), U(dir / "flat.tvl")}).status, kCliOk);
  auto flat = ReadLayeredDocument(dir / "flat.tvl");
  ASSERT_TRUE(flat);
  ASSERT_EQ(flat->LayerCount(), 1);
  EXPECT_EQ(flat->layers[0].Name(), u"Background");
  EXPECT_TRUE(flat->layers[0].opaqueBackground);
  EXPECT_EQ(flat->layers[0].pixels.At(3, 2), CompositePixel(*doc, 3, 2));

  // One transparent pixel in the result clears the Background flag.
  doc->layers[0].pixels.At(0, 0) = doc->layers[1].pixels.At(0, 0) = 0;
  ASSERT_TRUE(WriteLayeredDocument(*doc, dir / "hole.tvl"));
  ASSERT_EQ(Cli({u"convert", u"--flatten", U(dir / "hole.tvl"), U(dir / "flat.tvl")}).status, kCliOk);
  flat = ReadLayeredDocument(dir / "flat.tvl");
  ASSERT_TRUE(flat);
  EXPECT_FALSE(flat->layers[0].opaqueBackground);
}

TEST(CliErrors, StatusesMessagesAndNoPartialOutput) {
  TempDir dir;
  ASSERT_TRUE(WriteLayeredDocument(*ThreeLayers(), dir / "in.tvl"));
  Result missing = Cli({u"info", U(dir / "nope.tvl")});
  EXPECT_EQ(missing.status, kCliCannotOpen);
  EXPECT_EQ(missing.err, "This file could not be opened.\n" + (dir / "nope.tvl").string() + "\n");
  EXPECT_TRUE(missing.out.empty());
  // A format without a reader yet cannot be opened either.
  EXPECT_EQ(Cli({u"convert", U(dir / "in.png"), U(dir / "o.tvl")}).status, kCliCannotOpen);

  Result unsaved = Cli({u"convert", U(dir / "in.tvl"), U(dir / "no-folder" / "o.tvl")});
  EXPECT_EQ(unsaved.status, kCliCannotSave);
  EXPECT_EQ(unsaved.err, "The file could not be saved.\n" + (dir / "no-folder" / "o.tvl").string() + "\n");
  EXPECT_EQ(Cli({u"convert", U(dir / "in.tvl"), U(dir / "o.bmp")}).status, kCliCannotSave);
  EXPECT_FALSE(std::filesystem::exists(dir / "o.bmp"));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 1);

  for (const auto& bad : std::vector<std::vector<std::u16string>>{
           {}, {u"info"}, {u"info", u"a", u"b"}, {u"convert", u"a"}, {u"frobnicate", u"a"},
           {u"info", u"--flatten", u"a.tvl"}, {u"convert", u"--json", u"a", u"b"}}) {
    Result r = Cli(bad);
    EXPECT_EQ(r.status, kCliUsage) << bad.size();
    EXPECT_NE(r.err.find("usage: tavora-cli"), std::string::npos);
  }
}

TEST(CliApply, RunsTableOperationsInOrderAndChecksRanges) {
  TempDir dir;
  const std::u16string in = Plain(dir, "in.tvl", 4, 4, 0xFF204080), x = U(dir / "x.tvl");
  Result r = Cli({u"apply", u"invert", u"brightness-contrast=10", in, U(dir / "out.tvl")});
  ASSERT_EQ(r.status, kCliOk) << r.err;
  auto out = ReadLayeredDocument(dir / "out.tvl");
  ASSERT_TRUE(out);
  EXPECT_EQ(out->layers[0].pixels.At(1, 1), 0xFFF3D393u);  // inverted to DFBF7F, then brightness 10 adds 20

  // Values out of range, not finite or empty: the row's message alone, nothing written.
  for (std::u16string bad : {u"gaussian-blur=250", u"gaussian-blur=nan", u"gaussian-blur=inf", u"gaussian-blur=",
                             u"gaussian-blur=0.04", u"brightness-contrast=10,", u"gaussian-blur=2x"}) {
    Result range = Cli({u"apply", bad, in, x});
    EXPECT_EQ(range.status, kCliUsage) << Ascii(bad);
    EXPECT_NE(range.err.find("Please enter a value between "), std::string::npos) << range.err;
    EXPECT_EQ(range.err.find("usage:"), std::string::npos) << range.err;
    EXPECT_FALSE(std::filesystem::exists(dir / "x.tvl"));
  }
  // An unknown operation, values for an immediate one, an unknown choice, a
  // third colour.
  for (std::u16string bad : {u"frobnicate", u"invert=3", u"add-noise=30,2",
                             u"spiral=10,100,0,#FF0000,#0000FF,#00FF00"})
    EXPECT_EQ(Cli({u"apply", bad, in, x}).status, kCliUsage) << Ascii(bad);
  EXPECT_FALSE(std::filesystem::exists(dir / "x.tvl"));
  EXPECT_EQ(Cli({u"apply", u"Add Noise=30,option,uniform", in, U(dir / "n.tvl")}).status, kCliOk);

  // A typed value is rounded to the row's decimals, as the slider stores it:
  // threshold 127.6 is 128, which turns luminance 127 black (127 would not).
  ASSERT_EQ(Cli({u"apply", u"threshold=127.6", Plain(dir, "grey.tvl", 2, 2, 0xFF7F7F7F), U(dir / "t.tvl")}).status,
            kCliOk);
  EXPECT_EQ(ReadLayeredDocument(dir / "t.tvl")->layers[0].pixels.At(0, 0), 0xFF000000u);

  Result ops = Cli({u"ops"});
  EXPECT_EQ(ops.status, kCliOk);
  EXPECT_NE(ops.out.find("gaussian-blur (\"Gaussian Blur\")\n    Radius (px): 0.1..100, default 3\n"),
            std::string::npos);
  EXPECT_NE(ops.out.find("hdr-tone-map (\"HDR Tone Map\")\n    Exposure (EV): -3..3, default 0\n"),
            std::string::npos);
  EXPECT_NE(ops.out.find("edge-detect (\"Edge Detect\")"), std::string::npos);
}

TEST(CliApply, SpiralTakesItsColoursAfterTheRows) {
  TempDir dir;
  const std::u16string in = Plain(dir, "g.tvl", 60, 60, 0xFF808080);
  Result r = Cli({u"apply", u"spiral=10,100,0,#FF0000,#0000FF", in, U(dir / "s.tvl")});
  ASSERT_EQ(r.status, kCliOk) << r.err;
  auto doc = ReadLayeredDocument(dir / "s.tvl");
  ASSERT_TRUE(doc);
  const Surface& px = doc->layers[0].pixels;
  EXPECT_EQ(px.At(35, 30), 0xFFFF0000u);  // 5.5 px right of the centre: the line
  EXPECT_EQ(px.At(45, 30), 0xFF0000FFu);  // 15.5 px: the gap
  EXPECT_EQ(px.At(0, 0), 0xFF808080u);    // outside the radius
}

// select= sets the selection for the steps after it; the flare starts in
// the middle of the selection unless placed; fill-from-surroundings needs
// a selection and keeps to it.
TEST(CliApply, SelectionStepsLensFlareAndFillFromSurroundings) {
  TempDir dir;
  const std::u16string in = Plain(dir, "g.tvl", 80, 60, 0xFF404040);
  ASSERT_EQ(Cli({u"apply", u"select=40,0,80,60", u"lens-flare=,,,", in, U(dir / "x.tvl")}).status, kCliUsage);
  Result r = Cli({u"apply", u"select=40,0,80,60", u"lens-flare", in, U(dir / "f.tvl")});
  ASSERT_EQ(r.status, kCliOk) << r.err;
  const Surface flare = ReadLayeredDocument(dir / "f.tvl")->layers[0].pixels;
  EXPECT_EQ(flare.At(10, 30), 0xFF404040u);                // outside the selection
  EXPECT_GT(flare.At(60, 30) & 0xFF, flare.At(45, 5) & 0xFF);  // brightest at the middle
  EXPECT_EQ(Cli({u"apply", u"lens-flare=5,5,0", in, U(dir / "z.tvl")}).status, kCliOk);  // brightness 0
  EXPECT_TRUE(SamePixels(ReadLayeredDocument(dir / "z.tvl")->layers[0].pixels,
                         ReadLayeredDocument(dir / "g.tvl")->layers[0].pixels));

  auto doc = CreateDocument(80, 60, 72, 0xFFE0E0E0, 0);
  for (int32_t x = 10; x < 70; ++x) doc->layers[0].pixels.At(x, 30) = 0xFF000000;
  ASSERT_TRUE(WriteLayeredDocument(*doc, dir / "line.tvl"));
  Result none = Cli({u"apply", u"fill-from-surroundings", U(dir / "line.tvl"), U(dir / "x.tvl")});
  EXPECT_EQ(none.status, kCliUsage);
  EXPECT_NE(none.err.find("needs a selection"), std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(dir / "x.tvl"));
  EXPECT_EQ(Cli({u"apply", u"select=20,20,40,40", u"fill-from-surroundings=101", U(dir / "line.tvl"), U(dir / "x.tvl")})
                .status,
            kCliUsage);
  r = Cli({u"apply", u"select=20,25,40,35", u"fill-from-surroundings=2", U(dir / "line.tvl"), U(dir / "h.tvl")});
  ASSERT_EQ(r.status, kCliOk) << r.err;
  const Surface healed = ReadLayeredDocument(dir / "h.tvl")->layers[0].pixels;
  EXPECT_EQ(healed.At(15, 30), 0xFF000000u);  // outside the grown selection
  EXPECT_EQ(healed.At(30, 30), 0xFFE0E0E0u);  // the line is gone inside it

  Result ops = Cli({u"ops"});
  for (const char* name : {"\nlens-flare (\"Lens Flare\")\n    Center X:", "\nfill-from-surroundings (",
                           "\nwhiten-area (\"Whiten Area\")\n", "\nselect ("})
    EXPECT_NE(ops.out.find(name), std::string::npos) << name;
  EXPECT_EQ(ops.out.find("not available yet"), std::string::npos);
}

TEST(CliPaint, StrokesLikeTheCanvasAndKeepsToTheSelection) {
  TempDir dir;
  Result r = Cli({u"paint", u"brush", u"size=6", u"hardness=100", u"color=FF0000", u"select=10,0,30,30", u"2.5,10.5",
                  u"20.5,10.5", u"37.5,10.5", Plain(dir, "w.tvl", 40, 30, 0xFFFFFFFF), U(dir / "p.tvl")});
  ASSERT_EQ(r.status, kCliOk) << r.err;
  auto painted = ReadLayeredDocument(dir / "p.tvl");
  ASSERT_TRUE(painted);
  const Surface& px = painted->layers[0].pixels;
  EXPECT_EQ(px.At(5, 10), 0xFFFFFFFFu);   // on the path, outside the selection
  EXPECT_EQ(px.At(15, 10), 0xFFFF0000u);  // inside it
  EXPECT_EQ(px.At(15, 20), 0xFFFFFFFFu);  // off the path
  EXPECT_EQ(px.At(35, 10), 0xFFFFFFFFu);

  // The same stroke through the engine directly gives the same pixels.
  auto doc = CreateDocument(40, 30, 72, 0xFFFFFFFF, 0);
  BrushParams params = testing_support::Params(BrushTool::Brush, 6, 100);
  params.primary = 0xFFFF0000;
  testing_support::SelectRect(*doc, 10, 0, 30, 30);
  testing_support::Stroke(*doc, params, {{2.5, 10.5}, {20.5, 10.5}, {37.5, 10.5}});
  EXPECT_TRUE(SamePixels(px, doc->layers[0].pixels));
}

TEST(CliPaint, RefusesWhatItCannotDo) {
  TempDir dir;
  const std::u16string in = Plain(dir, "w.tvl", 8, 8, 0xFFFFFFFF), out = U(dir / "o.tvl");
  for (std::u16string bad : {u"size=501", u"size=nan", u"size=", u"size=1e10"}) {
    Result r = Cli({u"paint", u"brush", bad, u"1,1", in, out});
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
  EXPECT_TRUE(SamePixels(ReadLayeredDocument(dir / "o.tvl")->layers[0].pixels,
                         ReadLayeredDocument(dir / "3.tvl")->layers[0].pixels));
}

}  // namespace
}  // namespace tavora
