#include "document/blend.h"

#include <algorithm>
#include <cmath>
#include <mutex>

namespace tavora {
namespace {

constexpr std::u16string_view kNames[kBlendModeCount] = {
    u"Normal",      u"Multiply",    u"Screen",     u"Overlay",
    u"Darken",      u"Lighten",     u"Difference", u"Soft Light",
    u"Hard Light",  u"Color Dodge", u"Color Burn", u"Exclusion",
    u"Linear Dodge (Add)", u"Linear Burn"};

uint8_t SoftLight(uint32_t b, uint32_t s) {
  // Single precision on purpose: these are the results the program has
  // always given, rounding included.
  const float cb = static_cast<float>(b) / 255.0f;
  const float cs = static_cast<float>(s) / 255.0f;
  float r;
  if (cs <= 0.5f) {
    r = cb - (1.0f - 2.0f * cs) * cb * (1.0f - cb);
  } else {
    const float d = cb <= 0.25f ? ((16.0f * cb - 12.0f) * cb + 4.0f) * cb : std::sqrt(cb);
    r = cb + (2.0f * cs - 1.0f) * (d - cb);
  }
  const int v = static_cast<int>(r * 255.0f + 0.5f);
  return static_cast<uint8_t>(std::clamp(v, 0, 255));
}

uint8_t Compute(int32_t mode, uint32_t b, uint32_t s) {
  switch (mode) {
    case kBlendMultiply: return Mul(b, s);
    case kBlendScreen: return b + s - Mul(b, s);
    case kBlendOverlay: return b >= 128 ? 255 - Mul2(255 - b, 255 - s) : Mul2(b, s);
    case kBlendDarken: return std::min(b, s);
    case kBlendLighten: return std::max(b, s);
    case kBlendDifference: return b > s ? b - s : s - b;
    case kBlendSoftLight: return SoftLight(b, s);
    case kBlendHardLight: return s >= 128 ? 255 - Mul2(255 - b, 255 - s) : Mul2(b, s);
    case kBlendColorDodge:
      // A white source dodges everything but pure black to white.
      if (s == 255) return b > 0 ? 255 : 0;
      return std::min(255u, b * 255 / (255 - s));
    case kBlendColorBurn:
      // A black source burns everything but pure white to black.
      if (s == 0) return b == 255 ? 255 : 0;
      return 255 - std::min(255u, (255 - b) * 255 / s);
    case kBlendExclusion: return b + s - Mul2(b, s);
    case kBlendLinearDodge: return std::min(b + s, 255u);
    case kBlendLinearBurn: return b + s > 255 ? b + s - 255 : 0;
    default: return s;
  }
}

// 14 x 64 KiB of zeroed static storage, filled on first use.
uint8_t g_tables[kBlendModeCount * 65536];
std::once_flag g_tablesOnce;

}  // namespace

std::u16string_view BlendModeName(int32_t mode) {
  return mode >= 0 && mode < kBlendModeCount ? kNames[mode] : kNames[0];
}

uint8_t BlendChannel(int32_t mode, uint8_t b, uint8_t s) { return BlendTable(mode)[b * 256 + s]; }

const uint8_t* BlendTable(int32_t mode) {
  std::call_once(g_tablesOnce, [] {
    for (int32_t m = 0; m < kBlendModeCount; ++m) {
      uint8_t* t = g_tables + m * 65536;
      for (uint32_t b = 0; b < 256; ++b)
        for (uint32_t s = 0; s < 256; ++s) t[b * 256 + s] = Compute(m, b, s);
    }
  });
  if (mode < 0 || mode >= kBlendModeCount) mode = kBlendNormal;
  return g_tables + mode * 65536;
}

}  // namespace tavora
