#include "platform/gdiplus_codecs_win32.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "base/file_io.h"
#include "pixels.h"
#include "temp_dir.h"

namespace tavora {
namespace {

using testing_support::SamePixels;
using testing_support::TempDir;
using Bytes = std::vector<uint8_t>;

Bytes ReadAll(const std::filesystem::path& p) {
  std::ifstream f(p, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(f), {});
}

void WriteAll(const std::filesystem::path& p, const Bytes& b) {
  std::ofstream f(p, std::ios::binary | std::ios::trunc);
  f.write(reinterpret_cast<const char*>(b.data()), static_cast<std::streamsize>(b.size()));
}

void PutU16(Bytes& b, uint32_t v) {
  b.push_back(uint8_t(v));
  b.push_back(uint8_t(v >> 8));
}
void PutU32(Bytes& b, uint32_t v) {
  PutU16(b, v & 0xFFFF);
  PutU16(b, v >> 16);
}

template <typename Fn>
Surface Picture(int32_t w, int32_t h, Fn pixel) {
  Surface s(w, h);
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < w; ++x) s.At(x, y) = pixel(x, y);
  return s;
}

// Wine's GDI+ ignores the JPEG quality setting.
bool RunningUnderWine() {
  const HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
  return ntdll && GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

class GdiplusCodecTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_TRUE(StartGdiplusCodecs()); }
  static void TearDownTestSuite() { StopGdiplusCodecs(); }

  static bool Encode(const std::filesystem::path& p, const Surface& s, int32_t dpi,
                     SaveFormat format, int32_t quality = 90, int32_t paletteSize = 0) {
    EncodeOptions options;
    options.format = format;
    options.quality = quality;
    options.paletteSize = paletteSize;
    return GdiplusCodecs().encode(p, s, dpi, options);
  }
  static std::optional<DecodedImage> Decode(const std::filesystem::path& p) {
    return GdiplusCodecs().decode(p);
  }

  TempDir dir;
};

// Every alpha level matters, and so does the colour under alpha 0 and 1.
Surface TranslucentPicture() {
  return Picture(23, 17, [](int32_t x, int32_t y) {
    const uint32_t alpha = static_cast<uint32_t>((x * 11 + y * 29) % 256);
    return alpha << 24 | uint32_t(x * 10) << 16 | uint32_t(y * 15) << 8 | uint32_t((x ^ y) * 7);
  });
}

Surface OpaquePicture() {
  return Picture(31, 19, [](int32_t x, int32_t y) {
    return 0xFF000000u | uint32_t(x * 8) << 16 | uint32_t(y * 13) << 8 | uint32_t(x * y % 256);
  });
}

// ------------------------------------------------------------------ round trips

using GdiplusRoundTrip = GdiplusCodecTest;

TEST_F(GdiplusRoundTrip, PngAndTiffKeepEveryPixelAlphaAndDpi) {
  for (SaveFormat format : {SaveFormat::Png, SaveFormat::Tiff}) {
    SCOPED_TRACE(static_cast<int>(format));
    for (const Surface& picture : {TranslucentPicture(), OpaquePicture()}) {
      const auto path = dir / "a.img";
      ASSERT_TRUE(Encode(path, picture, 150, format));
      const auto image = Decode(path);
      ASSERT_TRUE(image);
      EXPECT_TRUE(SamePixels(image->pixels, picture));
      EXPECT_EQ(image->dpi, 150);
    }
  }
}

TEST_F(GdiplusRoundTrip, BmpKeepsOpaquePixelsAndDpi) {
  ASSERT_TRUE(Encode(dir / "a.bmp", OpaquePicture(), 300, SaveFormat::Bmp));
  const auto image = Decode(dir / "a.bmp");
  ASSERT_TRUE(image);
  EXPECT_TRUE(SamePixels(image->pixels, OpaquePicture()));
  EXPECT_EQ(image->dpi, 300);
}

