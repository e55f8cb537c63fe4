#pragma once
// Draws a button icon (see glyph.h) with GDI. Windows only.
#include <windows.h>

#include <vector>

#include "document/rect.h"
#include "panels/glyph.h"

namespace tavora {

// The 16-unit grid sits centred in `button` with a margin of 5 pixels at
// `scale` 1.
void DrawGlyph(HDC dc, const Rect& button, const std::vector<GlyphStroke>& strokes, COLORREF color, double scale);

}  // namespace tavora
