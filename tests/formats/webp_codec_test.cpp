#include "formats/webp_codec.h"

#include <gtest/gtest.h>

#include <random>

#include "pixels.h"
#include "temp_dir.h"

namespace tavora {
namespace {

using testing_support::SamePixels;
using testing_support::TempDir;

Surface Noise(int32_t w, int32_t h, uint32_t alphaMask = 0xFF000000u) {
  Surface s(w, h);
  std::mt19937 rng(4);
  for (std::size_t i = 0; i < s.PixelCount(); ++i) s.Data()[i] = (rng() & 0x00FFFFFFu) | (rng() & alphaMask);
  return s;
}

TEST(Webp, LosslessRoundTripsExactlyColourUnderTransparencyIncluded) {
  TempDir dir;
  const Surface picture = Noise(37, 23, 0xFF000000u);  // alpha 0 or 255 at random
  ASSERT_TRUE(WriteWebpFile(dir / "a.webp", picture, 50, true));
  const auto back = ReadWebpFile(dir / "a.webp");
  ASSERT_TRUE(back);
  EXPECT_TRUE(back->hasAlpha);
  EXPECT_TRUE(SamePixels(back->pixels, picture));
  EXPECT_TRUE(IsWebpExtension("x.WebP"));
  EXPECT_FALSE(IsWebpExtension("x.web"));
}

TEST(Webp, SizesQualityAndThumbnails) {
  TempDir dir;
  Surface wide(16384, 1), fits(16383, 1);
  EXPECT_FALSE(WriteWebpFile(dir / "w.webp", wide, 90, false));
  EXPECT_FALSE(std::filesystem::exists(dir / "w.webp"));
  EXPECT_TRUE(WriteWebpFile(dir / "f.webp", fits, 90, false));
  // Quality is clamped: 0 encodes as 1 and 150 as 100.
  const Surface photo = Noise(64, 64);
  EXPECT_EQ(EncodeWebp(photo, 0, false), EncodeWebp(photo, 1, false));
  EXPECT_EQ(EncodeWebp(photo, 150, false), EncodeWebp(photo, 100, false));
  EXPECT_NE(EncodeWebp(photo, 1, false), EncodeWebp(photo, 100, false));
  // Thumbnails: never enlarged, else the longer side fits.
  const auto bytes = EncodeWebp(Noise(100, 50), 80, false);
  ASSERT_TRUE(bytes);
  for (auto [side, w, h] : {std::tuple{200, 100, 50}, {40, 40, 20}, {1, 1, 1}}) {
    const auto thumb = DecodeWebpThumbnail(*bytes, side);
    ASSERT_TRUE(thumb) << side;
    EXPECT_EQ(thumb->pixels.Width(), w) << side;
    EXPECT_EQ(thumb->pixels.Height(), h) << side;
  }
  // Broken input: nothing, never a crash.
  std::vector<uint8_t> broken = *bytes;
  broken.resize(broken.size() / 2);
  EXPECT_FALSE(DecodeWebp(broken));
  EXPECT_FALSE(DecodeWebp({}));
  // Fifteen bytes of lossless header claiming 16129 x 16384: refused at
  // once, thumbnail included (it once decoded the whole claim).
  const std::vector<uint8_t> huge = {0x2F, 0x00, 0xFF, 0xFF, 0x0F, 0x88, 0x88, 0x88,
                                     0x12, 0x0B, 0x00, 0x00, 0x00, 0x1A, 0x88};
  EXPECT_FALSE(DecodeWebp(huge));
  EXPECT_FALSE(DecodeWebpThumbnail(huge, 64));
  EXPECT_FALSE(ReadWebpFile(dir / "missing.webp"));
}

}  // namespace
}  // namespace tavora
