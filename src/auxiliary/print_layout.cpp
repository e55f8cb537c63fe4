#include "auxiliary/print_layout.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

namespace tavora {
namespace {

constexpr double kMmPerInch = 25.4;
constexpr std::u16string_view kSection = u"Print";
// Placements beyond this many device pixels are of no use to any printer
// and would overflow the arithmetic.
constexpr int64_t kMaxSheetExtent = int64_t{1} << 30;

std::u16string Number(int32_t v) {
  const std::string t = std::to_string(v);
  return std::u16string(t.begin(), t.end());
}

int64_t FloorDiv(int64_t a, int64_t b) { return a / b - ((a % b != 0) && ((a < 0) != (b < 0))); }
int64_t CeilDiv(int64_t a, int64_t b) { return -FloorDiv(-a, b); }

}  // namespace

PrintSettings ClampPrintSettings(PrintSettings s) {
  s.orientation = static_cast<PrintOrientation>(std::clamp(static_cast<int32_t>(s.orientation), 0, 1));
  s.sizing = static_cast<PrintSizing>(std::clamp(static_cast<int32_t>(s.sizing), 0, 1));
  s.scale = std::clamp(s.scale, 1, kPrintMaxScale);
  for (int32_t* v : {&s.offsetX, &s.offsetY}) *v = std::clamp(*v, 0, kPrintMaxOffset);
  for (int32_t* v : {&s.marginLeft, &s.marginTop, &s.marginRight, &s.marginBottom})
    *v = std::clamp(*v, 0, kPrintMaxMargin);
  s.copies = std::clamp(s.copies, 1, kPrintMaxCopies);
  return s;
}

PrintSettings LoadPrintSettings(const SettingsSnapshot& settings) {
  const PrintSettings d;
  auto get = [&](std::u16string_view key, int32_t fallback) { return settings.GetInt(kSection, key, fallback); };
  PrintSettings s;
  s.orientation = static_cast<PrintOrientation>(get(u"Orientation", static_cast<int32_t>(d.orientation)));
  s.sizing = static_cast<PrintSizing>(get(u"Sizing", static_cast<int32_t>(d.sizing)));
  s.scale = get(u"Scale", d.scale);
  s.centered = get(u"Centered", 1) != 0;
  s.offsetX = get(u"OffsetX", d.offsetX);
  s.offsetY = get(u"OffsetY", d.offsetY);
  s.marginLeft = get(u"MarginLeft", d.marginLeft);
  s.marginTop = get(u"MarginTop", d.marginTop);
  s.marginRight = get(u"MarginRight", d.marginRight);
  s.marginBottom = get(u"MarginBottom", d.marginBottom);
  s.copies = get(u"Copies", d.copies);
  s.toFile = get(u"ToFile", 0) == 1;
  return ClampPrintSettings(s);
}

void SavePrintSettings(SettingsStore& settings, const PrintSettings& raw) {
  const PrintSettings s = ClampPrintSettings(raw);
  const std::pair<std::u16string, std::u16string> values[] = {
      {u"Orientation", Number(static_cast<int32_t>(s.orientation))},
      {u"Sizing", Number(static_cast<int32_t>(s.sizing))},
      {u"Scale", Number(s.scale)},
      {u"Centered", s.centered ? u"1" : u"0"},
      {u"OffsetX", Number(s.offsetX)},
      {u"OffsetY", Number(s.offsetY)},
      {u"MarginLeft", Number(s.marginLeft)},
      {u"MarginTop", Number(s.marginTop)},
      {u"MarginRight", Number(s.marginRight)},
      {u"MarginBottom", Number(s.marginBottom)},
      {u"Copies", Number(s.copies)},
      {u"ToFile", s.toFile ? u"1" : u"0"}};
  settings.SetStrings(kSection, values);
}

int32_t MmToDevice(double mm, int32_t dpi) {
  const double v = std::round(mm * dpi / kMmPerInch);
  return static_cast<int32_t>(std::clamp(v, -double(kMaxSheetExtent), double(kMaxSheetExtent)));
}

PageMetrics DefaultPageMetrics() {
  PageMetrics p;
  p.dpiX = p.dpiY = 600;
  p.paperWidth = MmToDevice(210, 600);
  p.paperHeight = MmToDevice(297, 600);
  const int32_t edge = MmToDevice(5, 600);
  p.printable = {edge, edge, p.paperWidth - edge, p.paperHeight - edge};
  return p;
}

bool ValidPage(const PageMetrics& page) {
  if (page.paperWidth < 1 || page.paperHeight < 1 || page.dpiX < 1 || page.dpiY < 1) return false;
  return !Intersect(page.printable, {0, 0, page.paperWidth, page.paperHeight}).Empty();
}

PageMetrics OrientPage(const PageMetrics& page, PrintOrientation orientation) {
  const bool wide = page.paperWidth > page.paperHeight;
  if ((orientation == PrintOrientation::Landscape) == wide || page.paperWidth == page.paperHeight) return page;
  // A quarter turn counter-clockwise, as printers turn a landscape sheet:
  // the sheet's left edge becomes its bottom.
  PageMetrics t;
  t.paperWidth = page.paperHeight;
  t.paperHeight = page.paperWidth;
  t.dpiX = page.dpiY;
  t.dpiY = page.dpiX;
  const Rect& r = page.printable;
  t.printable = {r.y0, page.paperWidth - r.x1, r.y1, page.paperWidth - r.x0};
  return t;
}

bool Printable(const PrintPlacement& p) {
  return p.status == PlacementStatus::Ok || p.status == PlacementStatus::Clipped;
}

PrintPlacement PlacePicture(int32_t imageWidth, int32_t imageHeight, int32_t imageDpi, const PageMetrics& page,
                            const PrintSettings& raw) {
  PrintPlacement p;
  if (imageWidth < 1 || imageHeight < 1 || !ValidPage(page)) return p;
  const PrintSettings s = ClampPrintSettings(raw);
  const Rect sheet{0, 0, page.paperWidth, page.paperHeight};
  const Rect margins{MmToDevice(s.marginLeft, page.dpiX), MmToDevice(s.marginTop, page.dpiY),
                     page.paperWidth - MmToDevice(s.marginRight, page.dpiX),
                     page.paperHeight - MmToDevice(s.marginBottom, page.dpiY)};
  p.area = Intersect(Intersect(margins, page.printable), sheet);
  if (p.area.Empty()) {
    p.status = PlacementStatus::NoRoom;
    return p;
  }
  const int64_t areaW = p.area.Width(), areaH = p.area.Height();
  int64_t w, h;
  if (s.sizing == PrintSizing::FitToPage) {
    const double k = std::min(double(areaW) / imageWidth, double(areaH) / imageHeight);
    w = std::clamp<int64_t>(std::llround(imageWidth * k), 1, areaW);
    h = std::clamp<int64_t>(std::llround(imageHeight * k), 1, areaH);
  } else {
    const double dpi = imageDpi >= 1 ? imageDpi : 72.0;
    const double k = s.scale / 100.0 / dpi;
    w = std::clamp<int64_t>(std::llround(imageWidth * k * page.dpiX), 1, kMaxSheetExtent);
    h = std::clamp<int64_t>(std::llround(imageHeight * k * page.dpiY), 1, kMaxSheetExtent);
  }
  int64_t x, y;
  if (s.centered) {
    x = p.area.x0 + FloorDiv(areaW - w, 2);
    y = p.area.y0 + FloorDiv(areaH - h, 2);
  } else {
    x = p.area.x0 + MmToDevice(s.offsetX, page.dpiX);
    y = p.area.y0 + MmToDevice(s.offsetY, page.dpiY);
  }
  // A huge picture is cut down to what can reach the sheet so that the
  // rectangle stays within 32 bits; the mapping below uses the true size.
  auto cut = [](int64_t v) { return static_cast<int32_t>(std::clamp(v, -kMaxSheetExtent, kMaxSheetExtent)); };
  p.image = {cut(x), cut(y), cut(x + w), cut(y + h)};
  p.widthMm = double(w) * kMmPerInch / page.dpiX;
  p.heightMm = double(h) * kMmPerInch / page.dpiY;
  p.visible = Intersect(p.image, p.area);
  if (p.visible.Empty()) {
    p.status = PlacementStatus::OffPage;
    return p;
  }
  // The picture's columns covering the visible columns, and where they fall.
  auto map = [](int64_t start, int64_t size, int32_t pixels, int32_t v0, int32_t v1, int32_t& s0, int32_t& s1,
                int32_t& t0, int32_t& t1) {
    s0 = static_cast<int32_t>(std::clamp<int64_t>(FloorDiv((v0 - start) * pixels, size), 0, pixels - 1));
    s1 = static_cast<int32_t>(std::clamp<int64_t>(CeilDiv((v1 - start) * pixels, size), s0 + 1, pixels));
    t0 = static_cast<int32_t>(start + FloorDiv(int64_t{s0} * size, pixels));
    t1 = static_cast<int32_t>(start + CeilDiv(int64_t{s1} * size, pixels));
  };
  map(x, w, imageWidth, p.visible.x0, p.visible.x1, p.source.x0, p.source.x1, p.target.x0, p.target.x1);
  map(y, h, imageHeight, p.visible.y0, p.visible.y1, p.source.y0, p.source.y1, p.target.y0, p.target.y1);
  p.status = p.visible == p.image ? PlacementStatus::Ok : PlacementStatus::Clipped;
  return p;
}

PixelSize PrintPixelSize(const Rect& target, int64_t maxPixels) {
  if (target.Empty()) return {};
  const int64_t w = target.Width(), h = target.Height();
  maxPixels = std::max<int64_t>(maxPixels, 1);
  if (w * h <= maxPixels) return {static_cast<int32_t>(w), static_cast<int32_t>(h)};
  const double k = std::sqrt(double(maxPixels) / (double(w) * double(h)));
  int64_t sw = std::max<int64_t>(1, static_cast<int64_t>(std::floor(w * k)));
  int64_t sh = std::max<int64_t>(1, static_cast<int64_t>(std::floor(h * k)));
  // A very thin target keeps its long side within the budget too.
  while (sw * sh > maxPixels && (sw > 1 || sh > 1)) (sw >= sh ? sw : sh) -= 1;
  return {static_cast<int32_t>(sw), static_cast<int32_t>(sh)};
}

std::vector<PrintBand> PrintBands(int32_t rows, const Rect& target, int32_t maxRows) {
  std::vector<PrintBand> bands;
  if (rows < 1 || target.Empty()) return bands;
  maxRows = std::max(maxRows, 1);
  const int64_t height = target.Height();
  auto sheetRow = [&](int32_t row) { return static_cast<int32_t>(target.y0 + int64_t{row} * height / rows); };
  for (int32_t start = 0; start < rows; start += maxRows) {
    const int32_t end = std::min(rows, start + std::min(maxRows, rows - start));
    bands.push_back({start, end, sheetRow(start), sheetRow(end)});
  }
  return bands;
}

std::u16string PrintSummary(const PrintPlacement& p, int32_t imageWidth) {
  switch (p.status) {
    case PlacementStatus::NoPicture: return u"There is nothing to print.";
    case PlacementStatus::NoRoom: return u"The margins leave no room on the page.";
    case PlacementStatus::OffPage: return u"The offsets move the picture off the page.";
    case PlacementStatus::Ok:
    case PlacementStatus::Clipped: break;
  }
  char text[160];
  const double inches = p.widthMm / kMmPerInch;
  const int ppi = inches > 0 ? static_cast<int>(std::lround(imageWidth / inches)) : 0;
  std::snprintf(text, sizeof text, "Printed size: %.1f x %.1f mm (%.2f x %.2f in), %d pixels per inch.", p.widthMm,
                p.heightMm, inches, p.heightMm / kMmPerInch, ppi);
  std::u16string s(text, text + std::char_traits<char>::length(text));
  for (char16_t& c : s)
    if (c == u'x') c = u'\u00D7';
  if (p.status == PlacementStatus::Clipped) s += u" Only the part inside the margins is printed.";
  return s;
}

void RenderPrintPreview(Surface& view, const PageMetrics& page, const PrintPlacement& placement,
                        const Surface& picture, uint32_t background) {
  view.Fill(0xFF000000 | background);
  if (view.Empty() || !ValidPage(page)) return;
  constexpr int32_t kPad = 14, kShadow = 4;
  const double k = std::min(double(view.Width() - 2 * kPad) / page.paperWidth,
                            double(view.Height() - 2 * kPad) / page.paperHeight);
  if (k <= 0) return;
  const int32_t sw = std::max(1, static_cast<int32_t>(std::lround(page.paperWidth * k)));
  const int32_t sh = std::max(1, static_cast<int32_t>(std::lround(page.paperHeight * k)));
  const int32_t sx = (view.Width() - sw) / 2, sy = (view.Height() - sh) / 2;
  auto fill = [&](Rect r, uint32_t c) {
    r = Intersect(r, {0, 0, view.Width(), view.Height()});
    for (int32_t y = r.y0; y < r.y1; ++y) std::fill(view.Row(y) + r.x0, view.Row(y) + r.x1, c);
  };
  // Sheet coordinates to view coordinates.
  auto vx = [&](double x) { return sx + static_cast<int32_t>(std::lround(x * k)); };
  auto vy = [&](double y) { return sy + static_cast<int32_t>(std::lround(y * k)); };
  fill({sx + kShadow, sy + kShadow, sx + sw + kShadow, sy + sh + kShadow}, 0xFF000000 | ((background >> 1) & 0x7F7F7F));
  fill({sx, sy, sx + sw, sy + sh}, 0xFFFFFFFF);

  if (Printable(placement) && !picture.Empty()) {
    const Rect& img = placement.image;
    const Rect shown = Intersect(Rect{vx(placement.visible.x0), vy(placement.visible.y0), vx(placement.visible.x1),
                                      vy(placement.visible.y1)},
                                 {sx, sy, sx + sw, sy + sh});
    // Each view pixel samples the picture bilinearly at its centre.
    const double fx = double(picture.Width()) / (double(img.Width()) * k);
    const double fy = double(picture.Height()) / (double(img.Height()) * k);
    const double ox = sx + img.x0 * k, oy = sy + img.y0 * k;
    for (int32_t y = shown.y0; y < shown.y1; ++y) {
      const double py = std::clamp((y + 0.5 - oy) * fy - 0.5, 0.0, picture.Height() - 1.0);
      const int32_t y0 = static_cast<int32_t>(py), y1 = std::min(y0 + 1, picture.Height() - 1);
      const uint32_t wy = static_cast<uint32_t>((py - y0) * 256);
      uint32_t* out = view.Row(y);
      for (int32_t x = shown.x0; x < shown.x1; ++x) {
        const double px = std::clamp((x + 0.5 - ox) * fx - 0.5, 0.0, picture.Width() - 1.0);
        const int32_t x0 = static_cast<int32_t>(px), x1 = std::min(x0 + 1, picture.Width() - 1);
        const uint32_t wx = static_cast<uint32_t>((px - x0) * 256);
        const uint32_t a = picture.At(x0, y0), b = picture.At(x1, y0), c = picture.At(x0, y1),
                       d = picture.At(x1, y1);
        uint32_t result = 0xFF000000;
        for (int shift = 0; shift < 24; shift += 8) {
          const uint32_t top = ((a >> shift & 255) * (256 - wx) + (b >> shift & 255) * wx);
          const uint32_t bottom = ((c >> shift & 255) * (256 - wx) + (d >> shift & 255) * wx);
          result |= ((top * (256 - wy) + bottom * wy + 32768) >> 16) << shift;
        }
        out[x] = result;
      }
    }
  }
  // The margins, dotted so the picture's own edges stay visible.
  if (!placement.area.Empty()) {
    const Rect m{vx(placement.area.x0), vy(placement.area.y0), vx(placement.area.x1) - 1, vy(placement.area.y1) - 1};
    const uint32_t dot = 0xFF8CA0C8;
    for (int32_t x = m.x0; x <= m.x1; x += 4) {
      fill({x, m.y0, x + 2, m.y0 + 1}, dot);
      fill({x, m.y1, x + 2, m.y1 + 1}, dot);
    }
    for (int32_t y = m.y0; y <= m.y1; y += 4) {
      fill({m.x0, y, m.x0 + 1, y + 2}, dot);
      fill({m.x1, y, m.x1 + 1, y + 2}, dot);
    }
  }
}

}  // namespace tavora
