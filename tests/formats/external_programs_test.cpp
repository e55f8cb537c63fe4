#include "formats/external_programs.h"

#include <gtest/gtest.h>

#include <fstream>
#include <tuple>

#include "temp_dir.h"

namespace tavora {
namespace {

using testing_support::TempDir;

void Touch(const std::filesystem::path& p) {
  std::filesystem::create_directories(p.parent_path());
  std::ofstream(p) << "x";
}

TEST(Upscayl, EngineModelsOutputNamesAndCommandLine) {
  TempDir dir;
  const auto program = dir / "Upscayl" / "Upscayl.exe";
  Touch(program);
  EXPECT_FALSE(FindUpscaylEngine(program));
  Touch(dir / "Upscayl" / "upscayl-bin.exe");
  EXPECT_EQ(FindUpscaylEngine(program), dir / "Upscayl" / "upscayl-bin.exe");
  const auto engine = dir / "Upscayl" / "resources" / "bin" / "upscayl-bin.exe";
  Touch(engine);
  EXPECT_EQ(FindUpscaylEngine(program), engine);  // resources\bin comes first
  EXPECT_EQ(FindUpscaylEngine(engine), engine);   // the engine itself configured
  EXPECT_FALSE(FindUpscaylModels(engine));
  std::filesystem::create_directories(dir / "Upscayl" / "resources" / "models");
  EXPECT_EQ(FindUpscaylModels(engine), std::filesystem::weakly_canonical(dir / "Upscayl" / "resources" / "models"));

  // photo.jpg twice at 4 with remacri: _remacri-4x.png, then _2.
  const auto photo = dir / "photo.jpg";
  Touch(photo);
  const auto first = UpscaylOutputPath(photo, u"remacri", 4);
  EXPECT_EQ(first, dir / "photo_remacri-4x.png");
  Touch(*first);
  EXPECT_EQ(UpscaylOutputPath(photo, u"remacri", 4), dir / "photo_remacri-4x_2.png");

  EXPECT_EQ(UpscaylCommandLine("C:\\u\\upscayl-bin.exe", "C:\\p\\a.jpg", "C:\\p\\a_x-4x.png", 4, "C:\\u\\models",
                               u"x", false),
            u"\"C:\\u\\upscayl-bin.exe\" -i \"C:\\p\\a.jpg\" -o \"C:\\p\\a_x-4x.png\" -s 4 -m \"C:\\u\\models\" "
            u"-n \"x-4x\" -f png");
  const std::u16string three = UpscaylCommandLine("e", "i", "o", 3, "m", u"x", true);
  EXPECT_NE(three.find(u"-s 3 -z 4 -m"), std::u16string::npos);
  EXPECT_EQ(three.substr(three.size() - 3), u" -x");
}

TEST(Upscayl, WhoTakesWhatAndTheMessages) {
  for (auto [file, upscayl, photoshop] : {std::tuple{"a.JPG", true, true}, {"a.jpeg", true, true},
                                          {"a.png", true, true}, {"a.bmp", false, true},
                                          {"a.tvl", false, false}, {"a.KZL", false, false}, {"", false, false}}) {
    EXPECT_EQ(UpscaylAccepts(file), upscayl) << file;
    EXPECT_EQ(PhotoshopAccepts(file), photoshop) << file;
  }
  EXPECT_EQ(KeepEngineOutput(u"\r\n\nerror: no GPU\r\n"), u"error: no GPU");
  EXPECT_EQ(KeepEngineOutput(std::u16string(500, u'x')).size(), 390u);
  EXPECT_EQ(UpscaylFailedMessage(3, u""), u"Upscayl did not produce an image (exit code 3).\n\n(no output)");
  EXPECT_EQ(PendingChangesQuestion(u"a.png", u"Upscayl"),
            u"\u201Ca.png\u201D has pending changes that are not saved. Upscayl works on the saved file on disk, so "
            u"your latest edits will not be included.\n\nContinue anyway?");
}

TEST(Upscayl, RememberedChoicesAreChecked) {
  TempDir dir;
  SettingsStore settings;
  settings.Open(dir.path());
  EXPECT_EQ(LoadUpscaylChoice(settings).scale, 4);
  settings.SetString(u"External", u"UpscaylScale", u"7");
  settings.SetString(u"External", u"UpscaylModel", u"nonsense");
  EXPECT_EQ(std::pair(LoadUpscaylChoice(settings).scale, LoadUpscaylChoice(settings).model), std::pair(4, 0));
  SaveUpscaylChoice(settings, {2, 3, true});
  const UpscaylChoice back = LoadUpscaylChoice(settings);
  EXPECT_EQ(std::tuple(back.scale, back.model, back.tta), std::tuple(2, 3, true));
  EXPECT_EQ(settings.GetString(u"External", u"UpscaylModel"), u"remacri");
}

}  // namespace
}  // namespace tavora
