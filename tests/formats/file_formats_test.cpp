#include "formats/file_formats.h"

#include <gtest/gtest.h>

#include "formats/layered_format.h"
#include "temp_dir.h"

namespace tavora {
namespace {

using testing_support::TempDir;

TEST(FileTables, SixteenExtensionsOpenAndEachHasItsReader) {
  int supported = 0;
  for (const char* ext : {".png", ".jpg", ".jpeg", ".jpe", ".jfif", ".bmp", ".dib", ".gif", ".tif",
                          ".tiff", ".ico", ".webp", ".hdr", ".tvl", ".kzl", ".psd"}) {
    EXPECT_TRUE(IsSupportedExtension(std::string("a") + ext)) << ext;
    ++supported;
  }
  EXPECT_EQ(supported, 16);
  EXPECT_TRUE(IsSupportedExtension("C:\\x\\PHOTO.JPG"));
  EXPECT_FALSE(IsSupportedExtension("a.pic"));  // an HDR name, but not in the open list
  EXPECT_FALSE(IsSupportedExtension("a.txt"));
  EXPECT_FALSE(IsSupportedExtension("png"));
  EXPECT_EQ(ClassifyFile("a.KZL"), FileClass::NativeLayered);
  EXPECT_EQ(ClassifyFile("a.psd"), FileClass::Photoshop);
  EXPECT_EQ(ClassifyFile("a.pic"), FileClass::RadianceHdr);
  EXPECT_EQ(ClassifyFile("a.HDR"), FileClass::RadianceHdr);
  EXPECT_EQ(ClassifyFile("a.webp"), FileClass::WebP);
  EXPECT_EQ(ClassifyFile("a.dib"), FileClass::SystemCodec);
}

// A codec for the tests: decodes every file to a fixed 3 x 2 picture and
// records what it was asked to encode.
struct FakeCodec {
  static inline Surface encoded;
  static inline EncodeOptions lastOptions;
  static inline int32_t lastDpi = 0;
  static inline int32_t fileDpi = 0;
  static inline bool fail = false;
  static std::optional<DecodedImage> Decode(const std::filesystem::path&) {
    if (fail) return std::nullopt;
    DecodedImage image{Surface(3, 2), fileDpi};
    image.pixels.Fill(0xFF102030);
    image.pixels.At(2, 1) = 0x80FFFFFF;
    return image;
  }
  static bool Encode(const std::filesystem::path&, const Surface& pixels, int32_t dpi,
                     const EncodeOptions& options) {
    encoded = pixels;
    lastDpi = dpi;
    lastOptions = options;
    return !fail;
  }
  static constexpr SystemCodec kTable{&Decode, &Encode};
};

class WithFakeCodec : public ::testing::Test {
 protected:
  void SetUp() override {
    FakeCodec::fail = false;
    FakeCodec::fileDpi = 0;
    SetSystemCodec(&FakeCodec::kTable);
  }
  void TearDown() override { SetSystemCodec(nullptr); }
};

std::vector<std::u16string> Labels(const std::vector<DialogFilter>& filters) {
  std::vector<std::u16string> labels;
  for (const DialogFilter& f : filters) labels.push_back(f.label);
  return labels;
}

// The dialogs list what opens and what can be written at the moment they
// are built: without the system codec only the program's own readers and
// writers, with it the system's formats too. ICO, Radiance HDR and
// Photoshop files open but are never written.
TEST(FileTables, DialogFiltersListOnlyWhatWorksNow) {
  struct Case {
    const SystemCodec* codec;
    std::u16string_view allImages;
    std::vector<std::u16string> open, save;
  };
  const Case cases[] = {
      {nullptr, u"*.webp;*.hdr;*.psd;*.tvl;*.kzl",
       {u"All images", u"WebP", u"Radiance HDR", u"Photoshop", u"Tavora layered", u"All files"},
       {u"WebP (*.webp)", u"Tavora layered (*.tvl)"}},
      {&FakeCodec::kTable,
       u"*.png;*.jpg;*.jpeg;*.jpe;*.jfif;*.bmp;*.gif;*.tif;*.tiff;*.ico;*.webp;*.hdr;*.psd;*.tvl;*.kzl",
       {u"All images", u"PNG", u"JPEG", u"Bitmap", u"GIF", u"TIFF", u"WebP", u"Radiance HDR",
        u"Photoshop", u"Tavora layered", u"All files"},
       {u"PNG (*.png)", u"JPEG (*.jpg)", u"Bitmap (*.bmp)", u"GIF (*.gif)", u"TIFF (*.tif)",
        u"WebP (*.webp)", u"Tavora layered (*.tvl)"}},
  };
  for (const Case& c : cases) {
    SetSystemCodec(c.codec);
    const auto open = OpenFilters();
    EXPECT_EQ(Labels(open), c.open);
    EXPECT_EQ(open.front().pattern, c.allImages);
    EXPECT_EQ(open.back().pattern, u"*.*");
    const auto save = SaveFilters();
    EXPECT_EQ(Labels(save), c.save);
    // Every name the filters offer opens or saves; the ones left out do not.
    for (const DialogFilter& f : save) {
      EXPECT_EQ(f.pattern, u"*" + f.extension);
      EXPECT_TRUE(CanWriteFile(u"a" + f.extension)) << std::string(f.extension.begin(), f.extension.end());
    }
    for (std::size_t i = 1; i + 1 < open.size(); ++i)
      EXPECT_NE(c.allImages.find(open[i].pattern), std::u16string_view::npos);
    for (const char* name : {"a.png", "a.jpeg", "a.tif", "a.ico", "a.tvl", "a.kzl"})
      EXPECT_EQ(CanOpenFile(name), c.codec != nullptr || IsLayeredExtension(name)) << name;
    for (const char* name : {"a.webp", "a.hdr", "a.pic", "a.psd"}) EXPECT_TRUE(CanOpenFile(name)) << name;
    for (const char* name : {"a.ico", "a.hdr", "a.pic", "a.psd"}) EXPECT_FALSE(CanWriteFile(name)) << name;
    EXPECT_TRUE(CanWriteFile("a.webp"));
  }
  SetSystemCodec(nullptr);
}

// The index rules follow the shortened list: the preselected filter, the
// proposed name and the extension added to a bare name.
TEST(SaveNames, FilterIndexRulesFollowTheList) {
  auto one = CreateDocument(4, 4, 72, 0xFFFFFFFF, 0);
  auto two = CreateDocument(4, 4, 72, 0xFFFFFFFF, 0);
  two->layers.emplace_back(4, 4, u"top");
  SetSystemCodec(&FakeCodec::kTable);
  EXPECT_EQ(DefaultSaveFilterIndex(*one), 1);
  EXPECT_EQ(DefaultSaveFilterIndex(*two), 7);
  EXPECT_EQ(ProposedSaveName(*one), one->title + u".png");
  EXPECT_EQ(WithSaveExtension("photo", 2), std::filesystem::path("photo.jpg"));
  EXPECT_EQ(WithSaveExtension("photo", 6), std::filesystem::path("photo.webp"));
  EXPECT_EQ(WithSaveExtension("photo", 7), std::filesystem::path("photo.tvl"));
  EXPECT_EQ(WithSaveExtension("photo", 0), std::filesystem::path("photo.png"));
  EXPECT_EQ(WithSaveExtension("photo", 99), std::filesystem::path("photo.tvl"));
  EXPECT_EQ(WithSaveExtension("photo.bmp", 2), std::filesystem::path("photo.bmp"));
  // Without a codec PNG is missing and the layered format stands in for it.
  SetSystemCodec(nullptr);
  EXPECT_EQ(DefaultSaveFilterIndex(*one), 2);
  EXPECT_EQ(DefaultSaveFilterIndex(*two), 2);
  EXPECT_EQ(ProposedSaveName(*one), one->title + u".tvl");
  EXPECT_EQ(WithSaveExtension("photo", 1), std::filesystem::path("photo.webp"));
  EXPECT_EQ(WithSaveExtension("photo", 2), std::filesystem::path("photo.tvl"));
}

TEST(SaveNames, ProposalsAndFormatCodes) {
  SetSystemCodec(&FakeCodec::kTable);
  auto doc = CreateDocument(4, 4, 72, 0xFFFFFFFF, 0);
  doc->path = u"C:\\pics\\holiday.photo.jpg";
  SetTitle(*doc);
  EXPECT_EQ(ProposedSaveName(*doc), u"holiday.photo.png");
  doc->layers.emplace_back(4, 4, u"top");
  EXPECT_EQ(ProposedSaveName(*doc), u"holiday.photo.tvl");
  SetSystemCodec(nullptr);

  EXPECT_EQ(EncodeOptionsFor("a.JFIF", *doc).format, SaveFormat::Jpeg);
  EXPECT_EQ(EncodeOptionsFor("a.tiff", *doc).format, SaveFormat::Tiff);
  EXPECT_EQ(EncodeOptionsFor("a.gif", *doc).format, SaveFormat::Gif);
  EXPECT_EQ(EncodeOptionsFor("a.webp", *doc).format, SaveFormat::WebP);
  EXPECT_EQ(EncodeOptionsFor("a.xyz", *doc).format, SaveFormat::Png);
  EXPECT_EQ(EncodeOptionsFor("a.jpg", *doc).quality, 90);
  EXPECT_EQ(EncodeOptionsFor("a.gif", *doc).paletteSize, 0);  // full colour
  doc->colorCount = 16;
  EXPECT_EQ(EncodeOptionsFor("a.gif", *doc).paletteSize, 16);
  doc->colorCount = 257;
  EXPECT_EQ(EncodeOptionsFor("a.gif", *doc).paletteSize, 0);
  EXPECT_TRUE(AsksForQuality(SaveFormat::WebP));
  EXPECT_FALSE(AsksForQuality(SaveFormat::Png));
  EXPECT_TRUE(NeedsOpaqueFlattening(SaveFormat::Bmp));
  EXPECT_FALSE(NeedsOpaqueFlattening(SaveFormat::Gif));
}

TEST(SaveNames, TheFlattenWarningComesOnlyForANewNameOfALayeredPicture) {
  auto doc = CreateDocument(4, 4, 72, 0xFFFFFFFF, 0);
  EXPECT_FALSE(NeedsFlattenWarning(*doc, "new.png", true));  // one layer
  doc->layers.emplace_back(4, 4, u"top");
  EXPECT_TRUE(NeedsFlattenWarning(*doc, "new.png", true));
  EXPECT_FALSE(NeedsFlattenWarning(*doc, "new.tvl", true));
  doc->path = "C:/x/New.PNG";  // saved there once already
  EXPECT_FALSE(NeedsFlattenWarning(*doc, "c:/x/new.png", true));
  EXPECT_FALSE(NeedsFlattenWarning(*doc, "C:/x/New.PNG", false));  // a quick save
  EXPECT_TRUE(NeedsFlattenWarning(*doc, "C:/x/other.png", true));
}

TEST_F(WithFakeCodec, OpenedPicturesBecomeOneLayerDocuments) {
  auto doc = ReadDocumentFile("C:\\pics\\Cat.PNG");
  ASSERT_TRUE(doc);
  EXPECT_EQ(doc->width, 3);
  EXPECT_EQ(doc->dpi, 72);  // the file gave none
  EXPECT_EQ(doc->title, u"Cat.PNG");
  EXPECT_EQ(doc->path, std::filesystem::path("C:\\pics\\Cat.PNG"));
  EXPECT_FALSE(doc->modified);
  ASSERT_EQ(doc->LayerCount(), 1);
  EXPECT_EQ(doc->layers[0].Name(), u"Background");
  EXPECT_FALSE(doc->layers[0].opaqueBackground);  // one half-transparent pixel
  EXPECT_EQ(doc->layers[0].pixels.At(2, 1), 0x80FFFFFFu);
  FakeCodec::fileDpi = 300;
  EXPECT_EQ(ReadDocumentFile("a.jpg")->dpi, 300);
  FakeCodec::fail = true;
  EXPECT_FALSE(ReadDocumentFile("a.png"));
  FakeCodec::fail = false;
  // The program's own readers refuse a missing file cleanly.
  TempDir dir;
  for (const char* name : {"a.psd", "a.hdr", "a.webp", "a.tvl"}) EXPECT_FALSE(ReadDocumentFile(dir / name)) << name;
  SetSystemCodec(nullptr);
  EXPECT_FALSE(ReadDocumentFile("a.png"));
}

TEST_F(WithFakeCodec, FlatFormatsGetTheFlattenedPictureOpaqueWhereNeeded) {
  auto doc = CreateDocument(2, 1, 150, 0x00000000, 0);
  doc->layers[0].pixels.At(0, 0) = 0x80FF0000;
  doc->layers.emplace_back(2, 1, u"top");
  doc->layers[1].pixels.At(1, 0) = 0xFF00FF00;
  EncodeOptions png = EncodeOptionsFor("a.png", *doc);
  ASSERT_TRUE(WriteDocumentFile(*doc, "a.png", png));
  EXPECT_EQ(FakeCodec::encoded.At(0, 0), 0x80FF0000u);  // alpha kept
  EXPECT_EQ(FakeCodec::encoded.At(1, 0), 0xFF00FF00u);
  EXPECT_EQ(FakeCodec::lastDpi, 150);
  ASSERT_TRUE(WriteDocumentFile(*doc, "a.jpg", EncodeOptionsFor("a.jpg", *doc)));
  EXPECT_EQ(FakeCodec::encoded.At(0, 0), 0xFFFF7F7Fu);  // half red on white
  EXPECT_EQ(FakeCodec::lastOptions.format, SaveFormat::Jpeg);
  EXPECT_EQ(doc->LayerCount(), 2);  // the document itself keeps its layers
  FakeCodec::fail = true;
  EXPECT_FALSE(WriteDocumentFile(*doc, "a.png", png));
  EXPECT_FALSE(WriteDocumentFile(*doc, "a.psd", png));  // no writer for it
  FakeCodec::fail = false;
  EXPECT_FALSE(WriteDocumentFile(*doc, "a.hdr", png));
  EXPECT_FALSE(WriteDocumentFile(*doc, "a.ico", png));
}

TEST_F(WithFakeCodec, LayeredFilesGoToTheLayeredWriterAsTheyAre) {
  TempDir dir;
  auto doc = CreateDocument(2, 2, 72, 0xFF000000, 0);
  doc->layers.emplace_back(2, 2, u"top");
  ASSERT_TRUE(WriteDocumentFile(*doc, dir / "a.tvl", EncodeOptionsFor(dir / "a.tvl", *doc)));
  auto back = ReadDocumentFile(dir / "a.tvl");
  ASSERT_TRUE(back);
  EXPECT_EQ(back->LayerCount(), 2);
  EXPECT_EQ(back->path, dir / "a.tvl");
}

TEST(RecentFileList, NewestFirstEightAtMostWithoutDuplicates) {
  TempDir dir;
  SettingsStore settings;
  settings.Open(dir.path());
  RecentFiles recent;
  recent.Load(settings);
  EXPECT_TRUE(recent.Paths().empty());
  for (int i = 1; i <= 9; ++i)
    recent.Add("C:\\p\\" + std::to_string(i) + ".png", settings);
  ASSERT_EQ(recent.Paths().size(), 8u);
  EXPECT_EQ(recent.Paths()[0], u"C:\\p\\9.png");
  EXPECT_EQ(recent.Paths()[7], u"C:\\p\\2.png");  // the first one was pushed out
  recent.Add("c:\\P\\7.PNG", settings);  // the third again, in other case
  EXPECT_EQ(recent.Paths().size(), 8u);
  EXPECT_EQ(recent.Paths()[0], u"c:\\P\\7.PNG");
  EXPECT_EQ(recent.Paths()[1], u"C:\\p\\9.png");
  EXPECT_EQ(recent.Paths()[3], u"C:\\p\\6.png");
  EXPECT_EQ(settings.GetString(u"Recent", u"r0"), u"c:\\P\\7.PNG");
  EXPECT_EQ(settings.GetString(u"Recent", u"r7"), u"C:\\p\\2.png");

  RecentFiles reloaded;
  reloaded.Load(settings);
  EXPECT_EQ(reloaded.Paths(), recent.Paths());
  settings.SetString(u"Recent", u"r1", u"");  // empty slots are skipped on load
  reloaded.Load(settings);
  EXPECT_EQ(reloaded.Paths().size(), 7u);
  EXPECT_EQ(reloaded.Paths()[1], u"C:\\p\\8.png");

  TempDir other;
  SettingsStore few;
  few.Open(other.path());
  RecentFiles two;
  two.Add("a.png", few);
  two.Add("b.png", few);
  EXPECT_EQ(few.GetString(u"Recent", u"r1"), u"a.png");
  EXPECT_EQ(few.GetString(u"Recent", u"r2", u"missing"), u"");  // written empty
  EXPECT_EQ(FolderOf("C:\\pics\\a.png"), u"C:\\pics");
  EXPECT_EQ(FolderOf("a.png"), u"");
}

}  // namespace
}  // namespace tavora
