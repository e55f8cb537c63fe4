#include "document/blend.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "pixels.h"

namespace tavora {
namespace {

using testing_support::Px;

// Exactly rounded n / d for non-negative n and d > 0 (halves round up).
int RoundDiv(int64_t n, int64_t d) { return static_cast<int>((2 * n + d) / (2 * d)); }

TEST(BlendArithmetic, MulAndMul2AreExactlyRoundedForAllPairs) {
  for (int a = 0; a < 256; ++a) {
    for (int b = 0; b < 256; ++b) {
      ASSERT_EQ(static_cast<int>(Mul(a, b)), RoundDiv(a * b, 255)) << a << " " << b;
      // Mul2 is exact wherever its result fits a channel (as Overlay and Hard
      // Light use it); above that the 514/65536 factor lands at most one low.
      const int exact2 = RoundDiv(2 * a * b, 255), mul2 = static_cast<int>(Mul2(a, b));
      ASSERT_TRUE(mul2 == exact2 || (exact2 > 255 && mul2 == exact2 - 1)) << a << " " << b << ": " << mul2;
    }
  }
  EXPECT_EQ(Mul(128, 128), 64u);
  EXPECT_EQ(Mul2(172, 202), 272u);  // exactly 272.5...: the one-low case
}

// Each mode written the obvious way, without the shift tricks.
int ReferenceBlend(int mode, int b, int s) {
  switch (mode) {
    case 0: return s;
    case 1: return RoundDiv(b * s, 255);
    case 2: return b + s - RoundDiv(b * s, 255);
    case 3: return b >= 128 ? 255 - RoundDiv(2 * (255 - b) * (255 - s), 255) : RoundDiv(2 * b * s, 255);
    case 4: return std::min(b, s);
    case 5: return std::max(b, s);
    case 6: return std::abs(b - s);
    case 7: {
      // Single precision is part of the definition: results differ from
      // double precision where r x 255 sits within a rounding error of a half.
      using Real = float;
      const Real cb = b / Real(255), cs = s / Real(255);
      Real r;
      if (cs <= Real(0.5)) {
        r = cb - (1 - 2 * cs) * cb * (1 - cb);
      } else {
        const Real d = cb <= Real(0.25) ? ((16 * cb - 12) * cb + 4) * cb : std::sqrt(cb);
        r = cb + (2 * cs - 1) * (d - cb);
      }
      return std::clamp(static_cast<int>(r * 255 + Real(0.5)), 0, 255);
    }
    case 8: return s >= 128 ? 255 - RoundDiv(2 * (255 - b) * (255 - s), 255) : RoundDiv(2 * b * s, 255);
    case 9:
      if (s == 255) return b > 0 ? 255 : 0;
      return std::min(255, b * 255 / (255 - s));
    case 10:
      if (s == 0) return b == 255 ? 255 : 0;
      return 255 - std::min(255, (255 - b) * 255 / s);
    case 11: {
      // Exclusion subtracts Mul2, which is one low where 2bs/255 exceeds 255.
      const int exact2 = RoundDiv(2 * b * s, 255);
      const bool oneLow = exact2 > 255 && ((b * s * 514 + 32896) >> 16) < exact2;
      return b + s - exact2 + (oneLow ? 1 : 0);
    }
    case 12: return std::min(b + s, 255);
    case 13: return std::max(b + s - 255, 0);
  }
  return s;
}

TEST(BlendModes, EveryModeMatchesTheReferenceForAllPairs) {
  for (int mode = 0; mode < kBlendModeCount; ++mode)
    for (int b = 0; b < 256; ++b)
      for (int s = 0; s < 256; ++s)
        ASSERT_EQ(BlendChannel(mode, static_cast<uint8_t>(b), static_cast<uint8_t>(s)),
                  ReferenceBlend(mode, b, s))
            << "mode " << mode << " b=" << b << " s=" << s;
}

TEST(BlendModes, NamesAreTheMenuTextsAndUnknownModesAreNormal) {
  EXPECT_EQ(BlendModeName(7), u"Soft Light");
  EXPECT_EQ(BlendModeName(12), u"Linear Dodge (Add)");
  for (int mode : {-1, 14, 99}) {
    EXPECT_EQ(BlendModeName(mode), u"Normal") << mode;
    EXPECT_EQ(BlendChannel(mode, 10, 200), 200) << mode;
  }
}

TEST(OverOperator, ReciprocalDivisionIsExactForEverySum) {
  // Over divides s_c x a_s + d_c x a' (below 2 x 255 x 255) by alpha.
  for (uint32_t d = 1; d < 256; ++d)
    for (uint32_t n = 0; n < 2 * 255 * 255 + 1; ++n) ASSERT_EQ(DivideSmall(n, d), n / d) << n << "/" << d;
}

TEST(OverOperator, WorkedExamples) {
  const uint32_t halfRed = Px(128, 255, 0, 0);
  EXPECT_EQ(Over(0, halfRed), halfRed);
  EXPECT_EQ(Over(Px(0, 9, 9, 9), halfRed), halfRed);
  EXPECT_EQ(Over(Px(255, 0, 0, 255), halfRed), Px(255, 128, 0, 127));
  // Opaque and transparent sources short-circuit.
  EXPECT_EQ(Over(Px(200, 1, 2, 3), Px(255, 4, 5, 6)), Px(255, 4, 5, 6));
  EXPECT_EQ(Over(Px(200, 1, 2, 3), Px(0, 4, 5, 6)), Px(200, 1, 2, 3));
  // A transparent result keeps the source's colour.
  EXPECT_EQ(Over(Px(0, 0, 0, 0), Px(0, 4, 5, 6)), Px(0, 0, 0, 0));
}

TEST(OverOperator, OpaqueBackdropIsExactlyRoundedForAllInputs) {
  for (uint32_t as = 1; as < 255; ++as) {
    for (uint32_t sc = 0; sc < 256; sc += 3) {
      for (uint32_t dc = 0; dc < 256; ++dc) {
        const uint32_t got = Over(Px(255, dc, dc, dc), Px(as, sc, sc, sc));
        const int want = RoundDiv(sc * as + dc * (255 - as), 255);
        ASSERT_EQ(got, Px(255, want, want, want)) << as << " " << sc << " " << dc;
      }
    }
  }
}

TEST(OverOperator, TranslucentBackdropFollowsStraightAlpha) {
  for (uint32_t as = 1; as < 255; as += 7) {
    for (uint32_t ad = 1; ad < 255; ad += 5) {
      const uint32_t below = RoundDiv((255 - as) * ad, 255);
      const uint32_t alpha = as + below;
      for (uint32_t sc : {0u, 17u, 128u, 255u}) {
        for (uint32_t dc : {0u, 90u, 255u}) {
          const uint32_t c = (sc * as + dc * below) / alpha;
          ASSERT_EQ(Over(Px(ad, dc, 0, 255), Px(as, sc, 255, 0)),
                    Px(alpha, c, 255 * as / alpha, 255 * below / alpha))
              << as << " " << ad << " " << sc << " " << dc;
        }
      }
    }
  }
}

}  // namespace
}  // namespace tavora
