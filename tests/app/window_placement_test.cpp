#include "app/window_placement.h"

#include <gtest/gtest.h>

#include "temp_dir.h"

namespace tavora {
namespace {

TEST(WindowPlacementRules, StoredRectanglesAreUsedOnlyWhenLargeEnough) {
  testing_support::TempDir dir;
  SettingsStore settings;
  settings.Open(dir.path());
  WindowPlacement p = LoadWindowPlacement(settings, 1.5);
  EXPECT_FALSE(p.hasPosition);
  EXPECT_EQ(p.width, 2040);
  EXPECT_EQ(p.height, 1290);
  EXPECT_FALSE(p.maximized);

  SaveWindowPlacement(settings, {true, -20, 10, 401, 301, true});
  p = LoadWindowPlacement(settings, 1.0);
  EXPECT_TRUE(p.hasPosition);
  EXPECT_EQ(p.x, -20);
  EXPECT_EQ(p.width, 401);
  EXPECT_TRUE(p.maximized);

  settings.SetInt(u"Window", u"W", 400);  // not wider than 400
  EXPECT_FALSE(LoadWindowPlacement(settings, 1.0).hasPosition);
  settings.SetInt(u"Window", u"W", 800);
  settings.SetInt(u"Window", u"H", 300);  // lower than 301
  EXPECT_FALSE(LoadWindowPlacement(settings, 1.0).hasPosition);
  settings.SetInt(u"Window", u"H", 600);
  settings.SetInt(u"Window", u"X", 2147483647);  // the "absent" marker
  EXPECT_FALSE(LoadWindowPlacement(settings, 1.0).hasPosition);
  EXPECT_TRUE(LoadWindowPlacement(settings, 1.0).maximized);
}

}  // namespace
}  // namespace tavora
