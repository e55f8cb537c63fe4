#include "tools/text_layers.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>

#include "document/composite.h"
#include "document/document_events.h"
#include "document/history.h"
#include "document/layer_commands.h"
#include "platform/drawing_bridge.h"
#include "processing/effect_dialogs.h"
#include "tools/shapes.h"

namespace tavora {
namespace {

constexpr std::size_t kNameTextLength = 23;

int32_t Floor(double v) { return static_cast<int32_t>(std::floor(std::clamp(v, -1e9, 1e9))); }

std::optional<Surface> Render(const TextRecord& record) {
  const SystemDrawing* drawing = CurrentSystemDrawing();
  if (!drawing || !drawing->renderText) return std::nullopt;
  auto pixels = drawing->renderText(record);
  if (!pixels || pixels->Empty()) return std::nullopt;
  return pixels;
}

// Where new text's box goes for a click.
void NewTextPlace(const TextClick& click, int32_t& x, int32_t& y) {
  x = Floor(click.x) - kTextClickOffset;
  y = Floor(click.y) - kTextClickOffset;
}

// The layer's content becomes the rendering at (x, y) alone; what lies past
// the canvas is kept as extended content.
void ReplaceContent(Layer& layer, Surface rendered, int32_t x, int32_t y) {
  const Rect canvas{0, 0, layer.Width(), layer.Height()};
  const Rect box{x, y, x + rendered.Width(), y + rendered.Height()};
  layer.pixels.Fill(0);
  layer.rebuildEffects = true;
  if (Intersect(box, canvas) != box && !layer.opaqueBackground) {
    layer.extended = std::make_unique<ExtendedContent>();
    layer.extended->x = x;
    layer.extended->y = y;
    layer.extended->pixels = std::move(rendered);
    layer.RebuildFromExtended();
    return;
  }
  layer.extended.reset();
  const Rect area = Intersect(box, canvas);
  for (int32_t row = area.y0; row < area.y1; ++row)
    std::memcpy(layer.pixels.Row(row) + area.x0, rendered.Row(row - y) + (area.x0 - x),
                std::size_t(area.Width()) * 4);
}

bool FitsInt32(int64_t x, int64_t y, const Surface& s) {
  constexpr int64_t kMax = 2'000'000'000;
  return x + s.Width() < kMax && y + s.Height() < kMax;
}

}  // namespace

std::u16string NormalizeLineBreaks(std::u16string_view text) {
  std::u16string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == u'\r') {
      out.push_back(u'\n');
      if (i + 1 < text.size() && text[i + 1] == u'\n') ++i;
    } else {
      out.push_back(text[i]);
    }
  }
  return out;
}

TextProblem CheckTextValues(const TextValues& v) {
  if (v.fontSize < kMinFontSize || v.fontSize > kMaxFontSize)
    return {TextField::Size, RangeMessage(kMinFontSize, kMaxFontSize)};
  if (v.fontName.empty()) return {TextField::Font, u"Please choose a font."};
  if (v.fontName.size() > std::size_t(TextRecord::kMaxFontName))
    return {TextField::Font, u"The font name can have at most 63 characters."};
  if (NormalizeLineBreaks(v.text).size() > std::size_t(TextRecord::kMaxText))
    return {TextField::Text, u"The text can have at most 2047 characters."};
  return {};
}

std::optional<int32_t> ParseFontSize(std::u16string_view text) {
  const ParamRow row{u"Size", double(kMinFontSize), double(kMaxFontSize), 72, 0, RowKind::Edit};
  const auto v = ParseTypedValue(text, row);
  if (!v) return std::nullopt;
  return static_cast<int32_t>(*v);
}

TextValues ValuesOfRecord(const TextRecord& r) {
  return {r.text, r.fontName, r.fontSize, r.bold, r.italic, r.underline, r.color};
}

TextRecord RecordOfValues(const TextValues& v, int32_t x, int32_t y) {
  TextRecord r;
  r.text = NormalizeLineBreaks(v.text);
  r.fontName = v.fontName;
  r.fontSize = v.fontSize;
  r.bold = v.bold != 0;
  r.italic = v.italic != 0;
  r.underline = v.underline != 0;
  r.color = v.color;
  r.x = x;
  r.y = y;
  return r;
}

void RememberTextFont(ToolOptions& options, const TextValues& v) {
  options.fontname = std::u16string(TruncateUtf16(v.fontName, kMaxFontName));
  options.fontsize = std::clamp(v.fontSize, kMinFontSize, kMaxFontSize);
  options.bold = v.bold != 0;
  options.italic = v.italic != 0;
  options.underline = v.underline != 0;
}

Rect TextBox(const TextRecord& record) {
  const SystemDrawing* drawing = CurrentSystemDrawing();
  if (!drawing || !drawing->measureText) return {};
  const auto extent = drawing->measureText(record);
  if (!extent || extent->width <= 0 || extent->height <= 0) return {};
  const int64_t x1 = int64_t{record.x} + extent->width, y1 = int64_t{record.y} + extent->height;
  if (x1 > 2'000'000'000 || y1 > 2'000'000'000) return {};
  return {record.x, record.y, static_cast<int32_t>(x1), static_cast<int32_t>(y1)};
}

