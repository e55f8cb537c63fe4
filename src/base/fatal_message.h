#pragma once
// A message shown when the program cannot go on: a modal message box with the
// error icon and no owner on Windows, a line on standard error elsewhere.
// It must work with no memory left, so it allocates nothing itself.
#include <string_view>

namespace tavora {

void ShowFatalMessage(std::u16string_view text, std::u16string_view caption);

// Tests end the process through the real path but must not wait on a
// message box: a sink set here receives the text instead.
using FatalMessageSink = void (*)(std::u16string_view text);
void SetFatalMessageSink(FatalMessageSink sink);
FatalMessageSink GetFatalMessageSink();

}  // namespace tavora