Surface SmoothPicture() {
  return Picture(64, 48, [](int32_t x, int32_t y) {
    return 0xFF000000u | uint32_t(x * 4) << 16 | uint32_t(y * 5) << 8 | uint32_t(128 + x - y);
  });
}

TEST_F(GdiplusRoundTrip, JpegAtHighQualityStaysCloseAndKeepsDpi) {
  const Surface picture = SmoothPicture();
  ASSERT_TRUE(Encode(dir / "a.jpg", picture, 300, SaveFormat::Jpeg, 95));
  const auto image = Decode(dir / "a.jpg");
  ASSERT_TRUE(image);
  ASSERT_EQ(image->pixels.Width(), picture.Width());
  ASSERT_EQ(image->pixels.Height(), picture.Height());
  EXPECT_EQ(image->dpi, 300);
  int worst = 0;
  double total = 0;
  for (std::size_t i = 0; i < picture.PixelCount(); ++i) {
    const uint32_t a = image->pixels.Data()[i], b = picture.Data()[i];
    EXPECT_EQ(a >> 24, 0xFFu);
    for (int shift = 0; shift < 24; shift += 8) {
      const int d = std::abs(int(a >> shift & 0xFF) - int(b >> shift & 0xFF));
      worst = std::max(worst, d);
      total += d;
    }
  }
  EXPECT_LE(worst, 24);
  EXPECT_LE(total / (picture.PixelCount() * 3), 3.0);
}

TEST_F(GdiplusRoundTrip, JpegLowQualityMakesASmallerFile) {
  if (RunningUnderWine()) GTEST_SKIP() << "Wine's JPEG encoder has one fixed quality";
  const Surface noisy = Picture(96, 96, [](int32_t x, int32_t y) {
    return 0xFF000000u | uint32_t((x * 7919 + y * 104729) * 2654435761u >> 8 & 0xFFFFFF);
  });
  ASSERT_TRUE(Encode(dir / "q20.jpg", noisy, 0, SaveFormat::Jpeg, 20));
  ASSERT_TRUE(Encode(dir / "q95.jpg", noisy, 0, SaveFormat::Jpeg, 95));
  EXPECT_LT(std::filesystem::file_size(dir / "q20.jpg") * 2,
            std::filesystem::file_size(dir / "q95.jpg"));
}

TEST_F(GdiplusRoundTrip, GifWithinThePaletteIsExactWithTransparency) {
  // Fifteen colours, some a single level apart, and transparent: sixteen
  // entries, the palette size.
  const Surface picture = Picture(21, 14, [](int32_t x, int32_t y) {
    const uint32_t k = uint32_t(x + 2 * y) % 16;
    return k == 15 ? 0x00000000u : 0xFF000000u | k * 0x010203u;
  });
  ASSERT_TRUE(Encode(dir / "a.gif", picture, 0, SaveFormat::Gif, 90, 16));
  const auto image = Decode(dir / "a.gif");
  ASSERT_TRUE(image);
  ASSERT_EQ(image->pixels.Width(), picture.Width());
  ASSERT_EQ(image->pixels.Height(), picture.Height());
  for (int32_t y = 0; y < picture.Height(); ++y)
    for (int32_t x = 0; x < picture.Width(); ++x) {
      const uint32_t want = picture.At(x, y), got = image->pixels.At(x, y);
      if (want == 0)
        ASSERT_EQ(got >> 24, 0u) << x << "," << y;
      else
        ASSERT_EQ(got, want) << x << "," << y;
    }
}

