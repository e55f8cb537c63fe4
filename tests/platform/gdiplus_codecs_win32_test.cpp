#include "platform/gdiplus_codecs_win32.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "base/file_io.h"
#include "file_bytes.h"
#include "pixels.h"
#include "temp_dir.h"

namespace tavora {
namespace {

using testing_support::Bytes;
using testing_support::FilesIn;
using testing_support::LittleEndian;
using testing_support::ReadBytes;
using testing_support::SamePixels;
using testing_support::TempDir;
using testing_support::WriteBytes;

template <typename Fn>
Surface Picture(int32_t w, int32_t h, Fn pixel) {
  Surface s(w, h);
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < w; ++x) s.At(x, y) = pixel(x, y);
  return s;
}

Surface Filled(int32_t w, int32_t h, uint32_t colour) {
  return Picture(w, h, [=](int32_t, int32_t) { return colour; });
}

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

Surface SmoothPicture() {  // 3072 colours
  return Picture(64, 48, [](int32_t x, int32_t y) {
    return 0xFF000000u | uint32_t(x * 4) << 16 | uint32_t(y * 5) << 8 | uint32_t(128 + x - y);
  });
}

// How far the colour channels of two pictures of one size lie apart.
struct ColourError {
  int worst = 0;
  double mean = 0;
};
ColourError ErrorOf(const Surface& got, const Surface& want) {
  ColourError e;
  for (std::size_t i = 0; i < want.PixelCount(); ++i)
    for (int shift = 0; shift < 24; shift += 8) {
      const int d = std::abs(int(got.Data()[i] >> shift & 0xFF) - int(want.Data()[i] >> shift & 0xFF));
      e.worst = std::max(e.worst, d);
      e.mean += d;
    }
  e.mean /= double(want.PixelCount() * 3);
  return e;
}

bool AllOpaque(const Surface& s) {
  return std::all_of(s.Data(), s.Data() + s.PixelCount(), [](uint32_t p) { return p >> 24 == 0xFF; });
}

// Exactly the same pixels, except that a wanted 0 (clear) takes any colour
// under alpha 0: palette and mask formats keep none there.
::testing::AssertionResult SameSeen(const Surface& got, const Surface& want) {
  if (got.Width() != want.Width() || got.Height() != want.Height()) return SamePixels(got, want);
  for (int32_t y = 0; y < want.Height(); ++y)
    for (int32_t x = 0; x < want.Width(); ++x)
      if (want.At(x, y) == 0 ? got.At(x, y) >> 24 != 0 : got.At(x, y) != want.At(x, y))
        return ::testing::AssertionFailure() << "pixel (" << x << "," << y << ") is " << std::hex << got.At(x, y)
                                             << ", want " << want.At(x, y);
  return ::testing::AssertionSuccess();
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
    return GdiplusCodecs().encode(p, s, dpi, {.format = format, .quality = quality, .paletteSize = paletteSize});
  }
  static std::optional<DecodedImage> Decode(const std::filesystem::path& p) {
    return GdiplusCodecs().decode(p);
  }

  TempDir dir;
};

// ------------------------------------------------------------------ round trips

using GdiplusRoundTrip = GdiplusCodecTest;

