#include "formats/file_formats.h"

#include <gtest/gtest.h>

#include <tuple>

#include "fake_codec.h"
#include "formats/layered_format.h"
#include "temp_dir.h"

namespace tavora {
namespace {

using testing_support::FakeCodec;
using testing_support::Px;
using testing_support::TempDir;
using testing_support::WithFakeCodec;

TEST(FileTables, SixteenExtensionsOpenAndEachHasItsReader) {
  for (const char* ext : {".png", ".jpg", ".jpeg", ".jpe", ".jfif", ".bmp", ".dib", ".gif", ".tif",
                          ".tiff", ".ico", ".webp", ".hdr", ".tvl", ".kzl", ".psd", "\\x\\PHOTO.JPG"})
    EXPECT_TRUE(IsSupportedExtension(std::string("a") + ext)) << ext;
  // ".pic" is an HDR name, but not in the open list.
  for (const char* name : {"a.pic", "a.txt", "png"}) EXPECT_FALSE(IsSupportedExtension(name)) << name;
  for (auto [name, kind] : {std::pair{"a.KZL", FileClass::NativeLayered}, {"a.psd", FileClass::Photoshop},
                            {"a.pic", FileClass::RadianceHdr}, {"a.HDR", FileClass::RadianceHdr},
                            {"a.webp", FileClass::WebP}, {"a.dib", FileClass::SystemCodec}})
    EXPECT_EQ(ClassifyFile(name), kind) << name;
}

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
  for (auto [name, index, want] : {std::tuple{"photo", 2, "photo.jpg"}, {"photo", 6, "photo.webp"},
                                   {"photo", 7, "photo.tvl"}, {"photo", 0, "photo.png"}, {"photo", 99, "photo.tvl"},
                                   {"photo.bmp", 2, "photo.bmp"}})
    EXPECT_EQ(WithSaveExtension(name, index), std::filesystem::path(want)) << name << " " << index;
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

  for (auto [name, format] : {std::pair{"a.JFIF", SaveFormat::Jpeg}, {"a.tiff", SaveFormat::Tiff},
                              {"a.gif", SaveFormat::Gif}, {"a.webp", SaveFormat::WebP}, {"a.xyz", SaveFormat::Png}})
    EXPECT_EQ(EncodeOptionsFor(name, *doc).format, format) << name;
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
  // The file gave no dpi: 72.
  EXPECT_EQ(std::tuple(doc->width, doc->dpi, doc->title, doc->path, doc->modified),
            std::tuple(3, 72, u"Cat.PNG", std::filesystem::path("C:\\pics\\Cat.PNG"), false));
  ASSERT_EQ(doc->LayerCount(), 1);
  EXPECT_EQ(doc->layers[0].Name(), u"Background");
  EXPECT_FALSE(doc->layers[0].opaqueBackground);  // one half-transparent pixel
  EXPECT_EQ(doc->layers[0].pixels.At(0, 0), Px(128, 200, 0, 0));
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
  const FakeCodec::Encoded& flat = FakeCodec::encoded.at("a.png");
  EXPECT_EQ(flat.pixels.At(0, 0), 0x80FF0000u);  // alpha kept
  EXPECT_EQ(flat.pixels.At(1, 0), 0xFF00FF00u);
  EXPECT_EQ(flat.dpi, 150);
  ASSERT_TRUE(WriteDocumentFile(*doc, "a.jpg", EncodeOptionsFor("a.jpg", *doc)));
  EXPECT_EQ(FakeCodec::encoded.at("a.jpg").pixels.At(0, 0), 0xFFFF7F7Fu);  // half red on white
  EXPECT_EQ(FakeCodec::encoded.at("a.jpg").options.format, SaveFormat::Jpeg);
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
  for (int i = 1; i <= 9; ++i) recent.Add("C:\\p\\" + std::to_string(i) + ".png", settings);
  recent.Add("c:\\P\\7.PNG", settings);  // the third again, in other case
  // Newest first, the first one pushed out, the older 7 gone.
  EXPECT_EQ(recent.Paths(), (std::vector<std::u16string>{u"c:\\P\\7.PNG", u"C:\\p\\9.png", u"C:\\p\\8.png",
                                                         u"C:\\p\\6.png", u"C:\\p\\5.png", u"C:\\p\\4.png",
                                                         u"C:\\p\\3.png", u"C:\\p\\2.png"}));
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
