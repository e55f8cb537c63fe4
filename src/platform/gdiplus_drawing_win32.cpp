// GDI+'s flat API with one owner per object: every early return releases
// what was made so far, and a failed drawing never reaches the caller's
// pixels.
#include <windows.h>
#include <objidl.h>
#include <gdiplus.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "document/size_limits.h"
#include "platform/gdiplus_drawing_win32.h"

namespace tavora {
namespace {

namespace gp = Gdiplus;
namespace api = Gdiplus::DllExports;

template <typename T, gp::GpStatus(WINGDIPAPI* Release)(T*)>
struct Releaser {
  void operator()(T* p) const { Release(p); }
};
using ImagePtr = std::unique_ptr<gp::GpImage, Releaser<gp::GpImage, api::GdipDisposeImage>>;
using GraphicsPtr = std::unique_ptr<gp::GpGraphics, Releaser<gp::GpGraphics, api::GdipDeleteGraphics>>;
using PenPtr = std::unique_ptr<gp::GpPen, Releaser<gp::GpPen, api::GdipDeletePen>>;
using BrushPtr = std::unique_ptr<gp::GpBrush, Releaser<gp::GpBrush, api::GdipDeleteBrush>>;
using PathPtr = std::unique_ptr<gp::GpPath, Releaser<gp::GpPath, api::GdipDeletePath>>;
using FamilyPtr = std::unique_ptr<gp::GpFontFamily, Releaser<gp::GpFontFamily, api::GdipDeleteFontFamily>>;
using FontPtr = std::unique_ptr<gp::GpFont, Releaser<gp::GpFont, api::GdipDeleteFont>>;
using FormatPtr =
    std::unique_ptr<gp::GpStringFormat, Releaser<gp::GpStringFormat, api::GdipDeleteStringFormat>>;

constexpr gp::GpStatus kOk = gp::Ok;
// Room around the glyphs: the text's origin sits this far in from the
// buffer's top-left corner.
constexpr int32_t kTextMargin = 2;
// GDI+ coordinates are floats; far beyond any buffer nothing is gained.
constexpr double kMaxCoordinate = 4.0e6;

bool Finite(double v) { return std::isfinite(v) && std::fabs(v) <= kMaxCoordinate; }

// A bitmap over `pixels` (straight alpha, rows without padding) and a
// graphics drawing into it. Nothing when either cannot be made.
struct Canvas {
  ImagePtr bitmap;
  GraphicsPtr graphics;
};
bool OpenCanvas(Surface& pixels, Canvas& canvas) {
  gp::GpBitmap* bitmap = nullptr;
  if (api::GdipCreateBitmapFromScan0(pixels.Width(), pixels.Height(), pixels.Width() * 4,
                                     PixelFormat32bppARGB, reinterpret_cast<BYTE*>(pixels.Data()),
                                     &bitmap) != kOk || !bitmap)
    return false;
  canvas.bitmap.reset(bitmap);
  gp::GpGraphics* graphics = nullptr;
  if (api::GdipGetImageGraphicsContext(bitmap, &graphics) != kOk || !graphics) return false;
  canvas.graphics.reset(graphics);
  return true;
}

// Everything drawn has reached the pixels once the graphics is gone.
bool CloseCanvas(Canvas& canvas) {
  const bool flushed = api::GdipFlush(canvas.graphics.get(), gp::FlushIntentionSync) == kOk;
  canvas.graphics.reset();
  canvas.bitmap.reset();
  return flushed;
}

bool FillAndStroke(gp::GpGraphics* g, const ShapeDrawing& s, gp::GpPen* pen, gp::GpBrush* brush,
                   float x, float y, float w, float h) {
  const bool fill = s.style == kShapeFilled || s.style == kShapeOutlineFill;
  const bool outline = s.style != kShapeFilled;
  switch (s.type) {
    case ShapeType::Rectangle:
      if (fill && api::GdipFillRectangle(g, brush, x, y, w, h) != kOk) return false;
      return !outline || api::GdipDrawRectangle(g, pen, x, y, w, h) == kOk;
    case ShapeType::Ellipse:
      if (fill && api::GdipFillEllipse(g, brush, x, y, w, h) != kOk) return false;
      return !outline || api::GdipDrawEllipse(g, pen, x, y, w, h) == kOk;
    case ShapeType::RoundedRectangle: {
      gp::GpPath* raw = nullptr;
      if (api::GdipCreatePath(gp::FillModeAlternate, &raw) != kOk || !raw) return false;
      PathPtr path(raw);
      // A radius past half the shorter side would make the corners overlap:
      // it becomes that half (a stadium, or a circle for a square).
      const float r = std::min({static_cast<float>(std::max(s.cornerRadius, 0.0)), w / 2, h / 2});
      if (r <= 0) {
        if (api::GdipAddPathRectangle(path.get(), x, y, w, h) != kOk) return false;
      } else {
        const float d = 2 * r;
        if (api::GdipAddPathArc(path.get(), x, y, d, d, 180, 90) != kOk ||
            api::GdipAddPathArc(path.get(), x + w - d, y, d, d, 270, 90) != kOk ||
            api::GdipAddPathArc(path.get(), x + w - d, y + h - d, d, d, 0, 90) != kOk ||
            api::GdipAddPathArc(path.get(), x, y + h - d, d, d, 90, 90) != kOk ||
            api::GdipClosePathFigure(path.get()) != kOk)
          return false;
      }
      if (fill && api::GdipFillPath(g, brush, path.get()) != kOk) return false;
      return !outline || api::GdipDrawPath(g, pen, path.get()) == kOk;
    }
    case ShapeType::Line:
      break;
  }
  return false;
}

bool DrawShape(Surface& target, const ShapeDrawing& s) {
  if (target.Empty() || !Finite(s.x0) || !Finite(s.y0) || !Finite(s.x1) || !Finite(s.y1) ||
      !std::isfinite(s.lineWidth) || !std::isfinite(s.cornerRadius) || s.style < kShapeOutline ||
      s.style > kShapeOutlineFill)
    return false;
  // Drawn on a copy, which replaces the target only when all of it worked.
  Surface work = target;
  {
    Canvas canvas;
    if (!OpenCanvas(work, canvas)) return false;
    gp::GpGraphics* g = canvas.graphics.get();
    if (api::GdipSetSmoothingMode(g, s.antialias ? gp::SmoothingModeAntiAlias : gp::SmoothingModeNone) != kOk ||
        api::GdipSetPixelOffsetMode(g, s.antialias ? gp::PixelOffsetModeHalf : gp::PixelOffsetModeNone) != kOk)
      return false;
    // Without the half-pixel offset GDI+ puts pixel centres on whole
    // coordinates; moving by half a pixel keeps the shape where it is, so
    // the switch changes only the edges.
    if (!s.antialias && api::GdipTranslateWorldTransform(g, -0.5f, -0.5f, gp::MatrixOrderPrepend) != kOk)
      return false;

    gp::GpPen* rawPen = nullptr;
    const float width = static_cast<float>(std::clamp(s.lineWidth, 0.5, kMaxCoordinate));
    if (api::GdipCreatePen1(s.outline, width, gp::UnitPixel, &rawPen) != kOk || !rawPen) return false;
    PenPtr pen(rawPen);
    if (api::GdipSetPenLineJoin(pen.get(), gp::LineJoinRound) != kOk ||
        api::GdipSetPenLineCap197819(pen.get(), gp::LineCapRound, gp::LineCapRound, gp::DashCapRound) != kOk)
      return false;
    gp::GpSolidFill* rawBrush = nullptr;
    if (api::GdipCreateSolidFill(s.fill, &rawBrush) != kOk || !rawBrush) return false;
    BrushPtr brush(rawBrush);

    const float x0 = static_cast<float>(s.x0), y0 = static_cast<float>(s.y0);
    const float x1 = static_cast<float>(s.x1), y1 = static_cast<float>(s.y1);
    if (s.type == ShapeType::Line) {
      if (api::GdipDrawLine(g, pen.get(), x0, y0, x1, y1) != kOk) return false;
    } else if (!FillAndStroke(g, s, pen.get(), brush.get(), std::min(x0, x1), std::min(y0, y1),
                              std::fabs(x1 - x0), std::fabs(y1 - y0))) {
      return false;
    }
    if (!CloseCanvas(canvas)) return false;
  }
  target = std::move(work);
  return true;
}

// ------------------------------------------------------------------ text

std::wstring Wide(std::u16string_view s) { return std::wstring(s.begin(), s.end()); }

// A font of the family in pixels; nothing when it cannot be made.
FontPtr FontOf(gp::GpFontFamily* family, const TextRecord& text, INT style) {
  gp::GpFont* font = nullptr;
  if (api::GdipCreateFont(family, static_cast<gp::REAL>(text.fontSize), style, gp::UnitPixel, &font) != kOk)
    return nullptr;
  return FontPtr(font);
}

// The record's family; when that is not installed (or lacks the style),
// the system's sans-serif family, and failing that the first installed
// family that has the style: text is drawn in some face rather than none.
FontPtr MakeFont(const TextRecord& text) {
  INT style = gp::FontStyleRegular;
  if (text.bold) style |= gp::FontStyleBold;
  if (text.italic) style |= gp::FontStyleItalic;
  if (text.underline) style |= gp::FontStyleUnderline;
  const std::wstring name = Wide(text.fontName);
  for (int attempt = 0; attempt < 2; ++attempt) {
    gp::GpFontFamily* raw = nullptr;
    const gp::GpStatus made = attempt == 0 ? api::GdipCreateFontFamilyFromName(name.c_str(), nullptr, &raw)
                                           : api::GdipGetGenericFontFamilySansSerif(&raw);
    if (made != kOk || !raw) continue;
    FamilyPtr family(raw);
    if (FontPtr font = FontOf(family.get(), text, style)) return font;
  }
  gp::GpFontCollection* installed = nullptr;  // the system's own: never deleted
  INT count = 0, found = 0;
  if (api::GdipNewInstalledFontCollection(&installed) != kOk || !installed ||
      api::GdipGetFontCollectionFamilyCount(installed, &count) != kOk || count <= 0)
    return nullptr;
  std::vector<gp::GpFontFamily*> families(static_cast<std::size_t>(count), nullptr);
  if (api::GdipGetFontCollectionFamilyList(installed, count, families.data(), &found) != kOk) return nullptr;
  // The list's families belong to the collection.
  for (INT i = 0; i < std::min(found, count); ++i)
    if (families[i])
      if (FontPtr font = FontOf(families[i], text, style)) return font;
  return nullptr;
}

// The generic typographic format, told to draw whole lines past its
// (unbounded) box and to keep what glyphs reach beyond their advance.
FormatPtr MakeFormat() {
  gp::GpStringFormat* generic = nullptr;
  if (api::GdipStringFormatGetGenericTypographic(&generic) != kOk || !generic) return nullptr;
  gp::GpStringFormat* raw = nullptr;
  if (api::GdipCloneStringFormat(generic, &raw) != kOk || !raw) return nullptr;
  FormatPtr format(raw);
  INT flags = 0;
  if (api::GdipGetStringFormatFlags(format.get(), &flags) != kOk) return nullptr;
  flags |= gp::StringFormatFlagsNoClip | gp::StringFormatFlagsNoFitBlackBox | gp::StringFormatFlagsNoWrap |
           gp::StringFormatFlagsMeasureTrailingSpaces;
  flags &= ~gp::StringFormatFlagsLineLimit;
  if (api::GdipSetStringFormatFlags(format.get(), flags) != kOk) return nullptr;
  return format;
}

bool PrepareText(gp::GpGraphics* g) {
  return api::GdipSetSmoothingMode(g, gp::SmoothingModeAntiAlias) == kOk &&
         api::GdipSetTextRenderingHint(g, gp::TextRenderingHintAntiAlias) == kOk;
}

bool Renderable(const TextRecord& text) {
  return !text.text.empty() && text.text.size() <= std::size_t(TextRecord::kMaxText) && text.fontSize >= 4 &&
         text.fontSize <= 2000;
}

// The buffer size for the text: its measured box, the margin all round, and
// for italics a fifth of the size more at the right for the slant.
std::optional<TextExtent> Extent(gp::GpGraphics* g, const TextRecord& text, gp::GpFont* font,
                                 gp::GpStringFormat* format) {
  const std::wstring s = Wide(text.text);
  const gp::RectF layout(0, 0, 0, 0);
  gp::RectF box;
  INT fitted = 0, lines = 0;
  if (api::GdipMeasureString(g, s.c_str(), static_cast<INT>(s.size()), font, &layout, format, &box, &fitted,
                             &lines) != kOk)
    return std::nullopt;
  const double right = double(box.X) + box.Width, bottom = double(box.Y) + box.Height;
  if (!std::isfinite(right) || !std::isfinite(bottom) || right > kMaxCoordinate || bottom > kMaxCoordinate)
    return std::nullopt;
  const int64_t slant = text.italic ? (int64_t{text.fontSize} + 4) / 5 : 0;
  const int64_t w = static_cast<int64_t>(std::ceil(std::max(right, 0.0))) + 2 * kTextMargin + slant;
  const int64_t h = static_cast<int64_t>(std::ceil(std::max(bottom, 0.0))) + 2 * kTextMargin;
  if (!CanvasSizeAllowed(w, h)) return std::nullopt;
  return TextExtent{static_cast<int32_t>(w), static_cast<int32_t>(h)};
}

// Fonts are measured on a graphics like the one drawn on.
std::optional<TextExtent> MeasureText(const TextRecord& text) {
  if (!Renderable(text)) return std::nullopt;
  FontPtr font = MakeFont(text);
  FormatPtr format = MakeFormat();
  if (!font || !format) return std::nullopt;
  Surface scratch(1, 1);
  Canvas canvas;
  if (!OpenCanvas(scratch, canvas) || !PrepareText(canvas.graphics.get())) return std::nullopt;
  return Extent(canvas.graphics.get(), text, font.get(), format.get());
}

std::optional<Surface> RenderText(const TextRecord& text) {
  if (!Renderable(text)) return std::nullopt;
  FontPtr font = MakeFont(text);
  FormatPtr format = MakeFormat();
  if (!font || !format) return std::nullopt;
  std::optional<TextExtent> extent;
  {
    Surface scratch(1, 1);
    Canvas probe;
    if (!OpenCanvas(scratch, probe) || !PrepareText(probe.graphics.get())) return std::nullopt;
    extent = Extent(probe.graphics.get(), text, font.get(), format.get());
  }
  if (!extent) return std::nullopt;
  Surface pixels(extent->width, extent->height);
  Canvas canvas;
  if (!OpenCanvas(pixels, canvas) || !PrepareText(canvas.graphics.get())) return std::nullopt;
  gp::GpSolidFill* rawBrush = nullptr;
  // Text is drawn opaque; its transparency is the layer's or the tool's.
  if (api::GdipCreateSolidFill(text.color | 0xFF000000u, &rawBrush) != kOk || !rawBrush) return std::nullopt;
  BrushPtr brush(rawBrush);
  const std::wstring s = Wide(text.text);
  const gp::RectF origin(kTextMargin, kTextMargin, 0, 0);
  if (api::GdipDrawString(canvas.graphics.get(), s.c_str(), static_cast<INT>(s.size()), font.get(), &origin,
                          format.get(), brush.get()) != kOk)
    return std::nullopt;
  if (!CloseCanvas(canvas)) return std::nullopt;
  return pixels;
}

std::vector<std::u16string> FontFamilies() {
  std::vector<std::u16string> names;
  gp::GpFontCollection* installed = nullptr;  // the system's own: never deleted
  if (api::GdipNewInstalledFontCollection(&installed) != kOk || !installed) return names;
  INT count = 0;
  if (api::GdipGetFontCollectionFamilyCount(installed, &count) != kOk || count <= 0) return names;
  std::vector<gp::GpFontFamily*> families(static_cast<std::size_t>(count), nullptr);
  INT found = 0;
  if (api::GdipGetFontCollectionFamilyList(installed, count, families.data(), &found) != kOk) return names;
  for (INT i = 0; i < std::min(found, count); ++i) {
    WCHAR name[LF_FACESIZE] = {};
    if (!families[i] || api::GdipGetFamilyName(families[i], name, LANG_NEUTRAL) != kOk) continue;
    const std::wstring_view w(name);
    if (!w.empty()) names.emplace_back(w.begin(), w.end());
  }
  std::sort(names.begin(), names.end());
  names.erase(std::unique(names.begin(), names.end()), names.end());
  return names;
}

const SystemDrawing kGdiplusDrawing{&DrawShape, &RenderText, &MeasureText, &FontFamilies};

}  // namespace

const SystemDrawing& GdiplusDrawing() { return kGdiplusDrawing; }

}  // namespace tavora
