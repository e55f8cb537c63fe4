#include "processing/spiral.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "base/row_workers.h"
#include "processing/adjustments.h"

namespace tavora {
namespace {

// The blend across an edge: half at the edge itself, a pixel wide when the
// softness is 0 so edges stay antialiased.
double Ramp(double signedDistance, double softness) {
  return std::clamp(0.5 + signedDistance / std::max(softness, 1.0), 0.0, 1.0);
}

uint32_t Mix(uint32_t a, uint32_t b, double weightOfB) {
  const uint32_t m = static_cast<uint32_t>(std::lround(weightOfB * 255.0));
  return LerpPixel(a, b, m);
}

struct SpiralJob {
  uint32_t* pixels;
  int32_t width, height;
  const SpiralParams* params;
};

void SpiralRows(int first, int end, void* context) {
  const SpiralJob& job = *static_cast<const SpiralJob*>(context);
  const SpiralParams& p = *job.params;
  const double cx = job.width / 2.0, cy = job.height / 2.0;
  const double outer = p.radiusPercent / 100.0 * std::min(job.width, job.height) / 2.0;
  for (int y = first; y < end; ++y) {
    uint32_t* row = job.pixels + std::size_t(y) * std::size_t(job.width);
    for (int32_t x = 0; x < job.width; ++x) {
      const double dx = x + 0.5 - cx, dy = y + 0.5 - cy;
      const double inside = Ramp(outer - std::sqrt(dx * dx + dy * dy), p.softness);
      if (inside <= 0) continue;
      const uint32_t spiral = Mix(p.color2, p.color1, SpiralLineWeight(dx, dy, p));
      row[x] = Mix(row[x], spiral, inside);
    }
  }
}

}  // namespace

double SpiralLineWeight(double dx, double dy, const SpiralParams& p) {
  const double pitch = 2.0 * std::max(p.thickness, 1);
  double turn = std::atan2(dy, dx) / (2 * std::numbers::pi);  // clockwise on screen
  if (p.counterClockwise) turn = -turn;
  // The phase along one turn: the line occupies [0, 0.5), the gap [0.5, 1).
  double phase = std::hypot(dx, dy) / pitch - turn;
  phase -= std::floor(phase);
  // Distance to the nearest edge in pixels, positive on the line.
  const double toEdge = (phase < 0.5 ? std::min(phase, 0.5 - phase) : -std::min(phase - 0.5, 1.0 - phase)) * pitch;
  return Ramp(toEdge, p.softness);
}

void Spiral(uint32_t* pixels, int32_t width, int32_t height, const void* params) {
  SpiralJob job{pixels, width, height, static_cast<const SpiralParams*>(params)};
  RowWorkers::Run(height, &SpiralRows, &job);
}

}  // namespace tavora