TEST_F(GdiplusRoundTrip, GifReducesManyColoursToThePaletteSize) {
  const Surface picture = SmoothPicture();  // 3072 colours
  for (int32_t paletteSize : {16, 0}) {
    SCOPED_TRACE(paletteSize);
    ASSERT_TRUE(Encode(dir / "a.gif", picture, 0, SaveFormat::Gif, 90, paletteSize));
    const auto image = Decode(dir / "a.gif");
    ASSERT_TRUE(image);
    ASSERT_EQ(image->pixels.PixelCount(), picture.PixelCount());
    std::set<uint32_t> colours;
    double error = 0;
    for (std::size_t i = 0; i < picture.PixelCount(); ++i) {
      const uint32_t a = image->pixels.Data()[i], b = picture.Data()[i];
      colours.insert(a);
      ASSERT_EQ(a >> 24, 0xFFu);
      for (int shift = 0; shift < 24; shift += 8)
        error += std::abs(int(a >> shift & 0xFF) - int(b >> shift & 0xFF));
    }
    error /= picture.PixelCount() * 3;
    EXPECT_LE(colours.size(), paletteSize ? 16u : 256u);
    // Median cut spends the palette where the pixels are: a full palette
    // stays within a few levels, sixteen entries within a rough quarter step.
    EXPECT_LE(error, paletteSize ? 16.0 : 4.0);
  }
}

TEST_F(GdiplusRoundTrip, OneColourMoreThanThePaletteIsReduced) {
  const Surface five =
      Picture(5, 3, [](int32_t x, int32_t) { return 0xFF000000u | x * 0x333333u; });
  ASSERT_TRUE(Encode(dir / "a.gif", five, 0, SaveFormat::Gif, 90, 4));
  const auto image = Decode(dir / "a.gif");
  ASSERT_TRUE(image);
  std::set<uint32_t> colours(image->pixels.Data(),
                             image->pixels.Data() + image->pixels.PixelCount());
  EXPECT_EQ(colours.size(), 4u);
}

// ------------------------------------------------------------------ saving safely

using GdiplusSafeSave = GdiplusCodecTest;

TEST_F(GdiplusSafeSave, AFolderThatDoesNotExistFails) {
  EXPECT_FALSE(Encode(dir / "missing" / "a.png", OpaquePicture(), 0, SaveFormat::Png));
  EXPECT_FALSE(std::filesystem::exists(dir / "missing"));
}

TEST_F(GdiplusSafeSave, AFailedWriteLeavesTheOldFileAndNoTemporaryFile) {
  const Bytes old = {'o', 'l', 'd'};
  for (SaveFormat format :
       {SaveFormat::Png, SaveFormat::Jpeg, SaveFormat::Bmp, SaveFormat::Gif, SaveFormat::Tiff}) {
    SCOPED_TRACE(static_cast<int>(format));
    WriteAll(dir / "a.img", old);
    SafeFileWriter::FailWritesAfterForTesting(10);
    const bool saved = Encode(dir / "a.img", OpaquePicture(), 96, format);
    SafeFileWriter::FailWritesAfterForTesting(-1);
    EXPECT_FALSE(saved);
    EXPECT_EQ(ReadAll(dir / "a.img"), old);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()),
                            std::filesystem::directory_iterator()),
              1);
  }
}

TEST_F(GdiplusSafeSave, ASuccessfulSaveReplacesTheOldFile) {
  WriteAll(dir / "a.png", {'o', 'l', 'd'});
  ASSERT_TRUE(Encode(dir / "a.png", OpaquePicture(), 0, SaveFormat::Png));
  const auto image = Decode(dir / "a.png");
  ASSERT_TRUE(image);
  EXPECT_TRUE(SamePixels(image->pixels, OpaquePicture()));
}

TEST_F(GdiplusSafeSave, WebPAndEmptyPicturesAreNotWritten) {
  WriteAll(dir / "a.webp", {'o', 'l', 'd'});
  EXPECT_FALSE(Encode(dir / "a.webp", OpaquePicture(), 0, SaveFormat::WebP));
  EXPECT_EQ(ReadAll(dir / "a.webp"), (Bytes{'o', 'l', 'd'}));
  EXPECT_FALSE(Encode(dir / "b.png", Surface(), 0, SaveFormat::Png));
  EXPECT_FALSE(std::filesystem::exists(dir / "b.png"));
}

