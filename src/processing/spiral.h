#pragma once
// Spiral: a two-colour Archimedean spiral drawn over the area, centred in
// it. Colour 1 is the line, colour 2 the gap between its turns; both are as
// wide as the line, so one turn moves outwards by twice the thickness.
#include <cstdint>

namespace tavora {

struct SpiralParams {
  int32_t thickness = 12;   // line width in pixels, 1..200
  int32_t radiusPercent = 100;  // of half the area's shorter side, 5..150
  int32_t softness = 2;     // width of the blend between colours, pixels
  bool counterClockwise = false;
  uint32_t color1 = 0xFF000000, color2 = 0xFFFFFFFF;
};

// A PixelOp: the spiral is centred in the width x height area it is given.
void Spiral(uint32_t* pixels, int32_t width, int32_t height, const void* params);

// How much of colour 1 a point at (dx, dy) from the centre shows, 0..1;
// y grows downwards, so a clockwise spiral turns clockwise on screen.
double SpiralLineWeight(double dx, double dy, const SpiralParams& p);

}  // namespace tavora
