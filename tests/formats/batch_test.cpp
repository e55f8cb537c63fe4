#include "formats/batch.h"

#include <gtest/gtest.h>

#include <random>
#include <tuple>

#include "base/unicode.h"
#include "cli/cli.h"
#include "document/blend.h"
#include "formats/layered_format.h"
#include "formats/webp_codec.h"
#include "fake_codec.h"
#include "file_bytes.h"
#include "pixels.h"
#include "temp_dir.h"

namespace tavora {
namespace {

namespace fs = std::filesystem;
using testing_support::Bytes;
using testing_support::Px;
using testing_support::SamePixels;
using testing_support::TempDir;
using testing_support::WriteBytes;

std::u16string U(const fs::path& p) { return PathDisplayText(p); }

// ------------------------------------------------------------------ sources

Surface Picture(int32_t w, int32_t h, uint32_t seed) {
  Surface s(w, h);
  std::mt19937 rng(seed);
  for (std::size_t i = 0; i < s.PixelCount(); ++i) s.Data()[i] = rng() | 0xFF000000u;
  return s;
}

void Tvl(const fs::path& p, Surface pixels, int32_t dpi = 72) {
  ASSERT_TRUE(WriteLayeredDocument(*DocumentFromPicture(std::move(pixels), dpi), p));
}

// A flat 2 x 2 RGB Photoshop file of one colour.
void Psd(const fs::path& p, uint8_t r, uint8_t g, uint8_t b) {
  Bytes f = {'8', 'B', 'P', 'S', 0, 1, 0, 0, 0, 0, 0, 0, 0, 3, 0, 0, 0, 2, 0, 0, 0, 2, 0, 8, 0, 3};
  f.insert(f.end(), 12, 0);  // no colour data, resources, layers
  f.insert(f.end(), {0, 0});  // raw
  for (uint8_t v : {r, g, b}) f.insert(f.end(), 4, v);
  WriteBytes(p, f);
}

// Two pixels of value 1.0: 207 on the fixed curve at 0 EV.
void Hdr(const fs::path& p) {
  std::string f = "#?RADIANCE\nFORMAT=32-bit_rle_rgbe\n\n-Y 1 +X 2\n";
  for (int i = 0; i < 2; ++i) f += std::string{'\x80', '\x80', '\x80', '\x81'};
  WriteBytes(p, f);
}

Surface Filled(int32_t w, int32_t h, uint32_t c) {
  Surface s(w, h);
  s.Fill(c);
  return s;
}

Surface ReadBack(const fs::path& p) {
  auto image = ReadWebpFile(p);
  EXPECT_TRUE(image) << p;
  return image ? std::move(image->pixels) : Surface();
}

BatchOutcome RunJob(const fs::path& src, const fs::path& dst, int32_t format, int32_t type = 0, int workers = 0,
                    std::function<void(BatchJob&)> hook = nullptr) {
  BatchJob job({.source = src, .dest = dst, .type = type, .format = format, .quality = 80, .lossless = true,
                .workers = workers});
  job.onFileDone = std::move(hook);
  job.Start();
  job.Wait();
  EXPECT_TRUE(job.Done());
  return job.Outcome();
}

constexpr int32_t kToPng = 0, kToJpeg = 1, kToBmp = 2, kToGif = 3, kToWebp = 5;

using BatchWithCodec = testing_support::WithFakeCodec;
using testing_support::FakeCodec;

// ------------------------------------------------------------------ tables, listing, naming

TEST(BatchListing, TypesMatchExtensionsWithoutCaseAndSortWithoutCase) {
  const struct {
    int32_t type;
    const char* name;
    bool matches;
  } cases[] = {
      {0, "a.PNG", true},  {0, "a.pic", false}, {0, "png", false},   {2, "a.JFIF", true},  {2, "a.jpe", true},
      {2, "a.png", false}, {3, "a.dib", true},  {5, "a.TIFF", true}, {8, "a.hdr", true},   {8, "a.pic", false},
      {9, "a.KZL", true},  {9, "a.tvl.bak", false}, {10, "a.psd", true}, {11, "a.psd", false}, {-1, "a.png", false},
  };
  for (const auto& c : cases) EXPECT_EQ(BatchTypeMatches(c.type, c.name), c.matches) << c.type << " " << c.name;

  TempDir dir;
  for (const char* name : {"b.TVL", "a.tvl", "C.kzl", "x.png", "notes", "d.tvl.txt"}) WriteBytes(dir / name, "x");
  fs::create_directory(dir / "sub.tvl");  // a folder is never a file to convert
  auto names = [&](int32_t type) {
    std::vector<std::string> got;
    for (const fs::path& p : ListBatchFiles(dir.path(), type)) {
      EXPECT_EQ(p.parent_path(), dir.path());
      got.push_back(p.filename().string());
    }
    return got;
  };
  EXPECT_EQ(names(9), (std::vector<std::string>{"a.tvl", "b.TVL", "C.kzl"}));
  EXPECT_EQ(names(0), (std::vector<std::string>{"a.tvl", "b.TVL", "C.kzl", "x.png"}));
  EXPECT_TRUE(names(10).empty());
  EXPECT_TRUE(ListBatchFiles(dir / "missing", 0).empty());
}

TEST(BatchListing, OutputNamesAndTheSameFile) {
  const fs::path out("/out");
  EXPECT_EQ(BatchOutputPath("/in/a.b.jpeg", out, kToJpeg), fs::path("/out/a.b.jpg"));
  EXPECT_EQ(BatchOutputPath("/in/photo.PNG", out, kToWebp), fs::path("/out/photo.webp"));
  EXPECT_EQ(BatchOutputPath("/in/x.tiff", out, 4), fs::path("/out/x.tif"));
  EXPECT_FALSE(SameBatchFile("/in/a.jpeg", "/in/a.jpg"));
  EXPECT_TRUE(SameBatchFile("/in/A.PNG", "/in/a.png"));
  EXPECT_TRUE(SameBatchFile("/in/./sub/../a.png", "/in/a.png"));
  EXPECT_FALSE(SameBatchFile("/in/a.png", "/out/a.png"));
}

// ------------------------------------------------------------------ the job

TEST(BatchJob, ConvertsEveryReaderAndCountsFailuresFirstInSortedOrder) {
  TempDir src, dst;
  Surface translucent = Picture(5, 3, 1);
  translucent.At(1, 1) = Px(0, 0, 0, 0);
  translucent.At(2, 1) = Px(100, 200, 150, 50);
  Tvl(src / "a.tvl", translucent);
  Psd(src / "b.psd", 10, 20, 30);
  Hdr(src / "c.hdr");
  ASSERT_TRUE(WriteWebpFile(src / "d.webp", translucent, 90, true));
  WriteBytes(src / "e.tvl", "not a layered file");
  WriteBytes(src / "f.png", "no codec natively");
  WriteBytes(src / "g.txt", "not listed");

  const BatchOutcome o = RunJob(src.path(), dst / "new", kToWebp);
  EXPECT_EQ(std::tuple(o.found, o.converted, o.failed, o.firstFailure), std::tuple(6, 4, 2, src / "e.tvl"));
  EXPECT_TRUE(SamePixels(ReadBack(dst / "new" / "a.webp"), translucent));
  EXPECT_TRUE(SamePixels(ReadBack(dst / "new" / "b.webp"), Filled(2, 2, Px(255, 10, 20, 30))));
  EXPECT_TRUE(SamePixels(ReadBack(dst / "new" / "c.webp"), Filled(2, 1, 0xFFCFCFCFu)));
  EXPECT_TRUE(SamePixels(ReadBack(dst / "new" / "d.webp"), translucent));
  EXPECT_FALSE(fs::exists(dst / "new" / "e.webp"));
}

TEST(BatchJob, OutputsTwoSourcesShareAreWrittenInSortedOrder) {
  // The earlier file is large, so a second worker would finish the later
  // one first if the two were converted side by side.
  TempDir src;
  Tvl(src / "a.kzl", Picture(800, 800, 2));
  Tvl(src / "a.tvl", Filled(2, 2, Px(255, 1, 2, 3)));
  const BatchOutcome o = RunJob(src.path(), src / "out", kToWebp, 9, 2);
  EXPECT_EQ(o.converted, 2);
  EXPECT_TRUE(SamePixels(ReadBack(src / "out" / "a.webp"), Filled(2, 2, Px(255, 1, 2, 3))));
}

TEST(BatchJob, StopsAfterTheFileInHand) {
  TempDir src;
  for (const char* name : {"a.tvl", "b.tvl", "c.tvl"}) Tvl(src / name, Filled(3, 3, 0xFF336699u));
  std::u16string seen;
  const BatchOutcome o = RunJob(src.path(), src / "out", kToWebp, 9, 1, [&](BatchJob& job) {
    seen = BatchProgressText(job);
    job.RequestStop();
  });
  EXPECT_EQ(seen, u"Now converting file 1 of 3: a.tvl");
  EXPECT_EQ(std::tuple(o.found, o.converted, o.Stopped()), std::tuple(3, 1, true));
  EXPECT_EQ(MakeBatchReport(o).text, u"Batch Conversion stopped.\n\n1 file converted.");
  EXPECT_EQ(BatchStatusText(o), u"Batch Conversion stopped");
  EXPECT_FALSE(fs::exists(src / "out" / "b.webp"));

  BatchJob early({.source = src.path(), .dest = src / "out"});
  EXPECT_EQ(BatchProgressText(early), u"Looking for files");
  early.RequestStop();
  EXPECT_EQ(BatchProgressText(early), u"Stopping");
  early.Start();
  early.Wait();
  EXPECT_EQ(std::tuple(early.Outcome().found, early.Outcome().converted), std::tuple(3, 0));
}

TEST(BatchJob, ReportTexts) {
  const struct {
    BatchOutcome outcome;
    const char16_t* text;
    bool warning;
  } cases[] = {
      {{0, 0, 0, 0, {}}, u"There are no matching files in the source folder.", false},
      {{1, 1, 0, 0, {}}, u"Batch Conversion Complete.\n\n1 file converted.", false},
      {{3, 0, 3, 0, {}},
       u"Batch Conversion Complete.\n\n0 files converted.\n3 skipped (the source and destination are the same file).",
       false},
      {{4, 2, 1, 1, "x.psd"},
       u"Batch Conversion Complete.\n\n2 files converted.\n1 skipped (the source and destination are the same "
       u"file).\n1 could not be converted (first: x.psd).",
       true},
      {{9, 1, 0, 1, "y.tvl"}, u"Batch Conversion stopped.\n\n1 file converted.\n1 could not be converted (first: y.tvl).",
       true},
  };
  for (const auto& c : cases) {
    const BatchReport r = MakeBatchReport(c.outcome);
    EXPECT_EQ(r.text, c.text);
    EXPECT_EQ(r.warning, c.warning) << Utf16ToUtf8(c.text);
  }
  EXPECT_EQ(BatchStatusText({2, 1, 1, 0, {}}), u"Batch Conversion Complete");
}

TEST_F(BatchWithCodec, OpaqueFormatsGetWhiteOptionsGoWhereTheyBelongAndTheSameFileIsSkipped) {
  TempDir dir;
  Surface layered = Filled(2, 1, Px(255, 9, 9, 9));
  layered.At(1, 0) = Px(64, 0, 0, 255);
  Tvl(dir / "a.tvl", layered, 300);
  WriteBytes(dir / "b.jpeg", "decoded by the fake codec");
  Surface translucent = Filled(1, 1, Px(128, 200, 0, 0));
  ASSERT_TRUE(WriteWebpFile(dir / "c.webp", translucent, 90, true));
  WriteBytes(dir / "d.jpg", "the same file as its output");

  const BatchOutcome jpeg = RunJob(dir.path(), dir.path(), kToJpeg, 0, 1);
  EXPECT_EQ(jpeg.converted, 3);  // b.jpeg -> b.jpg is another file
  EXPECT_EQ(jpeg.skipped, 1);
  const uint32_t white = 0xFFFFFFFFu;
  const FakeCodec::Encoded& a = FakeCodec::encoded.at(dir / "a.jpg");
  EXPECT_EQ(a.pixels.At(1, 0), Over(white, Px(64, 0, 0, 255)));
  EXPECT_EQ(std::tuple(a.dpi, a.options.format, a.options.quality), std::tuple(300, SaveFormat::Jpeg, 80));
  const FakeCodec::Encoded& b = FakeCodec::encoded.at(dir / "b.jpg");
  EXPECT_EQ(b.pixels.At(0, 0), Over(white, Px(128, 200, 0, 0)));
  EXPECT_EQ(b.pixels.At(1, 0), Px(255, 1, 2, 3));
  EXPECT_EQ(b.dpi, 72);  // none in the file: as an opened file gets
  EXPECT_EQ(FakeCodec::encoded.at(dir / "c.jpg").pixels.At(0, 0), Over(white, Px(128, 200, 0, 0)));

  // Formats with transparency keep it; the palette size reaches PNG only.
  BatchSettings values;
  values.source = U(dir.path());
  values.dest = U(dir / "out");
  values.png256 = true;
  for (int32_t format : {kToPng, kToGif, kToBmp}) {
    values.dstFmt = format;
    BatchOptions o = BatchOptionsFrom(values);
    EXPECT_TRUE(ConvertBatchFile(dir / "c.webp", dir / "c.out", o));
    const FakeCodec::Encoded& e = FakeCodec::encoded.at(dir / "c.out");
    EXPECT_EQ(e.options.format, BatchDestinations()[format].format);
    EXPECT_EQ(e.options.paletteSize, format == kToPng ? 256 : 0);
    EXPECT_EQ(e.pixels.At(0, 0), format == kToBmp ? Over(white, Px(128, 200, 0, 0)) : Px(128, 200, 0, 0));
  }
}

// ------------------------------------------------------------------ values and checks

TEST(BatchValues, RememberedValuesAreCheckedAndQualitiesRounded) {
  TempDir dir;
  SettingsStore store;
  store.Open(dir.path());
  const BatchSettings defaults = ReadBatchSettings(store.Snapshot());
  EXPECT_EQ(std::tuple(defaults.source, defaults.dstFmt, defaults.jpegQuality), std::tuple(u"", 1, 90));

  store.SetStrings(u"Batch", std::vector<std::pair<std::u16string, std::u16string>>{
                                 {u"SrcType", u"11"}, {u"DstFmt", u"-1"}, {u"Png256", u"2"}, {u"JpegQuality", u"0"},
                                 {u"WebpQuality", u"101"}, {u"WebpLossless", u"7"}});
  const BatchSettings bad = ReadBatchSettings(store.Snapshot());
  EXPECT_EQ(std::tuple(bad.srcType, bad.dstFmt, bad.png256, bad.jpegQuality, bad.webpQuality, bad.webpLossless),
            std::tuple(0, 1, false, 90, 90, false));

  const BatchSettings chosen{u"C:\\in", u"D:\\out \u00e9", 10, 5, true, 1, 100, true};
  WriteBatchSettings(store, chosen);
  const BatchSettings back = ReadBatchSettings(store.Snapshot());
  EXPECT_EQ(back.source, chosen.source);
  EXPECT_EQ(back.dest, chosen.dest);
  EXPECT_EQ(std::tuple(back.srcType, back.dstFmt, back.png256, back.jpegQuality, back.webpQuality, back.webpLossless),
            std::tuple(10, 5, true, 1, 100, true));

  const struct {
    const char16_t* typed;
    std::optional<int32_t> value;
  } qualities[] = {{u"90", 90}, {u" 85.5 ", 86}, {u"85.49", 85}, {u"1", 1},           {u"100", 100},
                   {u"0.9", {}}, {u"100.2", {}}, {u"", {}},      {u"abc", {}},        {u"1e2", {}},
                   {u"-5", {}},  {u"nan", {}},   {u"5x", {}}};
  for (const auto& q : qualities) EXPECT_EQ(ParseBatchQuality(q.typed), q.value) << Utf16ToUtf8(q.typed);
}

std::u16string Around(std::u16string_view before, std::u16string_view text, std::u16string_view after) {
  std::u16string s(before);
  s += text;
  s += after;
  return s;
}

TEST(BatchValues, StartChecksTrimAndCreateOneLevel) {
  TempDir dir;
  WriteBytes(dir / "file", "x");
  const std::u16string here = U(dir.path());
  const struct {
    std::u16string source, dest;
    std::u16string_view message;
  } cases[] = {
      {U(dir / "missing"), here, kBatchNoSource},
      {U(dir / "file"), here, kBatchNoSource},
      {u"", here, kBatchNoSource},
      {here, u"   ", kBatchNoDest},
      {here, U(dir / "a" / "b"), kBatchDestNotCreated},
      {here, U(dir / "file"), kBatchDestNotCreated},
      {Around(u"  ", here, u"\t"), Around(u"\"", U(dir / "new"), u"\" "), u""},
  };
  for (auto c : cases) {
    EXPECT_EQ(PrepareBatchFolders(c.source, c.dest), c.message) << Utf16ToUtf8(c.source) << " " << Utf16ToUtf8(c.dest);
  }
  std::u16string source = Around(u" ", here, u" "), dest = Around(u"\"", U(dir / "new"), u"\"");
  EXPECT_EQ(PrepareBatchFolders(source, dest), u"");
  EXPECT_EQ(source, here);
  EXPECT_EQ(dest, U(dir / "new"));
  EXPECT_TRUE(fs::is_directory(dir / "new"));
}

// ------------------------------------------------------------------ tavora-cli

TEST(CliBatch, ExitStatusesAndRefusals) {
  TempDir src, dst;
  Tvl(src / "a.tvl", Filled(2, 2, 0xFF00FF00u));
  const std::u16string in = U(src.path()), out = U(dst.path());
  const struct {
    std::vector<std::u16string> args;
    int status;
    const char* message;  // in stderr
  } cases[] = {
      {{u"batch", u"--to=webp", in}, 64, "usage"},
      {{u"batch", u"--to=webp", u"--fast", in, out}, 64, "usage"},
      {{u"batch", u"--to=webp", u"--type=11", in, out}, 64, "0 to 10"},
      {{u"batch", u"--to=webp", u"--quality=0", in, out}, 64, "Please enter a value between 1 and 100."},
      {{u"batch", u"--to=jpeg", in, out}, 64, "usage"},
      {{u"batch", in, out}, 64, "cannot write JPEG"},  // natively only WebP is written
      {{u"batch", u"--to=png", u"--png256", in, out}, 64, "cannot write PNG"},
      {{u"batch", u"--to=webp", U(src / "missing"), out}, 64, "Choose a source folder that exists."},
      {{u"batch", u"--to=webp", u"--quality=75", u"--lossless", in, out}, 0, ""},
  };
  for (const auto& c : cases) {
    std::string o, e;
    EXPECT_EQ(RunCli(c.args, o, e), c.status) << e;
    EXPECT_NE(e.find(c.message), std::string::npos) << e;
  }
  std::string o, e;
  ASSERT_EQ(RunCli({u"batch", u"--to=webp", u"--type=10", in, out}, o, e), 0);
  EXPECT_EQ(o, "There are no files of that type in the source folder.\n");
  o.clear();
  WriteBytes(src / "b.tvl", "broken");
  EXPECT_EQ(RunCli({u"batch", u"--to=webp", u"--lossless", in, out}, o, e), 1);
  EXPECT_EQ(o, "Batch Conversion Complete.\n\n1 file converted.\n1 could not be converted (first: " +
                   Utf16ToUtf8(PathDisplayText(src / "b.tvl")) + ").\n");
  EXPECT_TRUE(SamePixels(ReadBack(dst / "a.webp"), Filled(2, 2, 0xFF00FF00u)));
}

}  // namespace
}  // namespace tavora
