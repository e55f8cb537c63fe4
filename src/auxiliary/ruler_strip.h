#pragma once
// One ruler strip drawn into a 32-bit top-down buffer: the background, the
// band over the image's extent, the ticks, the pointer's marker and the
// edge toward the canvas. The labels' texts and places are returned for the
// window to write with its fonts.
#include <cstdint>
#include <string>
#include <vector>

#include "auxiliary/ruler.h"

namespace tavora {

struct RulerColors {
  uint32_t background = 0xFF25262A;  // 0xAARRGGBB
  uint32_t text = 0xFFE6E7EA;        // ticks and labels
  uint32_t marker = 0xFF4C8DE8;      // the pointer's position
  uint32_t edge = 0xFF3A3B41;        // the line along the canvas
};

struct RulerStripInput {
  bool vertical = false;
  int32_t length = 0, thickness = 0;  // device pixels along and across
  // Where the canvas's client area starts along the strip; nothing is
  // drawn before it (the corner).
  int32_t canvasOffset = 0;
  double dpiScale = 1.0;  // dpi / 96
  RulerUnit unit = RulerUnit::Pixels;
  bool hasDocument = false;
  double canvasScale = 1.0;   // device pixels per image pixel
  int32_t imageOrigin = 0;    // canvas client coordinate of the image's edge
  int32_t imageLength = 0;    // image pixels along the strip
  int32_t dpi = 72;           // the document's
  int32_t cursor = -1;        // canvas client coordinate of the pointer; -1: none
};

struct RulerLabel {
  int32_t position = 0;  // strip coordinate of its tick
  std::u16string text;
};

// The strip's background mixed 22/255 toward the text colour, which marks
// the part of the strip that spans the image.
uint32_t RulerImageBand(const RulerColors& colors);

// Draws the strip into `pixels` (length x thickness, or thickness x length
// when vertical; `stride` pixels per row) and returns the labels to write.
std::vector<RulerLabel> DrawRulerStrip(const RulerStripInput& in, const RulerColors& colors, uint32_t* pixels,
                                       int32_t stride);

}  // namespace tavora
