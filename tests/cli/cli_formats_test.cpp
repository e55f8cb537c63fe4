// tavora-cli convert with PSD, Radiance HDR and WebP.
#include <gtest/gtest.h>

#include "cli/cli.h"
#include "formats/layered_format.h"
#include "formats/radiance_hdr.h"
#include "formats/webp_codec.h"

#include <fstream>
#include "pixels.h"
#include "temp_dir.h"

namespace tavora {
namespace {

using testing_support::SamePixels;
using testing_support::TempDir;

struct Outcome {
  int status;
  std::string out, err;
};
Outcome Cli(std::vector<std::u16string> args) {
  Outcome r;
  r.status = RunCli(args, r.out, r.err);
  return r;
}
std::u16string U(const std::filesystem::path& p) { return p.u16string(); }
std::filesystem::path Seed(const char* name) { return std::filesystem::path(TAVORA_SOURCE_DIR) / "fuzz" / "corpus" / name; }

TEST(CliFormats, PsdHdrAndWebpConvert) {
  TempDir dir;
  // A PSD with one pixel layer keeps it; its name comes from the Unicode name.
  ASSERT_EQ(Cli({u"convert", U(Seed("psd/packbits.psd")), U(dir / "p.tvl")}).status, kCliOk);
  const auto psd = ReadLayeredDocument(dir / "p.tvl");
  ASSERT_TRUE(psd);
  EXPECT_EQ(psd->dpi, 300);
  EXPECT_EQ(psd->layers[0].Name(), u"\u00C9x");
  // HDR at two exposures: one EV brighter is brighter.
  ASSERT_EQ(Cli({u"convert", U(Seed("radiance_hdr/flat.hdr")), U(dir / "h0.tvl")}).status, kCliOk);
  ASSERT_EQ(Cli({u"convert", u"--exposure=1", U(Seed("radiance_hdr/flat.hdr")), U(dir / "h1.tvl")}).status, kCliOk);
  const uint32_t dark = ReadLayeredDocument(dir / "h0.tvl")->layers[0].pixels.At(1, 0);
  const uint32_t bright = ReadLayeredDocument(dir / "h1.tvl")->layers[0].pixels.At(1, 0);
  EXPECT_EQ(dark, 0xFF000000u | 0x010101u * HdrToByte(0.5f));
  EXPECT_GT(bright & 255, dark & 255);
  // WebP: lossless round trip exactly; lossy at a quality; both refused together.
  ASSERT_EQ(Cli({u"convert", u"--lossless", U(dir / "h0.tvl"), U(dir / "w.webp")}).status, kCliOk);
  ASSERT_EQ(Cli({u"convert", U(dir / "w.webp"), U(dir / "w.tvl")}).status, kCliOk);
  EXPECT_TRUE(SamePixels(ReadLayeredDocument(dir / "w.tvl")->layers[0].pixels,
                         ReadLayeredDocument(dir / "h0.tvl")->layers[0].pixels));
  ASSERT_EQ(Cli({u"convert", u"--quality=20", U(dir / "h0.tvl"), U(dir / "q.webp")}).status, kCliOk);
  EXPECT_TRUE(ReadWebpFile(dir / "q.webp"));
  for (std::vector<std::u16string> bad : std::vector<std::vector<std::u16string>>{
           {u"convert", u"--quality=0", U(dir / "h0.tvl"), U(dir / "x.webp")},
           {u"convert", u"--exposure=7", U(Seed("radiance_hdr/flat.hdr")), U(dir / "x.tvl")},
           {u"convert", u"--quality=50", u"--lossless", U(dir / "h0.tvl"), U(dir / "x.webp")}}) {
    const Outcome r = Cli(bad);
    EXPECT_EQ(r.status, kCliUsage) << r.err;
  }
  EXPECT_FALSE(std::filesystem::exists(dir / "x.webp"));
  // A broken file: the message, status 1, nothing written.
  std::ofstream(dir / "broken.psd") << "8BPS not really";
  const Outcome broken = Cli({u"convert", U(dir / "broken.psd"), U(dir / "b.tvl")});
  EXPECT_EQ(broken.status, kCliCannotOpen);
  EXPECT_NE(broken.err.find("This file could not be opened."), std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(dir / "b.tvl"));
}

}  // namespace
}  // namespace tavora