// ------------------------------------------------------------------ damaged input

using GdiplusBrokenInput = GdiplusCodecTest;

TEST_F(GdiplusBrokenInput, DamagedOrMissingFilesGiveNothing) {
  ASSERT_TRUE(Encode(dir / "good.png", OpaquePicture(), 0, SaveFormat::Png));
  const Bytes png = ReadAll(dir / "good.png");
  WriteAll(dir / "truncated.png", Bytes(png.begin(), png.begin() + png.size() / 2));
  WriteAll(dir / "header-only.png", Bytes(png.begin(), png.begin() + 33));
  std::mt19937 random(7);
  Bytes noise(4096);
  for (uint8_t& b : noise) b = static_cast<uint8_t>(random());
  noise[0] = 'x';
  WriteAll(dir / "noise.png", noise);
  Bytes signatureThenNoise(png.begin(), png.begin() + 8);
  signatureThenNoise.insert(signatureThenNoise.end(), noise.begin(), noise.end());
  WriteAll(dir / "signature.png", signatureThenNoise);
  WriteAll(dir / "empty.png", {});
  for (const char* name : {"truncated.png", "header-only.png", "noise.png", "signature.png",
                           "empty.png", "none.png"}) {
    EXPECT_FALSE(Decode(dir / name)) << name;
  }
}

TEST_F(GdiplusBrokenInput, PicturesOverTheSizeLimitAreRefused) {
  const Surface wide(30001, 1), widest(30000, 1);
  ASSERT_TRUE(Encode(dir / "wide.png", wide, 0, SaveFormat::Png));
  ASSERT_TRUE(Encode(dir / "widest.png", widest, 0, SaveFormat::Png));
  EXPECT_FALSE(Decode(dir / "wide.png"));
  const auto image = Decode(dir / "widest.png");
  ASSERT_TRUE(image);
  EXPECT_EQ(image->pixels.Width(), 30000);
}

TEST_F(GdiplusBrokenInput, AFileIsReadByContentNotByName) {
  ASSERT_TRUE(Encode(dir / "a.bmp", OpaquePicture(), 0, SaveFormat::Png));
  const auto image = Decode(dir / "a.bmp");
  ASSERT_TRUE(image);
  EXPECT_TRUE(SamePixels(image->pixels, OpaquePicture()));
}

// ------------------------------------------------------------------ 32-bit BMP

Bytes Bmp32(const Surface& s, bool topDown, int32_t pelsPerMetre) {
  Bytes b = {'B', 'M'};
  PutU32(b, uint32_t(54 + s.PixelCount() * 4));
  PutU32(b, 0);
  PutU32(b, 54);
  PutU32(b, 40);
  PutU32(b, uint32_t(s.Width()));
  PutU32(b, uint32_t(topDown ? -s.Height() : s.Height()));
  PutU16(b, 1);
  PutU16(b, 32);
  PutU32(b, 0);  // no compression
  PutU32(b, uint32_t(s.PixelCount() * 4));
  PutU32(b, uint32_t(pelsPerMetre));
  PutU32(b, uint32_t(pelsPerMetre));
  PutU32(b, 0);
  PutU32(b, 0);
  for (int32_t r = 0; r < s.Height(); ++r) {
    const int32_t y = topDown ? r : s.Height() - 1 - r;
    for (int32_t x = 0; x < s.Width(); ++x) PutU32(b, s.At(x, y));
  }
  return b;
}

using GdiplusBmp32 = GdiplusCodecTest;

TEST_F(GdiplusBmp32, AlphaIsKeptInEitherRowOrder) {
  for (bool topDown : {false, true}) {
    SCOPED_TRACE(topDown);
    WriteAll(dir / "a.bmp", Bmp32(TranslucentPicture(), topDown, 5906));
    const auto image = Decode(dir / "a.bmp");
    ASSERT_TRUE(image);
    EXPECT_TRUE(SamePixels(image->pixels, TranslucentPicture()));
    EXPECT_EQ(image->dpi, 150);
  }
}