int32_t TextLayerAt(const Document& doc, double x, double y) {
  if (!std::isfinite(x) || !std::isfinite(y)) return -1;
  const int32_t px = Floor(x), py = Floor(y);
  for (int32_t i = doc.LayerCount() - 1; i >= 0; --i) {
    const Layer& layer = doc.layers[i];
    if (layer.visible && layer.text && TextBox(*layer.text).Contains(px, py)) return i;
  }
  return -1;
}

TextClick TextClickAt(const Document& doc, double x, double y) { return {x, y, TextLayerAt(doc, x, y)}; }

TextValues TextDialogStart(const Document& doc, const TextClick& click, const ToolOptions& options,
                           uint32_t color) {
  if (click.layer >= 0 && click.layer < doc.LayerCount() && doc.layers[click.layer].text)
    return ValuesOfRecord(*doc.layers[click.layer].text);
  TextValues v;
  v.fontName = std::u16string(TruncateUtf16(options.fontname, TextRecord::kMaxFontName));
  if (v.fontName.empty()) v.fontName = TextRecord{}.fontName;
  v.fontSize = std::clamp(options.fontsize, kMinFontSize, kMaxFontSize);
  v.bold = options.bold != 0;
  v.italic = options.italic != 0;
  v.underline = options.underline != 0;
  v.color = color | 0xFF000000u;
  return v;
}

std::optional<TextPreview> RenderTextPreview(const Document& doc, const TextClick& click, const TextValues& values) {
  if (values.text.empty() || !CheckTextValues(values).message.empty()) return std::nullopt;
  int32_t x = 0, y = 0;
  const bool editing = click.layer >= 0 && click.layer < doc.LayerCount() && doc.layers[click.layer].text;
  if (editing) {
    x = doc.layers[click.layer].text->x;
    y = doc.layers[click.layer].text->y;
  } else {
    NewTextPlace(click, x, y);
  }
  auto pixels = Render(RecordOfValues(values, x, y));
  if (!pixels) return std::nullopt;
  return TextPreview{std::move(*pixels), x, y};
}

std::u16string TextLayerName(const Document& doc, std::u16string_view text) {
  std::u16string shown(TruncateUtf16(NormalizeLineBreaks(text), kNameTextLength));
  std::replace(shown.begin(), shown.end(), u'\n', u' ');
  return UniqueLayerName(doc, -1, u"Text: " + shown);
}

TextOutcome ApplyTextClick(Document& doc, const TextClick& click, const std::optional<TextValues>& values,
                           const ToolOptions& options) {
  if (!values || values->text.empty() || !CheckTextValues(*values).message.empty()) return TextOutcome::Nothing;
  if (!ActiveLayer(&doc)) return TextOutcome::Nothing;

  if (click.layer >= 0 && click.layer < doc.LayerCount() && doc.layers[click.layer].text) {
    Layer& layer = doc.layers[click.layer];
    const TextRecord record = RecordOfValues(*values, layer.text->x, layer.text->y);
    if (ValuesOfRecord(record) == ValuesOfRecord(*layer.text)) return TextOutcome::Nothing;
    auto rendered = Render(record);
    if (!rendered || !FitsInt32(record.x, record.y, *rendered)) return TextOutcome::Nothing;
    PushLayer(doc, click.layer, u"Edit Text");
    ReplaceContent(layer, std::move(*rendered), record.x, record.y);
    layer.text = std::make_unique<TextRecord>(record);
    // The layer whose text was edited becomes the active one.
    doc.active = click.layer;
    Invalidate(doc, click.layer, doc.Bounds());
    NotifyLayersChanged(doc);
    return TextOutcome::Edited;
  }

  int32_t x = 0, y = 0;
  NewTextPlace(click, x, y);
  const TextRecord record = RecordOfValues(*values, x, y);
  auto rendered = Render(record);
  if (!rendered || !FitsInt32(x, y, *rendered)) return TextOutcome::Nothing;
  if (options.text_newlayer == 0) {
    return LayBuffer(doc, doc.active, *rendered, x, y, options.opacity, u"Text") ? TextOutcome::Drawn
                                                                                 : TextOutcome::Nothing;
  }
  // Adding a layer leaves the other layers' content past the canvas alone.
  PushWholeDocument(doc, u"Add Text", ExtendedContentAfterPush::Keep);
  Layer layer(doc.width, doc.height, TextLayerName(doc, record.text));
  ReplaceContent(layer, std::move(*rendered), x, y);
  layer.text = std::make_unique<TextRecord>(record);
  InsertLayer(doc, std::move(layer), doc.active + 1);
  return TextOutcome::Added;
}

void MoveTextRecord(Layer& layer, int32_t dx, int32_t dy) {
  if (!layer.text) return;
  layer.text->x += dx;
  layer.text->y += dy;
}

}  // namespace tavora
