#include <unistd.h>

#include "base/fatal_message.h"

namespace tavora {

void ShowFatalMessage(std::u16string_view text, std::u16string_view /*caption*/) {
  if (FatalMessageSink sink = GetFatalMessageSink()) {
    sink(text);
    return;
  }
  // Messages here are ASCII; write() needs no heap, unlike stdio.
  char line[256];
  size_t n = 0;
  for (char16_t c : text) {
    if (n + 2 >= sizeof line) break;
    line[n++] = c < 128 ? static_cast<char>(c) : '?';
  }
  line[n++] = '\n';
  ssize_t ignored = write(STDERR_FILENO, line, n);
  (void)ignored;
}

}  // namespace tavora