TEST_F(GdiplusBmp32, AnAllZeroFourthByteIsNoAlpha) {
  const Surface colours =
      Picture(3, 2, [](int32_t x, int32_t y) { return uint32_t(x * 80 + y) * 0x010203u; });
  WriteAll(dir / "a.bmp", Bmp32(colours, false, 0));
  const auto image = Decode(dir / "a.bmp");
  ASSERT_TRUE(image);
  const Surface opaque =
      Picture(3, 2, [&](int32_t x, int32_t y) { return colours.At(x, y) | 0xFF000000u; });
  EXPECT_TRUE(SamePixels(image->pixels, opaque));
  EXPECT_EQ(image->dpi, 0);
}

TEST_F(GdiplusBmp32, RowsBeyondTheFileAreRefused) {
  Bytes b = Bmp32(TranslucentPicture(), false, 0);
  b.resize(b.size() - 1);
  WriteAll(dir / "a.bmp", b);
  EXPECT_FALSE(Decode(dir / "a.bmp"));
}

// ------------------------------------------------------------------ icons

struct IconEntry {
  uint8_t width, height;  // 0 is 256
  uint16_t bitCount;
  Bytes data;
};

Bytes IconFile(const std::vector<IconEntry>& entries) {
  Bytes b;
  PutU16(b, 0);
  PutU16(b, 1);
  PutU16(b, uint32_t(entries.size()));
  uint32_t at = uint32_t(6 + 16 * entries.size());
  for (const IconEntry& e : entries) {
    b.push_back(e.width);
    b.push_back(e.height);
    b.push_back(0);
    b.push_back(0);
    PutU16(b, 1);
    PutU16(b, e.bitCount);
    PutU32(b, uint32_t(e.data.size()));
    PutU32(b, at);
    at += uint32_t(e.data.size());
  }
  for (const IconEntry& e : entries) b.insert(b.end(), e.data.begin(), e.data.end());
  return b;
}

// An icon image as a DIB: the colour rows (through `palette` when it is not
// empty), then the mask, both bottom-up with rows padded to four bytes.
Bytes IconDib(const Surface& s, int bitCount, const std::vector<uint32_t>& palette,
              const std::vector<bool>& transparent) {
  Bytes b;
  PutU32(b, 40);
  PutU32(b, uint32_t(s.Width()));
  PutU32(b, uint32_t(s.Height() * 2));
  PutU16(b, 1);
  PutU16(b, uint32_t(bitCount));
  for (int i = 0; i < 4; ++i) PutU32(b, 0);
  PutU32(b, uint32_t(palette.size()));
  PutU32(b, 0);
  for (uint32_t c : palette) PutU32(b, c & 0xFFFFFF);
  const std::size_t stride = (std::size_t(s.Width()) * bitCount + 31) / 32 * 4;
  for (int32_t y = s.Height() - 1; y >= 0; --y) {
    Bytes row(stride);
    for (int32_t x = 0; x < s.Width(); ++x) {
      const uint32_t px = s.At(x, y);
      if (bitCount == 32) {
        for (int k = 0; k < 4; ++k) row[x * 4 + k] = uint8_t(px >> (8 * k));
      } else if (bitCount == 24) {
        for (int k = 0; k < 3; ++k) row[x * 3 + k] = uint8_t(px >> (8 * k));
      } else {
        const uint32_t index =
            uint32_t(std::find(palette.begin(), palette.end(), px) - palette.begin());
        const std::size_t bit = std::size_t(x) * bitCount;
        row[bit / 8] |= uint8_t(index << (8 - bitCount - bit % 8));
      }
    }
    b.insert(b.end(), row.begin(), row.end());
  }
  const std::size_t maskStride = (std::size_t(s.Width()) + 31) / 32 * 4;
  for (int32_t y = s.Height() - 1; y >= 0; --y) {
    Bytes row(maskStride);
    for (int32_t x = 0; x < s.Width(); ++x)
      if (transparent[std::size_t(y) * s.Width() + x]) row[x / 8] |= uint8_t(0x80 >> (x % 8));
    b.insert(b.end(), row.begin(), row.end());
  }
  return b;
}

