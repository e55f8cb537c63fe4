#pragma once
// Pixels in tests: building them, and comparing pictures with the first
// differing pixel named.
#include <gtest/gtest.h>

#include "document/surface.h"

namespace tavora::testing_support {

// A straight-alpha pixel from its four channels.
constexpr uint32_t Px(uint32_t a, uint32_t r, uint32_t g, uint32_t b) {
  return a << 24 | r << 16 | g << 8 | b;
}

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
