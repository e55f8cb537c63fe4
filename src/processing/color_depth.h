#pragma once
// Colour depth reduction: a palette of at most 256 colours by median cut,
// or the 15- and 16-bit high-colour grids, each with optional
// Floyd-Steinberg error diffusion. The command flattens the document first
// and runs through ApplyToSelection, so it honours the selection.
#include <array>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "document/document.h"

namespace tavora {

enum class DepthMode : uint32_t { Palette = 0, Grid555 = 1, Grid565 = 2 };

struct ColorDepthChoice {
  std::u16string_view label;
  uint32_t colors;
  DepthMode mode;
};
// The dialog's eleven rows, true colour first.
std::span<const ColorDepthChoice> ColorDepthChoices();
// The row for a count and mode, else the 256-colour row.
int32_t ColorDepthRow(uint32_t colors, DepthMode mode);

// The operation's parameter block.
struct ColorDepthParams {
  uint32_t colors = 256;
  bool dither = false;
  DepthMode mode = DepthMode::Palette;
};
// A PixelOp: the grid modes quantise, the palette mode with up to 256
// colours runs the median cut, a larger palette count leaves the pixels.
void ReduceColors(uint32_t* pixels, int32_t width, int32_t height, const void* params);

// The median cut's palette for these pixels (alpha ignored, every pixel
// counted), at most `colors` (clamped to 2..256) opaque colours.
std::vector<uint32_t> MedianCutPalette(const uint32_t* pixels, std::size_t count, uint32_t colors);
// For each of the 32768 cells of the 5-5-5 cube, the nearest palette index
// to the cell's centre (3 dR² + 4 dG² + 2 dB², the lower index on a tie).
std::vector<uint8_t> InversePaletteTable(std::span<const uint32_t> palette);

// The command: flattens a document of several layers ("Flatten"), then
// reduces ("Color Depth") and records the colour count. True colour only
// records the count and changes no pixel.
void ApplyColorDepth(Document& doc, uint32_t colors, bool dither, DepthMode mode);

}  // namespace tavora
