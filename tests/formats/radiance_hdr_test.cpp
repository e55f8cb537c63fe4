#include "formats/radiance_hdr.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tavora {
namespace {

std::vector<uint8_t> Bytes(const std::string& s) { return {s.begin(), s.end()}; }

// A header, the resolution line and the scanlines as given.
std::vector<uint8_t> File(const std::string& resolution, const std::vector<uint8_t>& body,
                          const std::string& head = "#?RADIANCE\nFORMAT=32-bit_rle_rgbe\n\n") {
  std::vector<uint8_t> f = Bytes(head + resolution);
  f.insert(f.end(), body.begin(), body.end());
  return f;
}

std::optional<Surface> Decode(const std::vector<uint8_t>& bytes, float exposure = 0) {
  MemoryInput in(bytes);
  return DecodeRadianceHdr(in, exposure);
}

// Flat pixels, each (m, m, m, e).
std::vector<uint8_t> Flat(const std::vector<std::pair<uint8_t, uint8_t>>& px) {
  std::vector<uint8_t> b;
  for (auto [m, e] : px) b.insert(b.end(), {m, m, m, e});
  return b;
}

TEST(RadianceHdr, TheCurveExposureExponentZeroAndOrientation) {
  EXPECT_EQ(HdrToByte(1.0f), 207);  // (1 - e^-1)^(1/2.2) x 255
  EXPECT_EQ(HdrToByte(0.0f), 0);
  EXPECT_EQ(HdrToByte(1e30f), 255);
  // Two rows of two: value 1.0, value 0.5, black (exponent 0), value 2.0.
  const auto body = Flat({{128, 129}, {128, 128}, {200, 0}, {128, 130}});
  const auto down = Decode(File("-Y 2 +X 2\n", body));
  ASSERT_TRUE(down);
  EXPECT_EQ(down->At(0, 0), 0xFFCFCFCFu);
  EXPECT_EQ(down->At(1, 0), 0xFF000000u | 0x010101u * HdrToByte(0.5f));
  EXPECT_EQ(down->At(0, 1), 0xFF000000u);
  // Exposure +1 doubles every value before the curve.
  EXPECT_EQ(Decode(File("-Y 2 +X 2\n", body), 1.0f)->At(1, 0), 0xFFCFCFCFu);
  // "+Y" is bottom-up, "-X" right to left.
  const auto up = Decode(File("+Y 2 -X 2\n", body));
  ASSERT_TRUE(up);
  EXPECT_EQ(up->At(1, 1), down->At(0, 0));
  EXPECT_EQ(up->At(0, 0), down->At(1, 1));
}

TEST(RadianceHdr, RunLengthScanlinesAndNarrowFlatOnes) {
  // Eight pixels coded per component: red a run of 8 x 128, green literal,
  // blue a run, exponent a run of 129.
  std::vector<uint8_t> coded = {2, 2, 0, 8, 136, 128, 8, 0, 32, 64, 96, 128, 160, 192, 224, 136, 0, 136, 129};
  const auto img = Decode(File("-Y 1 +X 8\n", coded));
  ASSERT_TRUE(img);
  EXPECT_EQ(img->At(0, 0), 0xFFCF0000u);
  EXPECT_EQ((img->At(4, 0) >> 8) & 255, HdrToByte(1.0f));
  // Seven wide: always flat, even when it starts like a coded line.
  std::vector<uint8_t> seven = {2, 2, 0, 7};
  for (int i = 1; i < 7; ++i) seven.insert(seven.end(), {128, 128, 128, 129});
  const auto narrow = Decode(File("-Y 1 +X 7\n", seven));
  ASSERT_TRUE(narrow);
  EXPECT_EQ(narrow->At(6, 0), 0xFFCFCFCFu);
}

TEST(RadianceHdr, BrokenFilesAreRefused) {
  const auto one = Flat({{128, 129}});
  const std::vector<std::vector<uint8_t>> bad = {
      File("-Y 1 +X 1\n", one, "P6\n\n"),                         // no "#?"
      Bytes("#?RADIANCE\nFORMAT=x\n"),                              // no blank line
      File("+X 1 -Y 1\n", one),                                     // X first
      File("-Y 1\n", one),                                          // three items short
      File("-Y 0 +X 1\n", one), File("-Y 1 +X 30001\n", one),      // limits
      File("-Y 20000 +X 20000\n", one),                             // 400 megapixels
      File("-Y 2 +X 1\n", one),                                     // a row short
      File("-Y 1 +X 8\n", {2, 2, 0, 9}),                            // stated width differs
      File("-Y 1 +X 8\n", {2, 2, 0, 8, 0}),                         // code 0
      File("-Y 1 +X 8\n", {2, 2, 0, 8, 137, 1}),                    // a run past the row
      File("-Y 1 +X 8\n", {2, 2, 0, 8, 9}),                         // a literal past the row
      File("-Y 1 +X 8\n", {2, 2, 0, 8, 136}),                       // ends in a run
  };
  for (std::size_t i = 0; i < bad.size(); ++i) EXPECT_FALSE(Decode(bad[i])) << i;
  EXPECT_FALSE(ReadRadianceHdr("/nonexistent/x.hdr", 0));
}

}  // namespace
}  // namespace tavora