std::vector<bool> MaskPattern(const Surface& s) {
  std::vector<bool> mask(s.PixelCount());
  for (int32_t y = 0; y < s.Height(); ++y)
    for (int32_t x = 0; x < s.Width(); ++x)
      mask[std::size_t(y) * s.Width() + x] = (x + 2 * y) % 5 == 0;
  return mask;
}

using GdiplusIcon = GdiplusCodecTest;

TEST_F(GdiplusIcon, TheLargestImageIsDecodedWhereverItSits) {
  const Surface large = Picture(48, 48, [](int32_t x, int32_t y) {
    return uint32_t(x * 5) << 24 | uint32_t(y * 5) << 8 | 0x400000u;
  });
  ASSERT_TRUE(Encode(dir / "large.png", large, 0, SaveFormat::Png));
  const Surface small = Picture(16, 16, [](int32_t, int32_t) { return 0xFF112233u; });
  const Bytes ico = IconFile({{16, 16, 24, IconDib(small, 24, {}, MaskPattern(small))},
                              {48, 48, 32, ReadAll(dir / "large.png")}});
  WriteAll(dir / "a.ico", ico);
  const auto image = Decode(dir / "a.ico");
  ASSERT_TRUE(image);
  EXPECT_TRUE(SamePixels(image->pixels, large));
}

TEST_F(GdiplusIcon, AZeroSizeByteMeans256) {
  const Surface big(256, 256),
      medium = Picture(48, 48, [](int32_t, int32_t) { return 0xFF00FF00u; });
  ASSERT_TRUE(Encode(dir / "big.png", big, 0, SaveFormat::Png));
  ASSERT_TRUE(Encode(dir / "medium.png", medium, 0, SaveFormat::Png));
  WriteAll(dir / "a.ico", IconFile({{48, 48, 32, ReadAll(dir / "medium.png")},
                                    {0, 0, 32, ReadAll(dir / "big.png")}}));
  const auto image = Decode(dir / "a.ico");
  ASSERT_TRUE(image);
  EXPECT_EQ(image->pixels.Width(), 256);
  EXPECT_EQ(image->pixels.Height(), 256);
}

TEST_F(GdiplusIcon, TheMaskMakesPixelsTransparentAtEveryDepth) {
  // An odd size, so every row is padded in both the colours and the mask.
  const std::vector<uint32_t> palette = {0xFF000000u, 0xFFFF0000u, 0xFF00FF00u,
                                         0xFF0000FFu, 0xFF808080u, 0xFFFFFFFFu};
  const Surface colours = Picture(13, 11, [&](int32_t x, int32_t y) {
    return palette[std::size_t(x * 3 + y) % palette.size()];
  });
  const std::vector<bool> mask = MaskPattern(colours);
  for (int bitCount : {4, 8, 24, 32}) {
    SCOPED_TRACE(bitCount);
    // A 32-bit image whose fourth byte is all zero has no alpha of its own.
    const Surface written =
        bitCount == 32
            ? Picture(13, 11, [&](int32_t x, int32_t y) { return colours.At(x, y) & 0xFFFFFFu; })
            : colours;
    WriteAll(dir / "a.ico",
             IconFile({{13, 11, uint16_t(bitCount),
                        IconDib(written, bitCount,
                                bitCount <= 8 ? palette : std::vector<uint32_t>{}, mask)}}));
    const auto image = Decode(dir / "a.ico");
    ASSERT_TRUE(image);
    ASSERT_EQ(image->pixels.Width(), 13);
    ASSERT_EQ(image->pixels.Height(), 11);
    for (int32_t y = 0; y < 11; ++y)
      for (int32_t x = 0; x < 13; ++x) {
        const uint32_t got = image->pixels.At(x, y);
        if (mask[std::size_t(y) * 13 + x])
          ASSERT_EQ(got >> 24, 0u) << x << "," << y;
        else
          ASSERT_EQ(got, colours.At(x, y)) << x << "," << y;
      }
  }
}

