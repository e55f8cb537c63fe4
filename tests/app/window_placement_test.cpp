#include "app/window_placement.h"

#include <gtest/gtest.h>

#include "temp_dir.h"

namespace tavora {
namespace {

TEST(WindowPlacementRules, StoredRectanglesAreUsedOnlyWhenLargeEnough) {
  testing_support::TempDir dir;
  SettingsStore settings;
  settings.Open(dir.path());
  WindowPlacement p = LoadWindowPlacement(settings, 1.5);  // nothing stored: 1360 x 860 scaled
  EXPECT_FALSE(p.hasPosition);
  EXPECT_EQ(p.width, 2040);
  EXPECT_EQ(p.height, 1290);
  EXPECT_FALSE(p.maximized);

  SaveWindowPlacement(settings, {true, -20, 10, 401, 301, true});
  p = LoadWindowPlacement(settings, 1.0);
  EXPECT_TRUE(p.hasPosition);
  EXPECT_EQ(p.x, -20);
  EXPECT_EQ(p.y, 10);
  EXPECT_EQ(p.width, 401);
  EXPECT_EQ(p.height, 301);
  EXPECT_TRUE(p.maximized);

  // Wider than 400 and at least 301 high, with a stored position.
  for (auto [w, h, x] : {std::tuple{400, 600, 0}, {800, 300, 0}, {800, 600, kNoStoredX}}) {
    SaveWindowPlacement(settings, {true, x, 0, w, h, true});
    p = LoadWindowPlacement(settings, 1.0);
    EXPECT_FALSE(p.hasPosition) << w << " x " << h << " at " << x;
    EXPECT_TRUE(p.maximized) << w << " x " << h << " at " << x;
  }
}

}  // namespace
}  // namespace tavora
