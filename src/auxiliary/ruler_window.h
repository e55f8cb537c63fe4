#pragma once
// The two "KZRuler" strips along the top and the left of the canvas.
// Windows only. They follow the canvas by themselves: they watch its
// paints (every scroll, zoom, resize, document switch and theme change
// repaints it) and its pointer, and redraw when what they show changed.
#include <windows.h>

#include <cstdint>

#include "document/document.h"

namespace tavora {

// Registers "KZRuler" once, reads "View" / "Ruler" and "RulerUnit" and
// creates the two strips, hidden until placed. `shownDocument` answers the
// document the canvas shows (null for none).
void CreateRulers(HWND parent, HWND canvas, Document* (*shownDocument)());

// Places the strips along the top and the left of `area` while they are
// shown, else hides them; returns the part of `area` left for the canvas.
RECT PlaceRulers(const RECT& area);

bool RulersShown();
// The View menu's switch; lasts until exit (the start value is the
// Settings window's). Lay the canvas out again afterwards.
void SetRulersShown(bool shown);

// Back to pixels (after every setting was reset), repainted.
void ResetRulerUnit();

// The pointer over the canvas in its client coordinates, (-1, -1) once it
// has left; moves the markers.
void RulerCursor(int32_t x, int32_t y);

}  // namespace tavora
