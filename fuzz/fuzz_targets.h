#pragma once
// Every reader of outside data, as one call on arbitrary bytes: the
// libFuzzer programs run them, and the regression test replays every input
// that once failed (fuzz/regressions/<target>/). False means a property the
// reader promises did not hold; a crash speaks for itself.
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tavora::fuzz {

struct Target {
  std::string_view name;  // also the folder of its seeds and regressions
  bool (*run)(const uint8_t* data, std::size_t size);
};

bool LayeredFormat(const uint8_t* data, std::size_t size);
bool Psd(const uint8_t* data, std::size_t size);
bool RadianceHdr(const uint8_t* data, std::size_t size);
bool IniFile(const uint8_t* data, std::size_t size);
bool Webp(const uint8_t* data, std::size_t size);
bool ClipboardDib(const uint8_t* data, std::size_t size);
bool JpegDc(const uint8_t* data, std::size_t size);

inline constexpr Target kTargets[] = {{"layered_format", &LayeredFormat},
                                      {"psd", &Psd},
                                      {"radiance_hdr", &RadianceHdr},
                                      {"ini_file", &IniFile},
                                      {"webp", &Webp},
                                      {"clipboard_dib", &ClipboardDib},
                                      {"jpeg_dc", &JpegDc}};

}  // namespace tavora::fuzz
