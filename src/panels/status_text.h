#pragma once
// The status bar's texts, left to right: zoom, size with resolution and
// colour depth, the pointer's position and pixel, the selection's size; or
// the status message ("Ready") without a document.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "document/document.h"

namespace tavora {

// "24-bit" above 16,777,215 colours, "15-bit" at 32,768, "16-bit" at
// 65,536, else "%d colors".
std::u16string ColorDepthLabel(int32_t colorCount);

struct PointerSample {
  int32_t x = 0, y = 0;  // canvas coordinates
  uint32_t pixel = 0;    // 0xAARRGGBB of the composite there
};

// The fields, in order; empty fields are left out.
std::vector<std::u16string> StatusFields(const Document* doc, const std::optional<PointerSample>& pointer,
                                         std::u16string_view message);

}  // namespace tavora
