#include "app/view_settings.h"

#include <gtest/gtest.h>

#include "file_bytes.h"
#include "temp_dir.h"

namespace tavora {
namespace {

TEST(ViewSettingsAtStartUp, ThemeIsClampedAndWrittenBack) {
  testing_support::TempDir dir;
  testing_support::WriteBytes(dir / "tavora.ini",
                              "[View]\r\nTheme=7\r\nSmooth=0\r\nGrid=1\r\n[Paths]\r\nLastDir=C:\\pics\r\n");
  SettingsStore settings;
  settings.Open(dir.path());
  ViewSettings v = ReadViewSettings(settings);
  EXPECT_EQ(std::tuple(v.theme, v.smooth, v.grid, v.lastDir), std::tuple(Theme::Dark, false, true, u"C:\\pics"));
  EXPECT_EQ(settings.GetInt(u"View", u"Theme", -1), 2);  // rewritten

  settings.SetInt(u"View", u"Theme", -3);
  EXPECT_EQ(ReadViewSettings(settings).theme, Theme::FollowSystem);
  EXPECT_EQ(settings.GetInt(u"View", u"Theme", -1), 0);

  testing_support::TempDir fresh;  // a first start stores dark
  SettingsStore first;
  first.Open(fresh.path());
  v = ReadViewSettings(first);
  EXPECT_EQ(std::tuple(v.theme, v.smooth), std::tuple(Theme::Dark, true));
  EXPECT_EQ(first.GetInt(u"View", u"Theme", -1), 2);
}

}  // namespace
}  // namespace tavora
