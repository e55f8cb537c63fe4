#include "app/view_settings.h"

#include <gtest/gtest.h>

#include <fstream>

#include "temp_dir.h"

namespace tavora {
namespace {

TEST(ViewSettingsAtStartUp, ThemeIsClampedAndWrittenBack) {
  testing_support::TempDir dir;
  {
    std::ofstream(dir / "tavora.ini", std::ios::binary)
        << "[View]\r\nTheme=7\r\nSmooth=0\r\nGrid=1\r\n[Recent]\r\nr0=a.png\r\nr1=\r\nr3=c.png\r\n"
           "r8=ignored.png\r\n[Paths]\r\nLastDir=C:\\pics\r\n";
  }
  SettingsStore settings;
  settings.Open(dir.path());
  ViewSettings v = ReadViewSettings(settings);
  EXPECT_EQ(v.theme, Theme::Dark);
  EXPECT_EQ(settings.GetInt(u"View", u"Theme", -1), 2);  // rewritten
  EXPECT_FALSE(v.smooth);
  EXPECT_TRUE(v.grid);
  EXPECT_EQ(v.lastDir, u"C:\\pics");

  settings.SetInt(u"View", u"Theme", -3);
  EXPECT_EQ(ReadViewSettings(settings).theme, Theme::FollowSystem);
  EXPECT_EQ(settings.GetInt(u"View", u"Theme", -1), 0);

  testing_support::TempDir fresh;  // a first start stores dark
  SettingsStore first;
  first.Open(fresh.path());
  v = ReadViewSettings(first);
  EXPECT_EQ(v.theme, Theme::Dark);
  EXPECT_TRUE(v.smooth);
  EXPECT_EQ(first.GetInt(u"View", u"Theme", -1), 2);
}

}  // namespace
}  // namespace tavora
