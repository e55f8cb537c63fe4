#include <windows.h>

#include "base/fatal_message.h"

namespace tavora {

void ShowFatalMessage(std::u16string_view text, std::u16string_view caption) {
  if (FatalMessageSink sink = GetFatalMessageSink()) {
    sink(text);
    return;
  }
  // Fixed buffers: the heap may be exhausted when this runs.
  wchar_t textBuf[256] = {};
  wchar_t captionBuf[64] = {};
  for (size_t i = 0; i < text.size() && i + 1 < 256; ++i) textBuf[i] = text[i];
  for (size_t i = 0; i < caption.size() && i + 1 < 64; ++i) captionBuf[i] = caption[i];
  MessageBoxW(nullptr, textBuf, captionBuf, MB_OK | MB_ICONERROR | MB_TASKMODAL);
}

}  // namespace tavora
