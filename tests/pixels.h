#pragma once
// Comparing pictures in tests: the first differing pixel is named.
#include <gtest/gtest.h>

#include "document/surface.h"

namespace tavora::testing_support {

inline ::testing::AssertionResult SamePixels(const Surface& got, const Surface& want) {
  if (got.Width() != want.Width() || got.Height() != want.Height())
    return ::testing::AssertionFailure() << "size " << got.Width() << "x" << got.Height()
                                         << ", want " << want.Width() << "x" << want.Height();
  for (int32_t y = 0; y < want.Height(); ++y)
    for (int32_t x = 0; x < want.Width(); ++x)
      if (got.At(x, y) != want.At(x, y))
        return ::testing::AssertionFailure() << "pixel (" << x << "," << y << ") is " << std::hex
                                             << got.At(x, y) << ", want " << want.At(x, y);
  return ::testing::AssertionSuccess();
}

}  // namespace tavora::testing_support
