// tavora-cli's click tools, clone and heal, colour depth and the selection
// written as a PGM.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "cli/cli.h"
#include "formats/layered_format.h"
#include "temp_dir.h"

namespace tavora {
namespace {

using testing_support::TempDir;

int Cli(std::vector<std::u16string> args, std::string* err = nullptr) {
  std::string out, e;
  const int status = RunCli(args, out, e);
  if (err) *err = e;
  return status;
}

std::u16string U(const std::filesystem::path& p) { return p.u16string(); }

std::string ReadAll(const std::filesystem::path& p) {
  std::ifstream in(p, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

// Left half white, right half black.
std::filesystem::path TwoHalves(const TempDir& dir) {
  auto doc = CreateDocument(6, 4, 72, 0xFFFFFFFF, 0);
  for (int32_t y = 0; y < 4; ++y)
    for (int32_t x = 3; x < 6; ++x) doc->layers[0].pixels.At(x, y) = 0xFF000000;
  EXPECT_TRUE(WriteLayeredDocument(*doc, dir / "halves.tvl"));
  return dir / "halves.tvl";
}

TEST(CliClickTools, FillAndWandActOnOneClickAndTheSelectionIsWrittenAsPgm) {
  TempDir dir;
  const auto in = TwoHalves(dir);
  ASSERT_EQ(Cli({u"paint", u"fill", u"color=FF0000", u"1.9,2.7", U(in), U(dir / "f.tvl")}), kCliOk);
  const auto doc = ReadLayeredDocument(dir / "f.tvl");
  const Surface& filled = doc->layers[0].pixels;
  EXPECT_EQ(filled.At(0, 0), 0xFFFF0000u);
  EXPECT_EQ(filled.At(4, 0), 0xFF000000u);
  // The flood ignores the selection, which only weights the paint.
  ASSERT_EQ(Cli({u"paint", u"fill", u"color=FF0000", u"select=0,0,1,4", u"4,1", U(in), U(dir / "s.tvl")}), kCliOk);
  EXPECT_EQ(ReadLayeredDocument(dir / "s.tvl")->layers[0].pixels.At(4, 1), 0xFF000000u);

  ASSERT_EQ(Cli({u"paint", u"--selection=" + U(dir / "m.pgm"), u"wand", u"wandtol=0", u"4,2", U(in),
                 U(dir / "w.tvl")}),
            kCliOk);
  std::string want = "P5\n6 4\n255\n";
  for (int y = 0; y < 4; ++y) want += std::string(3, '\0') + std::string(3, '\xFF');
  EXPECT_EQ(ReadAll(dir / "m.pgm"), want);
  // Nothing selected: all zeros, from apply as from paint.
  ASSERT_EQ(Cli({u"apply", u"--selection=" + U(dir / "n.pgm"), u"invert", U(in), U(dir / "i.tvl")}), kCliOk);
  EXPECT_EQ(ReadAll(dir / "n.pgm"), "P5\n6 4\n255\n" + std::string(24, '\0'));
  EXPECT_EQ(Cli({u"paint", u"wand", u"1,1", u"2,2", U(in), U(dir / "x.tvl")}), kCliUsage);  // one click
  EXPECT_EQ(Cli({u"paint", u"--selection=" + U(dir / "no" / "m.pgm"), u"wand", u"1,1", U(in), U(dir / "y.tvl")}),
            kCliCannotSave);
}

TEST(CliClickTools, CloneTakesItsSourceAndColourDepthItsCounts) {
  TempDir dir;
  const auto in = TwoHalves(dir);
  ASSERT_EQ(Cli({u"paint", u"clone", u"source=4.5,1.5", u"size=1", u"hardness=100", u"0.5,1.5", U(in),
                 U(dir / "c.tvl")}),
            kCliOk);
  EXPECT_EQ(ReadLayeredDocument(dir / "c.tvl")->layers[0].pixels.At(0, 1), 0xFF000000u);
  // Without a source the clone paints nothing.
  ASSERT_EQ(Cli({u"paint", u"clone", u"size=1", u"0.5,1.5", U(in), U(dir / "n.tvl")}), kCliOk);
  EXPECT_EQ(ReadLayeredDocument(dir / "n.tvl")->layers[0].pixels.At(0, 1), 0xFFFFFFFFu);
  EXPECT_EQ(Cli({u"paint", u"spot-heal", u"size=3", u"1,1", U(in), U(dir / "h.tvl")}), kCliOk);

  for (const char16_t* ok : {u"color-depth=2", u"color-depth=256,dither", u"color-depth=32768", u"color-depth=16777216"})
    EXPECT_EQ(Cli({u"apply", ok, U(in), U(dir / "d.tvl")}), kCliOk) << std::u16string(ok).size();
  EXPECT_EQ(ReadLayeredDocument(dir / "d.tvl")->colorCount, 16777216);
  ASSERT_EQ(Cli({u"apply", u"color-depth=4", U(in), U(dir / "four.tvl")}), kCliOk);
  EXPECT_EQ(ReadLayeredDocument(dir / "four.tvl")->colorCount, 4);
  for (const char16_t* bad : {u"color-depth=3", u"color-depth=256,blur", u"color-depth", u"color-depth=nan"})
    EXPECT_EQ(Cli({u"apply", bad, U(in), U(dir / "bad.tvl")}), kCliUsage);
  EXPECT_FALSE(std::filesystem::exists(dir / "bad.tvl"));
}

}  // namespace
}  // namespace tavora
