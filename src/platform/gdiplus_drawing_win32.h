#pragma once
// Shapes, text and the font list through GDI+, as the system drawing of the
// drawing bridge. GDI+ must be running (StartGdiplusCodecs starts it) while
// the table is registered with SetSystemDrawing(&GdiplusDrawing()).
#include "platform/drawing_bridge.h"

namespace tavora {

const SystemDrawing& GdiplusDrawing();

}  // namespace tavora