// Lossless formats keep every pixel (worst 0); JPEG at quality 95 stays close.
TEST_F(GdiplusRoundTrip, EveryFormatKeepsItsPixelsAndDpiAndReplacesTheOldFile) {
  const struct {
    const char* name;
    SaveFormat format;
    Surface picture;
    int32_t dpi, worst;
    double mean;
  } table[] = {
      {"translucent.png", SaveFormat::Png, TranslucentPicture(), 150, 0, 0},
      {"opaque.png", SaveFormat::Png, OpaquePicture(), 150, 0, 0},
      {"translucent.tif", SaveFormat::Tiff, TranslucentPicture(), 150, 0, 0},
      {"opaque.tif", SaveFormat::Tiff, OpaquePicture(), 150, 0, 0},
      {"opaque.bmp", SaveFormat::Bmp, OpaquePicture(), 300, 0, 0},
      {"png-named.bmp", SaveFormat::Png, OpaquePicture(), 150, 0, 0},  // read by content, not name
      {"smooth.jpg", SaveFormat::Jpeg, SmoothPicture(), 300, 24, 3.0},
  };
  for (const auto& row : table) {
    WriteBytes(dir / row.name, "old");
    ASSERT_TRUE(Encode(dir / row.name, row.picture, row.dpi, row.format, 95)) << row.name;
    const auto image = Decode(dir / row.name);
    ASSERT_TRUE(image) << row.name;
    EXPECT_EQ(image->dpi, row.dpi) << row.name;
    if (row.worst == 0) {
      EXPECT_TRUE(SamePixels(image->pixels, row.picture)) << row.name;
      continue;
    }
    ASSERT_EQ(image->pixels.PixelCount(), row.picture.PixelCount()) << row.name;
    EXPECT_TRUE(AllOpaque(image->pixels)) << row.name;
    const ColourError error = ErrorOf(image->pixels, row.picture);
    EXPECT_LE(error.worst, row.worst) << row.name;
    EXPECT_LE(error.mean, row.mean) << row.name;
  }
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

// Within the palette the colours come back exactly, the transparent entry
// kept; beyond it median cut spends the palette where the pixels are: a full
// palette stays within a few levels, sixteen entries within a quarter step.
TEST_F(GdiplusRoundTrip, PaletteFormatsAreExactWithinThePaletteAndReduceBeyondIt) {
  // Fifteen colours, some a single level apart, and transparent: sixteen entries.
  const Surface sixteen = Picture(21, 14, [](int32_t x, int32_t y) {
    const uint32_t k = uint32_t(x + 2 * y) % 16;
    return k == 15 ? 0x00000000u : 0xFF000000u | k * 0x010203u;
  });
  const Surface five = Picture(5, 3, [](int32_t x, int32_t) { return 0xFF000000u | x * 0x333333u; });
  const struct {
    const char* name;
    SaveFormat format;
    Surface picture;
    int32_t paletteSize;
    std::size_t fewestColours, mostColours;
    double meanError;  // 0: exactly the picture
  } table[] = {
      {"exact.gif", SaveFormat::Gif, sixteen, 16, 0, 16, 0},
      {"exact.png", SaveFormat::Png, sixteen, 16, 0, 16, 0},
      {"3072-in-16.gif", SaveFormat::Gif, SmoothPicture(), 16, 1, 16, 16.0},
      {"3072-in-256.gif", SaveFormat::Gif, SmoothPicture(), 0, 1, 256, 4.0},
      {"5-in-4.gif", SaveFormat::Gif, five, 4, 4, 4, 255.0},
  };
  for (const auto& row : table) {
    ASSERT_TRUE(Encode(dir / row.name, row.picture, 0, row.format, 90, row.paletteSize)) << row.name;
    const auto image = Decode(dir / row.name);
    ASSERT_TRUE(image) << row.name;
    if (row.meanError == 0) {
      EXPECT_TRUE(SameSeen(image->pixels, row.picture)) << row.name;
      continue;
    }
    ASSERT_EQ(image->pixels.PixelCount(), row.picture.PixelCount()) << row.name;
    EXPECT_TRUE(AllOpaque(image->pixels)) << row.name;
    const std::set<uint32_t> colours(image->pixels.Data(), image->pixels.Data() + image->pixels.PixelCount());
    EXPECT_GE(colours.size(), row.fewestColours) << row.name;
    EXPECT_LE(colours.size(), row.mostColours) << row.name;
    EXPECT_LE(ErrorOf(image->pixels, row.picture).mean, row.meanError) << row.name;
  }
  // The palette PNG is indexed (colour type 3).
  EXPECT_EQ(ReadBytes(dir / "exact.png").at(25), 3) << "the PNG is not indexed";
}

// ------------------------------------------------------------------ saving safely

using GdiplusSafeSave = GdiplusCodecTest;

// One safe writer serves every format: PNG and GIF stand for the direct and palette routes.
TEST_F(GdiplusSafeSave, EveryFailureLeavesTheOldFileAndNoTemporaryFile) {
  const struct {
    const char* what;
    SaveFormat format;
    Surface picture;
    int64_t failWritesAfter;
  } table[] = {
      {"PNG, writes failing", SaveFormat::Png, OpaquePicture(), 10},
      {"GIF, writes failing", SaveFormat::Gif, OpaquePicture(), 10},
      {"WebP, which the system codecs do not write", SaveFormat::WebP, OpaquePicture(), -1},
      {"an empty picture", SaveFormat::Png, Surface(), -1},
  };
  for (const auto& row : table) {
    WriteBytes(dir / "a.img", "old");
    SafeFileWriter::FailWritesAfterForTesting(row.failWritesAfter);
    const bool saved = Encode(dir / "a.img", row.picture, 96, row.format);
    SafeFileWriter::FailWritesAfterForTesting(-1);
    EXPECT_FALSE(saved) << row.what;
    EXPECT_EQ(ReadBytes(dir / "a.img"), (Bytes{'o', 'l', 'd'})) << row.what;
    EXPECT_EQ(FilesIn(dir.path()), 1u) << row.what;
  }
  EXPECT_FALSE(Encode(dir / "missing" / "a.png", OpaquePicture(), 0, SaveFormat::Png));
  EXPECT_FALSE(std::filesystem::exists(dir / "missing"));
}

// ------------------------------------------------------------------ hand-made files

Bytes Bmp32(const Surface& s, bool topDown, int32_t pelsPerMetre) {
  LittleEndian b;
  const uint32_t bytes = uint32_t(s.PixelCount() * 4);
  b.Raw("BM").U32(54 + bytes).U32(0).U32(54);
  b.U32(40).U32(uint32_t(s.Width())).U32(uint32_t(topDown ? -s.Height() : s.Height()));
  b.U16(1).U16(32).U32(0 /* no compression */).U32(bytes);
  b.U32(uint32_t(pelsPerMetre)).U32(uint32_t(pelsPerMetre)).U32(0).U32(0);
  for (int32_t r = 0; r < s.Height(); ++r)
    for (int32_t x = 0; x < s.Width(); ++x) b.U32(s.At(x, topDown ? r : s.Height() - 1 - r));
  return b.b;
}

struct IconEntry {
  uint8_t width, height;  // 0 is 256
  uint16_t bitCount;
  Bytes data;
};

Bytes IconFile(const std::vector<IconEntry>& entries) {
  LittleEndian b;
  b.U16(0).U16(1).U16(uint32_t(entries.size()));
  uint32_t at = uint32_t(6 + 16 * entries.size());
  for (const IconEntry& e : entries) {
    b.Append({e.width, e.height, 0, 0}).U16(1).U16(e.bitCount).U32(uint32_t(e.data.size())).U32(at);
    at += uint32_t(e.data.size());
  }
  for (const IconEntry& e : entries) b.Append(e.data);
  return b.b;
}

// An icon image as a DIB: the colour rows (through `palette` when it is not
// empty), then the mask, both bottom-up with rows padded to four bytes.
Bytes IconDib(const Surface& s, int bitCount, const std::vector<uint32_t>& palette,
              const std::vector<bool>& transparent) {
  LittleEndian b;
  b.U32(40).U32(uint32_t(s.Width())).U32(uint32_t(s.Height() * 2)).U16(1).U16(uint32_t(bitCount));
  b.U32(0).U32(0).U32(0).U32(0).U32(uint32_t(palette.size())).U32(0);
  for (uint32_t c : palette) b.U32(c & 0xFFFFFF);
  const std::size_t stride = (std::size_t(s.Width()) * bitCount + 31) / 32 * 4;
  for (int32_t y = s.Height() - 1; y >= 0; --y) {
    Bytes row(stride);
    for (int32_t x = 0; x < s.Width(); ++x) {
      const uint32_t px = s.At(x, y);
      if (bitCount >= 24) {
        for (int k = 0; k < bitCount / 8; ++k) row[x * (bitCount / 8) + k] = uint8_t(px >> (8 * k));
      } else {
        const uint32_t index =
            uint32_t(std::find(palette.begin(), palette.end(), px) - palette.begin());
        const std::size_t bit = std::size_t(x) * bitCount;
        row[bit / 8] |= uint8_t(index << (8 - bitCount - bit % 8));
      }
    }
    b.Append(row);
  }
  const std::size_t maskStride = (std::size_t(s.Width()) + 31) / 32 * 4;
  for (int32_t y = s.Height() - 1; y >= 0; --y) {
    Bytes row(maskStride);
    for (int32_t x = 0; x < s.Width(); ++x)
      if (transparent[std::size_t(y) * s.Width() + x]) row[x / 8] |= uint8_t(0x80 >> (x % 8));
    b.Append(row);
  }
  return b.b;
}

std::vector<bool> MaskPattern(const Surface& s) {
  std::vector<bool> mask(s.PixelCount());
  for (int32_t y = 0; y < s.Height(); ++y)
    for (int32_t x = 0; x < s.Width(); ++x)
      mask[std::size_t(y) * s.Width() + x] = (x + 2 * y) % 5 == 0;
  return mask;
}

// Two 2x2 frames of one colour index each: LZW codes of three bits, with a
// clear code before the table would grow past them.
Bytes TwoFrameGif() {
  LittleEndian b;
  b.Raw("GIF89a").U16(2).U16(2).Append({0x81, 0, 0});
  b.Append({0, 0, 0, 255, 0, 0, 0, 0, 255, 255, 255, 255});
  for (uint32_t index : {1u, 2u}) {
    b.Append({0x2C, 0, 0, 0, 0, 2, 0, 2, 0, 0});
    b.Append({2});  // minimum code size
    uint32_t bits = 0;
    int used = 0;
    for (uint32_t code : {4u, index, index, 4u, index, index, 5u}) {
      bits |= code << used;
      used += 3;
    }
    b.Append({3, uint8_t(bits), uint8_t(bits >> 8), uint8_t(bits >> 16), 0});
  }
  b.Append({0x3B});
  return b.b;
}

// ------------------------------------------------------------------ decoding

using GdiplusDecode = GdiplusCodecTest;

TEST_F(GdiplusDecode, HandMadeFilesDecodeExactly) {
  // The largest icon image wins wherever it sits; a size byte of 0 is 256.
  const Surface large = Picture(48, 48, [](int32_t x, int32_t y) {
    return uint32_t(x * 5) << 24 | uint32_t(y * 5) << 8 | 0x400000u;
  });
  const Surface small = Filled(16, 16, 0xFF112233u), big(256, 256);
  ASSERT_TRUE(Encode(dir / "large.png", large, 0, SaveFormat::Png));
  ASSERT_TRUE(Encode(dir / "big.png", big, 0, SaveFormat::Png));
  const IconEntry smallDib{16, 16, 24, IconDib(small, 24, {}, MaskPattern(small))};
  const IconEntry largePng{48, 48, 32, ReadBytes(dir / "large.png")};
  const IconEntry bigPng{0, 0, 32, ReadBytes(dir / "big.png")};
  const Surface translucentIcon = Picture(
      16, 16, [](int32_t x, int32_t y) { return uint32_t(x * 16 + y) << 24 | 0x00336699u; });
  // GDI+ drops the alpha of 32-bit BMPs: Tavora reads them itself, unless
  // the fourth byte is all zero, which is no alpha at all.
  const Surface colours =
      Picture(3, 2, [](int32_t x, int32_t y) { return uint32_t(x * 80 + y) * 0x010203u; });
  const Surface opaque =
      Picture(3, 2, [&](int32_t x, int32_t y) { return colours.At(x, y) | 0xFF000000u; });
  struct Row {
    std::string what;
    Bytes file;
    Surface want;  // a 0 in it: transparent, whatever the colour
    int32_t dpi;   // -1: not checked
  };
  std::vector<Row> table = {
      {"32-bit BMP, bottom-up", Bmp32(TranslucentPicture(), false, 5906), TranslucentPicture(), 150},
      {"32-bit BMP, top-down", Bmp32(TranslucentPicture(), true, 5906), TranslucentPicture(), 150},
      {"32-bit BMP, all-zero fourth byte", Bmp32(colours, false, 0), opaque, 0},
      {"icon, largest last", IconFile({smallDib, largePng}), large, -1},
      {"icon, size byte 0 first", IconFile({bigPng, largePng}), big, -1},
      {"icon, a real alpha channel overrides the mask",
       IconFile({{16, 16, 32, IconDib(translucentIcon, 32, {}, std::vector<bool>(256, true))}}),
       translucentIcon, -1},
      {"animated GIF: the first frame", TwoFrameGif(), Filled(2, 2, 0xFFFF0000u), -1},
  };
  // The icon mask makes pixels transparent at every depth; an odd size pads
  // every row of both the colours and the mask.
  const std::vector<uint32_t> palette = {0xFF000000u, 0xFFFF0000u, 0xFF00FF00u,
                                         0xFF0000FFu, 0xFF808080u, 0xFFFFFFFFu};
  const Surface iconColours =
      Picture(13, 11, [&](int32_t x, int32_t y) { return palette[std::size_t(x * 3 + y) % palette.size()]; });
  const std::vector<bool> mask = MaskPattern(iconColours);
  const Surface masked = Picture(13, 11, [&](int32_t x, int32_t y) {
    return mask[std::size_t(y) * 13 + x] ? 0u : iconColours.At(x, y);
  });
  for (int bitCount : {4, 8, 24, 32}) {
    // A 32-bit image whose fourth byte is all zero has no alpha of its own.
    const Surface written =
        bitCount == 32 ? Picture(13, 11, [&](int32_t x, int32_t y) { return iconColours.At(x, y) & 0xFFFFFFu; })
                       : iconColours;
    const auto dib = IconDib(written, bitCount, bitCount <= 8 ? palette : std::vector<uint32_t>{}, mask);
    table.push_back({"masked icon, " + std::to_string(bitCount) + " bits",
                     IconFile({{13, 11, uint16_t(bitCount), dib}}), masked, -1});
  }
  for (const auto& row : table) {
    WriteBytes(dir / "a.img", row.file);
    const auto image = Decode(dir / "a.img");
    ASSERT_TRUE(image) << row.what;
    EXPECT_TRUE(SameSeen(image->pixels, row.want)) << row.what;
    if (row.dpi >= 0) {
      EXPECT_EQ(image->dpi, row.dpi) << row.what;
    }
  }
}

TEST_F(GdiplusDecode, DamagedMissingOrOversizedFilesGiveNothing) {
  ASSERT_TRUE(Encode(dir / "good.png", OpaquePicture(), 0, SaveFormat::Png));
  ASSERT_TRUE(Encode(dir / "wide.png", Surface(30001, 1), 0, SaveFormat::Png));
  const Bytes png = ReadBytes(dir / "good.png");
  std::mt19937 random(7);
  Bytes noise(4096);
  for (uint8_t& b : noise) b = static_cast<uint8_t>(random());
  noise[0] = 'x';
  Bytes signatureThenNoise(png.begin(), png.begin() + 8);
  signatureThenNoise.insert(signatureThenNoise.end(), noise.begin(), noise.end());
  Bytes bmpCut = Bmp32(TranslucentPicture(), false, 0);
  bmpCut.pop_back();
  const Surface small = Filled(16, 16, 0xFF112233u);
  const Bytes dib = IconDib(small, 24, {}, MaskPattern(small));
  Bytes iconOutside = IconFile({{16, 16, 24, dib}});
  iconOutside[6 + 12] = 0xFF;  // the image starts far past the end
  // The directory still claims the whole image: the entry is outside the file.
  Bytes iconCut = IconFile({{16, 16, 24, dib}});
  iconCut.resize(iconCut.size() - 100);
  Bytes iconHuge = IconFile({{16, 16, 24, dib}});
  iconHuge[6 + 16 + 4] = 0xFF;  // the header's width: 0x7F00FF pixels
  iconHuge[6 + 16 + 6] = 0x7F;
  const std::pair<const char*, Bytes> files[] = {
      {"PNG cut in half", Bytes(png.begin(), png.begin() + png.size() / 2)},
      {"PNG header only", Bytes(png.begin(), png.begin() + 33)},
      {"noise", noise},
      {"PNG signature, then noise", signatureThenNoise},
      {"empty", {}},
      {"32-bit BMP with rows beyond the file", bmpCut},
      {"icon with no entries", IconFile({})},
      {"icon image past the end", iconOutside},
      {"icon cut short", iconCut},
      {"icon rows missing", IconFile({{16, 16, 24, Bytes(dib.begin(), dib.begin() + 200)}})},
      {"icon of a huge width", iconHuge},
      {"PNG 30001 pixels wide", ReadBytes(dir / "wide.png")},
  };
  for (const auto& [what, bytes] : files) {
    WriteBytes(dir / "a.img", bytes);
    EXPECT_FALSE(Decode(dir / "a.img")) << what;
  }
  EXPECT_FALSE(Decode(dir / "none.png"));
  // The limit itself still opens.
  ASSERT_TRUE(Encode(dir / "widest.png", Surface(30000, 1), 0, SaveFormat::Png));
  const auto widest = Decode(dir / "widest.png");
  ASSERT_TRUE(widest);
  EXPECT_EQ(widest->pixels.Width(), 30000);
}

}  // namespace
}  // namespace tavora
