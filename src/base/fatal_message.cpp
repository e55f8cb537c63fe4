#include "base/fatal_message.h"

namespace tavora {
namespace {
FatalMessageSink g_sink = nullptr;
}

void SetFatalMessageSink(FatalMessageSink sink) { g_sink = sink; }
FatalMessageSink GetFatalMessageSink() { return g_sink; }

}  // namespace tavora
