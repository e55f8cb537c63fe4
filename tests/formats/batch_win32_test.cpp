#include <gtest/gtest.h>

#include <cstdlib>

#include "cli/cli.h"
#include "formats/batch.h"
#include "pixels.h"
#include "platform/gdiplus_codecs_win32.h"
#include "temp_dir.h"

namespace tavora {
namespace {

using testing_support::Px;
using testing_support::TempDir;

bool Near(uint32_t got, uint32_t want, int tolerance) {
  for (int shift = 0; shift < 32; shift += 8)
    if (std::abs(int(got >> shift & 255) - int(want >> shift & 255)) > tolerance) return false;
  return true;
}

// Through the real system codecs: a transparent PNG comes out as a JPEG
// over white. (Which of two sources sharing an output wins is held by the
// portable batch tests.)
TEST(BatchGdiplus, TransparentPngToJpegOverWhiteAndTheCliWritesSystemFormats) {
  ASSERT_TRUE(StartGdiplusCodecs());
  SetSystemCodec(&GdiplusCodecs());
  TempDir src, dst;
  Surface half(16, 16);  // the left half transparent, the right half blue
  for (int32_t y = 0; y < 16; ++y)
    for (int32_t x = 8; x < 16; ++x) half.At(x, y) = Px(255, 0, 0, 200);
  ASSERT_TRUE(GdiplusCodecs().encode(src / "a.png", half, 96, {}));

  BatchJob job({.source = src.path(), .dest = dst.path(), .format = 1 /* JPEG */});
  job.Start();
  job.Wait();
  EXPECT_EQ(job.Outcome().converted, 1);
  const auto a = GdiplusCodecs().decode(dst / "a.jpg");
  ASSERT_TRUE(a);
  EXPECT_TRUE(Near(a->pixels.At(2, 8), 0xFFFFFFFFu, 8)) << std::hex << a->pixels.At(2, 8);
  EXPECT_TRUE(Near(a->pixels.At(13, 8), Px(255, 0, 0, 200), 16)) << std::hex << a->pixels.At(13, 8);

  // tavora-cli.exe writes the system formats too.
  std::string out, err;
  EXPECT_EQ(RunCli({u"batch", u"--type=1", u"--to=bmp", PathDisplayText(src.path()), PathDisplayText(dst / "bmp")},
                   out, err),
            0)
      << err;
  EXPECT_EQ(out, "Batch Conversion Complete.\n\n1 file converted.\n");
  SetSystemCodec(nullptr);
  StopGdiplusCodecs();
}

}  // namespace
}  // namespace tavora
