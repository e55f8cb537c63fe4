#include "panels/status_text.h"

#include <cmath>
#include <cstdio>

#include "base/unicode.h"

namespace tavora {
namespace {

std::u16string Text(const char* format, auto... values) {
  char buffer[160];
  std::snprintf(buffer, sizeof buffer, format, values...);
  return Utf8ToUtf16(buffer);
}

}  // namespace

std::u16string ColorDepthLabel(int32_t colorCount) {
  if (colorCount > 16777215) return u"24-bit";
  if (colorCount == 32768) return u"15-bit";
  if (colorCount == 65536) return u"16-bit";
  return Text("%d colors", colorCount);
}

std::vector<std::u16string> StatusFields(const Document* doc, const std::optional<PointerSample>& pointer,
                                         std::u16string_view message) {
  if (!doc) return {message.empty() ? std::u16string(u"Ready") : std::u16string(message)};
  std::vector<std::u16string> fields;
  fields.push_back(Text("%d%%", static_cast<int>(std::floor(doc->zoom * 100 + 0.5))));
  fields.push_back(Text("%d \xC3\x97 %d px   %d dpi   ", doc->width, doc->height, doc->dpi) +
                   ColorDepthLabel(doc->colorCount));
  if (pointer) {
    const uint32_t p = pointer->pixel;
    fields.push_back(Text("X %d   Y %d     R %d  G %d  B %d  A %d", pointer->x, pointer->y, int((p >> 16) & 255),
                          int((p >> 8) & 255), int(p & 255), int(p >> 24)));
  }
  if (doc->selection)
    fields.push_back(Text("Selection %d \xC3\x97 %d", doc->selectionBounds.Width(), doc->selectionBounds.Height()));
  return fields;
}

}  // namespace tavora
