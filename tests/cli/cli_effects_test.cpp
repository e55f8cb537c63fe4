// tavora-cli's effects verb, and layer effects through the other verbs.
#include "cli/cli_effects.h"

#include <gtest/gtest.h>

#include "base/unicode.h"
#include "cli/cli.h"
#include "document/blend.h"
#include "document/composite.h"
#include "document/effect_params.h"
#include "formats/file_formats.h"
#include "formats/layered_format.h"
#include "pixels.h"
#include "temp_dir.h"
#ifdef _WIN32
#include "platform/gdiplus_codecs_win32.h"
#endif

namespace tavora {
namespace {

using testing_support::SamePixels;
using testing_support::TempDir;

struct Result {
  int status = -1;
  std::string out, err;
};

Result Effects(std::vector<std::u16string> args) {
  Result r;
  args.insert(args.begin(), u"effects");
  const auto status = RunEffectsCommand(args, r.out, r.err);
  r.status = status.value_or(-1);
  return r;
}

std::u16string U(const std::filesystem::path& p) { return p.u16string(); }
std::string Path(const std::filesystem::path& p) { return Utf16ToUtf8(p.u16string()); }

// White ground and a layer holding a blue square.
std::filesystem::path SquareFile(const TempDir& dir) {
  auto doc = CreateDocument(40, 30, 72, 0xFFFFFFFF, 0);
  doc->layers.emplace_back(40, 30, u"square");
  for (int y = 8; y < 20; ++y)
    for (int x = 10; x < 26; ++x) doc->layers[1].pixels.At(x, y) = 0xFF2040C0;
  EXPECT_TRUE(WriteLayeredDocument(*doc, dir / "in.tvl"));
  return dir / "in.tvl";
}

TEST(CliEffects, SetsValuesByNameAndTheyTravelThroughApplyAndFlatten) {
  TempDir dir;
  const auto in = SquareFile(dir);
  Result set = Effects({u"1", u"shadow.on=1", u"shadow.blur=12", u"shadow.x=-3", u"stroke.on=1",
                        u"stroke.thickness=4", u"stroke.position=center", u"stroke.color=#ff8000",
                        u"bloom.on=1", u"bloom.glow=layer", u"overlay.blend=soft-light", U(in), U(dir / "fx.tvl")});
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
  ASSERT_EQ(RunCli({u"apply", u"gaussian-blur=1.5", U(dir / "fx.tvl"), U(dir / "blurred.tvl")}, set.out, set.err),
            kCliOk);
  auto blurred = ReadLayeredDocument(dir / "blurred.tvl");
  ASSERT_TRUE(blurred);
  EXPECT_EQ(blurred->layers[1].effects, want);

  // Flattening bakes the effects: the flat layer is what the canvas shows.
  ASSERT_EQ(RunCli({u"convert", u"--flatten", U(dir / "fx.tvl"), U(dir / "flat.tvl")}, set.out, set.err), kCliOk);
  auto flat = ReadLayeredDocument(dir / "flat.tvl");
  ASSERT_TRUE(flat);
  ASSERT_EQ(flat->LayerCount(), 1);
  EXPECT_TRUE(SamePixels(flat->layers[0].pixels, FlatCopy(*doc, 0, Matte::None)));
  EXPECT_EQ(flat->layers[0].pixels.At(9, 14) & 0xFFFFFF, 0xFF8000u);   // the centred stroke
  EXPECT_NE(flat->layers[0].pixels.At(20, 24), 0xFFFFFFFFu);           // the shadow below the square
  auto plain = ReadLayeredDocument(in);
  EXPECT_FALSE(SamePixels(flat->layers[0].pixels, FlatCopy(*plain, 0, Matte::None)));
#ifdef _WIN32
  // A flat format through the system's codec holds the same picture.
  ASSERT_TRUE(StartGdiplusCodecs());
  SetSystemCodec(&GdiplusCodecs());
  EXPECT_EQ(RunCli({u"convert", U(dir / "fx.tvl"), U(dir / "fx.png")}, set.out, set.err), kCliOk);
  auto png = ReadDocumentFile(dir / "fx.png");
  SetSystemCodec(nullptr);
  StopGdiplusCodecs();
  ASSERT_TRUE(png);
  EXPECT_TRUE(SamePixels(png->layers[0].pixels, FlatCopy(*doc, 0, Matte::None)));
#endif
}

TEST(CliEffects, RefusalsLeaveNothingWritten) {
  TempDir dir;
  const auto in = SquareFile(dir);
  const auto out = dir / "out.tvl";
  const struct {
    std::vector<std::u16string> args;
    int status;
    std::string err;
  } table[] = {
      {{u"1", u"stroke.thickness=501", U(in), U(out)}, kCliUsage,
       "stroke.thickness: Please enter a value between 1 and 500.\n"},
      {{u"1", u"bloom.intensity=-1", U(in), U(out)}, kCliUsage,
       "bloom.intensity: Please enter a value between 0 and 300.\n"},
      {{u"1", u"shadow.blur=wide", U(in), U(out)}, kCliUsage, "shadow.blur: Please enter a value between 0 and 500.\n"},
      {{u"1", u"stroke.position=middle", U(in), U(out)}, kCliUsage,
       "stroke.position: choose one of outside|center|inside\n"},
      {{u"1", u"stroke.color=orange", U(in), U(out)}, kCliUsage, "stroke.color must be six hexadecimal digits RRGGBB\n"},
      {{u"1", u"shadow.size=3", U(in), U(out)}, kCliUsage,
       "shadow.size: no such effect setting (tavora-cli effects --list shows them)\n"},
      {{u"1", u"shadow.on", U(in), U(out)}, kCliUsage, "shadow.on: expected KEY=VALUE\n"},
      {{u"2", u"shadow.on=1", U(in), U(out)}, kCliUsage,
       "LAYER: 2 is past the top layer; the file has 2 layers (0 to 1)\n"},
      {{u"-1", u"shadow.on=1", U(in), U(out)}, kCliUsage, "LAYER must be a layer's index, 0 for the bottom layer: -1\n"},
      {{u"1", u"shadow.on=1", U(dir / "missing.tvl"), U(out)}, kCliCannotOpen,
       "This file could not be opened.\n" + Path(dir / "missing.tvl") + "\n"},
      {{u"1", u"shadow.on=1", U(in), U(dir / "no-folder" / "o.tvl")}, kCliCannotSave,
       "The file could not be saved.\n" + Path(dir / "no-folder" / "o.tvl") + "\n"},
  };
  for (const auto& row : table) {
    const Result r = Effects(row.args);
    EXPECT_EQ(r.status, row.status) << row.err;
    EXPECT_EQ(r.err, row.err);
    EXPECT_FALSE(std::filesystem::exists(out)) << row.err;
  }
  EXPECT_EQ(Effects({U(in), U(out)}).status, kCliUsage);  // too few operands
  std::string o, e;
  EXPECT_FALSE(RunEffectsCommand({u"convert", U(in), U(out)}, o, e).has_value());  // not its verb
}

TEST(CliEffects, ListNamesEveryKeyWithRangeAndDefault) {
  const Result r = Effects({u"--list"});
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
