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
  EXPECT_FALSE(p.hasPosition || p.maximized);
  EXPECT_EQ(std::tuple(p.width, p.height), std::tuple(2040, 1290));

  // Wider than 400 and at least 301 high, with a stored position.
  for (auto [x, w, h, used] : {std::tuple{-20, 401, 301, true}, {0, 400, 600, false}, {0, 800, 300, false},
                               {kNoStoredX, 800, 600, false}}) {
    SaveWindowPlacement(settings, {true, x, 10, w, h, true});
    p = LoadWindowPlacement(settings, 1.0);
    EXPECT_EQ(p.hasPosition, used) << w << " x " << h << " at " << x;
    EXPECT_TRUE(p.maximized) << w << " x " << h << " at " << x;
    if (used) { EXPECT_EQ(std::tuple(p.x, p.y, p.width, p.height), std::tuple(x, 10, w, h)); }
  }
}

}  // namespace
}  // namespace tavora