TEST_F(GdiplusIcon, ARealAlphaChannelOverridesTheMask) {
  const Surface translucent = Picture(
      16, 16, [](int32_t x, int32_t y) { return uint32_t(x * 16 + y) << 24 | 0x00336699u; });
  WriteAll(dir / "a.ico",
           IconFile({{16, 16, 32, IconDib(translucent, 32, {}, std::vector<bool>(256, true))}}));
  const auto image = Decode(dir / "a.ico");
  ASSERT_TRUE(image);
  EXPECT_TRUE(SamePixels(image->pixels, translucent));
}

TEST_F(GdiplusIcon, DamagedIconsGiveNothing) {
  const Surface small = Picture(16, 16, [](int32_t, int32_t) { return 0xFF112233u; });
  const Bytes dib = IconDib(small, 24, {}, MaskPattern(small));
  std::vector<Bytes> files;
  files.push_back(IconFile({}));  // no entries
  Bytes outside = IconFile({{16, 16, 24, dib}});
  outside[6 + 12] = 0xFF;  // the image starts far past the end
  files.push_back(outside);
  Bytes truncated = IconFile({{16, 16, 24, dib}});
  // The directory still claims the whole image: the entry is outside the file.
  truncated.resize(truncated.size() - 100);
  files.push_back(truncated);
  Bytes rowsMissing = IconFile({{16, 16, 24, Bytes(dib.begin(), dib.begin() + 200)}});
  files.push_back(rowsMissing);
  Bytes huge = IconFile({{16, 16, 24, dib}});
  huge[6 + 16 + 4] = 0xFF;  // the header's width: 0x7F00FF pixels
  huge[6 + 16 + 6] = 0x7F;
  files.push_back(huge);
  for (std::size_t i = 0; i < files.size(); ++i) {
    WriteAll(dir / "a.ico", files[i]);
    EXPECT_FALSE(Decode(dir / "a.ico")) << i;
  }
}

// ------------------------------------------------------------------ several frames

// Two 2x2 frames of one colour index each: LZW codes of three bits, with a
// clear code before the table would grow past them.
Bytes TwoFrameGif() {
  Bytes b = {'G', 'I', 'F', '8', '9', 'a', 2, 0, 2, 0, 0x81, 0, 0};
  const uint8_t table[12] = {0, 0, 0, 255, 0, 0, 0, 0, 255, 255, 255, 255};
  b.insert(b.end(), table, table + 12);
  for (uint32_t index : {1u, 2u}) {
    const uint8_t descriptor[10] = {0x2C, 0, 0, 0, 0, 2, 0, 2, 0, 0};
    b.insert(b.end(), descriptor, descriptor + 10);
    b.push_back(2);  // minimum code size
    uint32_t bits = 0;
    int used = 0;
    for (uint32_t code : {4u, index, index, 4u, index, index, 5u}) {
      bits |= code << used;
      used += 3;
    }
    b.push_back(3);
    for (int i = 0; i < 3; ++i) b.push_back(uint8_t(bits >> (8 * i)));
    b.push_back(0);
  }
  b.push_back(0x3B);
  return b;
}

using GdiplusFrames = GdiplusCodecTest;

TEST_F(GdiplusFrames, TheFirstFrameOfAnAnimationIsDecoded) {
  WriteAll(dir / "a.gif", TwoFrameGif());
  const auto image = Decode(dir / "a.gif");
  ASSERT_TRUE(image);
  EXPECT_TRUE(
      SamePixels(image->pixels, Picture(2, 2, [](int32_t, int32_t) { return 0xFFFF0000u; })));
}

}  // namespace
}  // namespace tavora
