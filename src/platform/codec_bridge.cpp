#include "platform/codec_bridge.h"

namespace tavora {
namespace {
const SystemCodec* g_codec = nullptr;
}

void SetSystemCodec(const SystemCodec* codec) { g_codec = codec; }
const SystemCodec* CurrentSystemCodec() { return g_codec; }

}  // namespace tavora
