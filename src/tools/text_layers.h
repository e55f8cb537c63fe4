#pragma once
// The Text tool: a click on a text layer's text edits that text, a click
// anywhere else places new text, both through the text dialog. New text
// goes on a layer of its own that keeps a TextRecord (so it stays
// editable), or straight into the active layer. The rule that ends a text
// layer's editability is here too.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "document/document.h"
#include "document/layer.h"
#include "document/rect.h"
#include "document/surface.h"
#include "tools/tool_table.h"

namespace tavora {

// ---- the dialog's values
inline constexpr int32_t kMinFontSize = 4, kMaxFontSize = 2000;

struct TextValues {
  std::u16string text;  // lines separated by '\n'
  std::u16string fontName = u"Segoe UI";
  int32_t fontSize = 72;  // pixels
  int32_t bold = 0, italic = 0, underline = 0;
  uint32_t color = 0xFF000000;  // 0xAARRGGBB

  bool operator==(const TextValues&) const = default;
};

// "\r\n", "\r" and "\n" all become '\n'.
std::u16string NormalizeLineBreaks(std::u16string_view text);

// What is wrong with the values, for the dialog to show at that field.
enum class TextField { None, Text, Font, Size };
struct TextProblem {
  TextField field = TextField::None;
  std::u16string message;
};
// The size must be 4..2000, the font name 1..63 characters and the text at
// most 2047 (line breaks counted as one).
TextProblem CheckTextValues(const TextValues& values);
// The size field's text: a whole number of pixels in 4..2000, else nothing.
std::optional<int32_t> ParseFontSize(std::u16string_view text);

TextValues ValuesOfRecord(const TextRecord& record);
TextRecord RecordOfValues(const TextValues& values, int32_t x, int32_t y);
// The font the tool remembers for its next text.
void RememberTextFont(ToolOptions& options, const TextValues& values);

// ---- the click
// New text's box is placed with its top-left this far up and left of the
// click, so the text's origin is under the pointer.
inline constexpr int32_t kTextClickOffset = 2;

// The text's box at its placement: the system drawing's extent at the
// record's x, y; empty without a system drawing or when it cannot measure.
Rect TextBox(const TextRecord& record);
// The topmost visible text layer whose text box holds the image point; -1
// for none.
int32_t TextLayerAt(const Document& doc, double x, double y);

struct TextClick {
  double x = 0, y = 0;
  int32_t layer = -1;  // the text layer clicked, -1 for new text
};
TextClick TextClickAt(const Document& doc, double x, double y);
// What the dialog starts with: the clicked layer's text, or empty text in
// the tool's font and the colour given (the primary colour).
TextValues TextDialogStart(const Document& doc, const TextClick& click, const ToolOptions& options,
                           uint32_t color);

// The text rendered and where its top-left goes in image coordinates: the
// record's place when editing, the click less the offset for new text.
struct TextPreview {
  Surface pixels;
  int32_t x = 0, y = 0;
};
std::optional<TextPreview> RenderTextPreview(const Document& doc, const TextClick& click,
                                             const TextValues& values);

// "Text: " and the first 23 characters of the text, line breaks shown as
// spaces, made unique among the layers.
std::u16string TextLayerName(const Document& doc, std::u16string_view text);

enum class TextOutcome { Nothing, Edited, Added, Drawn };
// The dialog's result (nothing when cancelled) applied to the click:
// - on a text layer: its content becomes the new rendering at its place,
//   with the new record, as one step "Edit Text" (nothing when unchanged);
// - with `text_newlayer` on: a new layer above the active one holding the
//   text and its record, as one step "Add Text";
// - otherwise: the text laid into the active layer at the tool's opacity,
//   weighted by the selection, as one step "Text".
// Content past the canvas is kept as extended content where the layer can
// keep it. Empty or invalid values, or a failed rendering, do nothing.
TextOutcome ApplyTextClick(Document& doc, const TextClick& click, const std::optional<TextValues>& values,
                           const ToolOptions& options);

// ---- when a layer stops being a text layer
// A text layer stays editable while its pixels are its text's rendering.
// Anything else that changes them ends that: call this once the change's
// history step has kept the layer whole (a whole-layer or whole-document
// step), so that Undo makes the text editable again. Tile steps need no
// call: BeginTiles first records a text layer whole, as "Rasterize Text".
inline void EndTextEditing(Layer& layer) { layer.text.reset(); }
// A whole text layer moved by (dx, dy): its text moves along and stays
// editable.
void MoveTextRecord(Layer& layer, int32_t dx, int32_t dy);

}  // namespace tavora
