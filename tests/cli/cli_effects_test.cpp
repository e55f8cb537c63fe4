// tavora-cli's effects verb, and layer effects through the other verbs.
#include "cli/cli_effects.h"

#include <gtest/gtest.h>

#include "base/unicode.h"
#include "cli_run.h"
#include "document/blend.h"
#include "document/composite.h"
#include "document/effect_params.h"
#include "formats/file_formats.h"
#include "pixels.h"
#ifdef _WIN32
#include "platform/gdiplus_codecs_win32.h"
#endif

namespace tavora {
namespace {

using namespace testing_support;

CliResult Effects(std::vector<std::u16string> args) {
  CliResult r;
  args.insert(args.begin(), u"effects");
  r.status = RunEffectsCommand(args, r.out, r.err).value_or(-1);
  return r;
}

std::string Path(const std::filesystem::path& p) { return Utf16ToUtf8(p.u16string()); }

// White ground and a layer holding a blue square.
std::u16string SquareFile(const TempDir& dir) {
  auto doc = CreateDocument(40, 30, 72, 0xFFFFFFFF, 0);
  doc->layers.emplace_back(40, 30, u"square");
  for (int y = 8; y < 20; ++y)
    for (int x = 10; x < 26; ++x) doc->layers[1].pixels.At(x, y) = 0xFF2040C0;
  return Written(*doc, dir, "in.tvl");
}

TEST(CliEffects, SetsValuesByNameAndTheyTravelThroughApplyAndFlatten) {
  TempDir dir;
  const auto in = SquareFile(dir);
  CliResult set = Effects({u"1", u"shadow.on=1", u"shadow.blur=12", u"shadow.x=-3", u"stroke.on=1",
                        u"stroke.thickness=4", u"stroke.position=center", u"stroke.color=#ff8000",
                        u"bloom.on=1", u"bloom.glow=layer", u"overlay.blend=soft-light", in, U(dir / "fx.tvl")});
  ASSERT_EQ(set.status, kCliOk) << set.err;
  auto doc = ReadLayeredDocument(dir / "fx.tvl");
  ASSERT_TRUE(doc);
  LayerEffects want;
  // (The file keeps Stroke and Bloom values only while a layer uses them.)
  want.dropShadow.on = want.stroke.on = want.bloom.on = true;
  want.dropShadow.size = 12;
  want.dropShadow.offsetX = -3;
  want.stroke.thickness = 4;
  want.stroke.position = kStrokeCenter;
  want.stroke.color = 0xFF8000;
  want.bloom.glow = kBloomLayerColors;
  want.colorOverlay.blendMode = kBlendSoftLight;
  EXPECT_EQ(doc->layers[1].effects, want);
  EXPECT_EQ(doc->layers[0].effects, LayerEffects{});

  // An operation on the file keeps every effect value as it was.
  ASSERT_EQ(Cli({u"apply", u"gaussian-blur=1.5", U(dir / "fx.tvl"), U(dir / "blurred.tvl")}).status, kCliOk);
  auto blurred = ReadLayeredDocument(dir / "blurred.tvl");
  ASSERT_TRUE(blurred);
  EXPECT_EQ(blurred->layers[1].effects, want);

  // Flattening bakes the effects: the flat layer is what the canvas shows.
  ASSERT_EQ(Cli({u"convert", u"--flatten", U(dir / "fx.tvl"), U(dir / "flat.tvl")}).status, kCliOk);
  auto flat = ReadLayeredDocument(dir / "flat.tvl");
  ASSERT_TRUE(flat && flat->LayerCount() == 1);
  EXPECT_TRUE(SamePixels(flat->layers[0].pixels, FlatCopy(*doc, 0, Matte::None)));
#ifdef _WIN32
  // A flat format through the system's codec holds the same picture.
  ASSERT_TRUE(StartGdiplusCodecs());
  SetSystemCodec(&GdiplusCodecs());
  EXPECT_EQ(Cli({u"convert", U(dir / "fx.tvl"), U(dir / "fx.png")}).status, kCliOk);
  auto png = ReadDocumentFile(dir / "fx.png");
  SetSystemCodec(nullptr);
  StopGdiplusCodecs();
  ASSERT_TRUE(png);
  EXPECT_TRUE(SamePixels(png->layers[0].pixels, FlatCopy(*doc, 0, Matte::None)));
#endif
}

TEST(CliEffects, RefusalsLeaveNothingWritten) {
  TempDir dir;
  const std::u16string in = SquareFile(dir);
  const std::filesystem::path out = dir / "out.tvl", missing = dir / "missing.tvl", unsaved = dir / "no-folder" / "o.tvl";
  const struct {
    std::u16string layer, setting;
    std::string err;
    int status = kCliUsage;
    std::u16string from = {};
    std::filesystem::path to = {};
  } table[] = {
      {u"1", u"stroke.thickness=501", "stroke.thickness: Please enter a value between 1 and 500.\n"},
      {u"1", u"bloom.intensity=-1", "bloom.intensity: Please enter a value between 0 and 300.\n"},
      {u"1", u"shadow.blur=wide", "shadow.blur: Please enter a value between 0 and 500.\n"},
      {u"1", u"stroke.position=middle", "stroke.position: choose one of outside|center|inside\n"},
      {u"1", u"stroke.color=orange", "stroke.color must be six hexadecimal digits RRGGBB\n"},
      {u"1", u"shadow.size=3", "shadow.size: no such effect setting (tavora-cli effects --list shows them)\n"},
      {u"1", u"shadow.on", "shadow.on: expected KEY=VALUE\n"},
      {u"2", u"shadow.on=1", "LAYER: 2 is past the top layer; the file has 2 layers (0 to 1)\n"},
      {u"-1", u"shadow.on=1", "LAYER must be a layer's index, 0 for the bottom layer: -1\n"},
      {u"1", u"shadow.on=1", "This file could not be opened.\n" + Path(missing) + "\n", kCliCannotOpen, U(missing)},
      {u"1", u"shadow.on=1", "The file could not be saved.\n" + Path(unsaved) + "\n", kCliCannotSave, in, unsaved},
  };
  for (const auto& row : table) {
    const CliResult r =
        Effects({row.layer, row.setting, row.from.empty() ? in : row.from, U(row.to.empty() ? out : row.to)});
    EXPECT_EQ(r.status, row.status) << row.err;
    EXPECT_EQ(r.err, row.err);
    EXPECT_FALSE(std::filesystem::exists(out)) << row.err;
  }
  EXPECT_EQ(Effects({in, U(out)}).status, kCliUsage);  // too few operands
  std::string o, e;
  EXPECT_FALSE(RunEffectsCommand({u"convert", in, U(out)}, o, e).has_value());  // not its verb
}

TEST(CliEffects, ListNamesEveryKeyWithRangeAndDefault) {
  const CliResult r = Effects({u"--list"});
  ASSERT_EQ(r.status, kCliOk);
  for (const EffectParam& p : EffectParams())
    EXPECT_NE(r.out.find("  " + std::string(p.key) + " "), std::string::npos) << p.key;
  EXPECT_NE(r.out.find("  shadow.blur          0..500 px"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("default 8\n"), std::string::npos);
  EXPECT_NE(r.out.find("  stroke.position      outside|center|inside"), std::string::npos);
  EXPECT_NE(r.out.find("  outerglow.color      RRGGBB                               default FFD84A\n"),
            std::string::npos);
  EXPECT_NE(r.out.find("\nGradient Overlay\n"), std::string::npos);
}

}  // namespace
}  // namespace tavora
