#include "platform/drawing_bridge.h"

namespace tavora {
namespace {
const SystemDrawing* g_drawing = nullptr;
}

void SetSystemDrawing(const SystemDrawing* drawing) { g_drawing = drawing; }
const SystemDrawing* CurrentSystemDrawing() { return g_drawing; }

}  // namespace tavora
