#include "formats/jpeg_dc_decode.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

#include "file_bytes.h"

namespace tavora {
namespace {

// Small JPEG files made with ImageMagick from a 64 x 32 picture of eight flat
// 16 x 16 colour squares: 4:4:4, 4:2:0, grey, progressive, and 60 x 30 cut.
testing_support::Bytes Sample(const char* name) {
  return testing_support::ReadBytes(std::filesystem::path(TAVORA_SOURCE_DIR) / "tests" / "data" / "jpeg" / name);
}

// The squares' colours, left to right, top row then bottom row.
constexpr uint32_t kSquares[8] = {0xC03020, 0x20A040, 0x3050D0, 0xE0E0E0, 0x101010, 0x808080, 0xF0C000, 0x00C0C0};

// The same squares as ImageMagick's grey conversion made them.
constexpr uint32_t kGreySquares[8] = {77, 126, 82, 224, 16, 128, 188, 151};
uint32_t Grey(int square) { return kGreySquares[square] * 0x010101u; }

void ExpectNear(uint32_t got, uint32_t want, int tolerance, const char* what, int x, int y) {
  for (int shift : {0, 8, 16}) {
    const int a = got >> shift & 0xFF, b = want >> shift & 0xFF;
    EXPECT_LE(std::abs(a - b), tolerance) << what << " at " << x << "," << y << " channel " << shift;
  }
  EXPECT_EQ(got >> 24, 0xFFu);
}

TEST(JpegDc, EachBlockBecomesItsAverageColour) {
  const struct {
    const char* name;
    const char* file;
    bool grey;
    int32_t width, height;
  } cases[] = {
      {"4:4:4", "s444.jpg", false, 64, 32},
      {"4:2:0", "s420.jpg", false, 64, 32},
      {"grey", "gray.jpg", true, 64, 32},
      {"60 x 30", "odd.jpg", false, 60, 30},
  };
  for (const auto& c : cases) {
    const auto image = DecodeJpegDc(Sample(c.file));
    ASSERT_TRUE(image) << c.name;
    EXPECT_EQ(image->width, c.width) << c.name;
    EXPECT_EQ(image->height, c.height) << c.name;
    ASSERT_EQ(image->pixels.Width(), (c.width + 7) / 8) << c.name;
    ASSERT_EQ(image->pixels.Height(), (c.height + 7) / 8) << c.name;
    for (int32_t y = 0; y < image->pixels.Height(); ++y)
      for (int32_t x = 0; x < image->pixels.Width(); ++x) {
        const int square = (y / 2) * 4 + x / 2;
        // Blocks cut by the picture's edge average the edge pixels the encoder repeated.
        ExpectNear(image->pixels.At(x, y), c.grey ? Grey(square) : kSquares[square], 6, c.name, x, y);
      }
  }
}

TEST(JpegDc, RefusesWhatItDoesNotDecodeAndDamagedFiles) {
  const auto progressive = Sample("prog.jpg"), whole = Sample("s420.jpg");
  ASSERT_TRUE(!progressive.empty() && !whole.empty()) << "the samples are read from the source tree";
  EXPECT_FALSE(DecodeJpegDc(progressive));
  EXPECT_FALSE(DecodeJpegDc({}));
  // Cut at every length: never a crash, and nothing from a file cut
  // before the end of its headers or far into its entropy data.
  for (std::size_t n = 0; n < whole.size(); ++n) {
    const auto cut = DecodeJpegDc(std::span(whole.data(), n));
    if (n < whole.size() * 3 / 4) {
      EXPECT_FALSE(cut) << n;
    }
  }
  // Every byte flipped in turn: a picture or nothing, never a crash.
  for (std::size_t i = 2; i < whole.size(); ++i) {
    std::vector<uint8_t> bad = whole;
    bad[i] ^= 0x5A;
    (void)DecodeJpegDc(bad);
  }
  std::vector<uint8_t> huge = whole;
  // The frame header claims 65535 x 65535: too large to take.
  for (std::size_t i = 0; i + 8 < huge.size(); ++i)
    if (huge[i] == 0xFF && huge[i + 1] == 0xC0) {
      huge[i + 5] = huge[i + 6] = huge[i + 7] = huge[i + 8] = 0xFF;
      break;
    }
  EXPECT_FALSE(DecodeJpegDc(huge));
}

}  // namespace
}  // namespace tavora
