#pragma once
// Conversions at the edges of the program: the model keeps UTF-16 text,
// consoles and Linux file names use UTF-8.
#include <string>
#include <string_view>

namespace tavora {

// Unpaired surrogates become U+FFFD.
std::string Utf16ToUtf8(std::u16string_view text);
// Malformed sequences become U+FFFD.
std::u16string Utf8ToUtf16(std::string_view text);

}  // namespace tavora
