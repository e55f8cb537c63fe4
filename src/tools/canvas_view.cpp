#include "tools/canvas_view.h"

#include <algorithm>
#include <cmath>

#include "base/row_workers.h"

namespace tavora {
namespace {

int32_t Trunc(double v) { return static_cast<int32_t>(v); }

int32_t AxisOrigin(int32_t client, int32_t image, double scale, int32_t scroll) {
  const double extent = image * scale;
  if (client >= extent) return static_cast<int32_t>(std::lround((client - extent) / 2));
  return -scroll;
}

int32_t MaxScroll(int32_t client, int32_t image, double scale) {
  const double over = image * scale - client;
  return over > 0 ? Trunc(over) : 0;
}

uint32_t OverCheckerboard(uint32_t c, int32_t x, int32_t y, int32_t cell) {
  const uint32_t a = c >> 24;
  if (a == 255) return c;
  const uint32_t grey = ((x / cell + y / cell) & 1) ? 153 : 204;
  uint32_t out = 0xFF000000u;
  for (int shift = 0; shift < 24; shift += 8) {
    const uint32_t v = ((c >> shift) & 255) * a + grey * (255 - a);
    out |= (v / 255) << shift;
  }
  return out;
}

// Where a device column or row samples the image: the nearest pixel, and
// the two bilinear neighbours with the 8-bit weight of the second.
struct AxisSample {
  int32_t nearest = -1;  // -1 outside the image
  int32_t lo = 0, hi = 0;
  uint32_t weight = 0;
};

AxisSample SampleAxis(int32_t device, int32_t origin, double scale, int32_t extent) {
  AxisSample a;
  const double i = (device + 0.5 - origin) / scale;
  if (i < 0 || i >= extent) return a;
  a.nearest = std::min(static_cast<int32_t>(std::floor(i)), extent - 1);
  const double f = i - 0.5;
  const double fl = std::floor(f);
  a.weight = static_cast<uint32_t>((f - fl) * 256);
  a.lo = std::clamp(static_cast<int32_t>(fl), 0, extent - 1);
  a.hi = std::clamp(static_cast<int32_t>(fl) + 1, 0, extent - 1);
  return a;
}

uint32_t SampleBilinear(const Surface& img, const AxisSample& ax, const AxisSample& ay, bool& empty) {
  const uint32_t wx = ax.weight, wy = ay.weight;
  const uint32_t p[4] = {img.At(ax.lo, ay.lo), img.At(ax.hi, ay.lo), img.At(ax.lo, ay.hi),
                         img.At(ax.hi, ay.hi)};
  const uint32_t wt[4] = {(256 - wx) * (256 - wy), wx * (256 - wy), (256 - wx) * wy, wx * wy};
  if ((p[0] & p[1] & p[2] & p[3]) >> 24 == 255) {
    uint32_t out = 0xFF000000u;
    for (int shift = 0; shift < 24; shift += 8) {
      uint64_t sum = 0;
      for (int i = 0; i < 4; ++i) sum += uint64_t((p[i] >> shift) & 255) * wt[i];
      out |= static_cast<uint32_t>(std::min<uint64_t>(sum >> 16, 255)) << shift;
    }
    return out;
  }
  uint64_t total = 0;
  for (int i = 0; i < 4; ++i) total += uint64_t(p[i] >> 24) * wt[i];
  if (total == 0) {
    empty = true;
    return 0;
  }
  uint32_t out = static_cast<uint32_t>(std::min<uint64_t>(total >> 16, 255)) << 24;
  for (int shift = 0; shift < 24; shift += 8) {
    uint64_t sum = 0;
    for (int i = 0; i < 4; ++i) sum += uint64_t((p[i] >> shift) & 255) * (p[i] >> 24) * wt[i];
    out |= static_cast<uint32_t>(std::min<uint64_t>(sum / total, 255)) << shift;
  }
  return out;
}

// The source box a device column or row averages when zoomed out, and the
// stride that keeps it to about three samples.
struct AreaSpan {
  int32_t from = 0, to = 0, stride = 1;
};

AreaSpan AreaAxis(double device, double scale, int32_t extent) {
  AreaSpan a;
  a.from = std::clamp(static_cast<int32_t>(std::floor(device / scale)), 0, extent - 1);
  a.to = std::clamp(static_cast<int32_t>(std::ceil((device + 1) / scale)), a.from + 1, extent);
  a.stride = std::max((a.to - a.from) / 3, 1);
  return a;
}

uint32_t SampleArea(const Surface& img, const AreaSpan& ax, const AreaSpan& ay) {
  uint32_t sumA = 0, count = 0;
  uint64_t sumC[3] = {0, 0, 0};
  for (int32_t y = ay.from; y < ay.to; y += ay.stride) {
    const uint32_t* row = img.Row(y);
    for (int32_t x = ax.from; x < ax.to; x += ax.stride) {
      const uint32_t p = row[x], a = p >> 24;
      sumA += a;
      sumC[0] += (p & 255) * a;
      sumC[1] += ((p >> 8) & 255) * a;
      sumC[2] += ((p >> 16) & 255) * a;
      ++count;
    }
  }
  if (sumA == 0) return 0;
  // Colours weighted by alpha; alpha itself is the plain mean.
  return (sumA / count) << 24 | static_cast<uint32_t>(sumC[2] / sumA) << 16 |
         static_cast<uint32_t>(sumC[1] / sumA) << 8 | static_cast<uint32_t>(sumC[0] / sumA);
}

struct RenderJob {
  const CanvasRender* render;
  Rect area;
  SampleMode mode;
  std::vector<AxisSample> columns;  // one per device column of the area
  std::vector<AreaSpan> areaColumns;  // the same, when zoomed out
};

void RenderRows(int first, int end, void* context) {
  const RenderJob& job = *static_cast<const RenderJob*>(context);
  const CanvasRender& r = *job.render;
  const Rect& area = job.area;
  const Surface& img = *r.image;
  const CanvasLayout& L = r.layout;
  const double s = L.scale;
  const int32_t w = img.Width(), h = img.Height();
  const int32_t cell = std::max(1, static_cast<int32_t>(8 * r.dpiScale));
  const SelectionMask* sel = r.selection;
  auto imageX = [&](double x) { return static_cast<int32_t>(std::floor((x - L.originX) / s)); };
  auto imageY = [&](double y) { return static_cast<int32_t>(std::floor((y - L.originY) / s)); };
  auto selected = [&](int32_t ix, int32_t iy) { return sel->At(ix, iy) >= 128; };
  for (int row = first; row < end; ++row) {
    const int32_t y = area.y0 + row;
    uint32_t* out = r.target + std::size_t(y) * std::size_t(r.targetStride);
    const AxisSample ay = SampleAxis(y, L.originY, s, h);
    const AreaSpan areaY =
        job.mode == SampleMode::AreaAverage ? AreaAxis(y - L.originY, s, h) : AreaSpan{};
    const int32_t py = ay.nearest;
    const int32_t by = sel ? imageY(y + 1.5) : 0;
    const int32_t ty = sel ? imageY(y - 0.5) : 0;
    for (int32_t x = area.x0; x < area.x1; ++x) {
      const AxisSample& ax = job.columns[std::size_t(x - area.x0)];
      const int32_t px = ax.nearest;
      if (px < 0 || py < 0) {
        out[x] = r.background;
        continue;
      }
      uint32_t c;
      bool empty = false;
      switch (job.mode) {
        case SampleMode::Nearest: c = img.Row(py)[px]; break;
        case SampleMode::Bilinear: c = SampleBilinear(img, ax, ay, empty); break;
        default: c = SampleArea(img, job.areaColumns[std::size_t(x - area.x0)], areaY); break;
      }
      out[x] = OverCheckerboard(empty ? 0 : c, x, y, cell);
      if (sel) {
        // Static 4-pixel dashes where the selection bit changes to the right
        // or below, or where a selected pixel meets any edge of the image
        // (the left and top edges too, so a selection of everything shows
        // all four sides).
        const bool here = selected(px, py);
        const int32_t rx = imageX(x + 1.5);
        const bool rightInside = rx < w, belowInside = by < h;
        const bool edge = (rightInside ? selected(rx, py) != here : here) ||
                          (belowInside ? selected(px, by) != here : here) ||
                          (here && (imageX(x - 0.5) < 0 || ty < 0));
        if (edge) out[x] = ((x + y) & 4) ? 0xFF000000u : 0xFFFFFFFFu;
      }
    }
  }
}

}  // namespace

CanvasLayout ComputeLayout(const Document& doc, const ClientArea& client) {
  CanvasLayout L;
  L.scale = doc.zoom * client.dpiScale;
  L.clientW = client.width;
  L.clientH = client.height;
  L.originX = AxisOrigin(client.width, doc.width, L.scale, doc.scrollX);
  L.originY = AxisOrigin(client.height, doc.height, L.scale, doc.scrollY);
  return L;
}

void ClampScroll(Document& doc, const ClientArea& client) {
  const double s = doc.zoom * client.dpiScale;
  doc.scrollX = std::clamp(doc.scrollX, 0, MaxScroll(client.width, doc.width, s));
  doc.scrollY = std::clamp(doc.scrollY, 0, MaxScroll(client.height, doc.height, s));
}

double ZoomStepFrom(double zoom, int direction) {
  if (direction > 0) {
    for (double step : kZoomSteps)
      if (step > zoom * 1.001) return step;
    return kZoomSteps[23];
  }
  for (int i = 23; i >= 0; --i)
    if (kZoomSteps[i] < zoom * 0.999) return kZoomSteps[i];
  return kZoomSteps[0];
}

void SetZoom(Document& doc, double zoom, double anchorX, double anchorY, const ClientArea& client) {
  zoom = std::clamp(zoom, kMinZoom, kMaxZoom);
  const CanvasLayout old = ComputeLayout(doc, client);
  const double s = zoom * client.dpiScale;
  doc.fitMode = 0;
  doc.scrollX = doc.width * s > client.width
                    ? Trunc((anchorX - old.originX) / old.scale * s - anchorX) : 0;
  doc.scrollY = doc.height * s > client.height
                    ? Trunc((anchorY - old.originY) / old.scale * s - anchorY) : 0;
  doc.zoom = zoom;
  ClampScroll(doc, client);
}

bool FitToWindow(Document& doc, bool neverEnlarge, const ClientArea& client) {
  if (client.width < 20 || client.height < 20 || doc.width < 1 || doc.height < 1) return false;
  const int32_t margin = static_cast<int32_t>(24 * client.dpiScale);
  const double f = std::min((client.width - margin) / (doc.width * client.dpiScale),
                            (client.height - margin) / (doc.height * client.dpiScale));
  doc.zoom = neverEnlarge && f > 1.0 ? 1.0 : std::clamp(f, kMinZoom, kMaxZoom);
  doc.scrollX = doc.scrollY = 0;
  doc.fitMode = neverEnlarge ? 1 : 2;
  return true;
}

void KeepFitted(Document& doc, const ClientArea& client) {
  if (doc.fitMode == 1 || doc.fitMode == 2) {
    const int32_t mode = doc.fitMode;
    if (!FitToWindow(doc, mode == 1, client)) ClampScroll(doc, client);
    return;
  }
  ClampScroll(doc, client);
}

void DirtyArea::Add(const Rect& r, int32_t clientW, int32_t clientH) {
  const Rect clipped = Intersect(r, {0, 0, clientW, clientH});
  if (clipped.Empty()) return;
  area_ = any_ ? Union(area_, clipped) : clipped;
  any_ = true;
}

Rect ImageRectToDevice(const CanvasLayout& L, const Rect& image, bool hasSelection) {
  const double s = L.scale;
  const double pad = s < 1.0 ? std::ceil(1.0 / s) + 1 : 1.0;
  const int32_t widen = hasSelection ? 2 : 1;
  return {static_cast<int32_t>(std::floor((image.x0 - pad) * s + L.originX)) - widen,
          static_cast<int32_t>(std::floor((image.y0 - pad) * s + L.originY)) - widen,
          static_cast<int32_t>(std::ceil((image.x1 + pad) * s + L.originX)) + widen,
          static_cast<int32_t>(std::ceil((image.y1 + pad) * s + L.originY)) + widen};
}

ImagePoint ScreenToImage(const CanvasLayout& L, const Document& doc, double x, double y) {
  ImagePoint p{(x - L.originX) / L.scale, (y - L.originY) / L.scale, false};
  p.inside = p.x >= 0 && p.y >= 0 && std::floor(p.x) < doc.width && std::floor(p.y) < doc.height;
  return p;
}

Rect ImageArea(const CanvasLayout& L, const Document& doc) {
  // Device pixel x shows the image when its centre x + 0.5 lies within
  // origin .. origin + extent x scale, as the render pass samples it.
  auto end = [&](int32_t origin, int32_t extent) {
    return origin + static_cast<int32_t>(std::ceil(extent * L.scale - 0.5));
  };
  return Intersect({L.originX, L.originY, end(L.originX, doc.width), end(L.originY, doc.height)},
                   {0, 0, L.clientW, L.clientH});
}

GridLines PixelGridLines(const CanvasLayout& L, const Document& doc) {
  GridLines g;
  if (L.scale < 8.0) return g;
  g.clip = ImageArea(L, doc);
  if (g.clip.Empty()) return g;
  const int32_t firstX = std::max(0, static_cast<int32_t>((g.clip.x0 - L.originX) / L.scale));
  for (int32_t i = firstX; i <= doc.width; ++i) {
    const int32_t x = L.originX + static_cast<int32_t>(std::lround(i * L.scale));
    if (x >= g.clip.x1) break;
    if (x >= g.clip.x0) g.xs.push_back(x);
  }
  const int32_t firstY = std::max(0, static_cast<int32_t>((g.clip.y0 - L.originY) / L.scale));
  for (int32_t i = firstY; i <= doc.height; ++i) {
    const int32_t y = L.originY + static_cast<int32_t>(std::lround(i * L.scale));
    if (y >= g.clip.y1) break;
    if (y >= g.clip.y0) g.ys.push_back(y);
  }
  return g;
}

BrushCursorShape BrushCursorFor(int32_t cx, int32_t cy, double brushSize, double scale) {
  const double r = std::max(brushSize / 2 * scale, 1.5);
  auto box = [&](double grow, double extra) {
    return Rect{static_cast<int32_t>(std::floor(cx - r - grow)),
                static_cast<int32_t>(std::floor(cy - r - grow)),
                static_cast<int32_t>(std::ceil(cx + r + grow + extra)),
                static_cast<int32_t>(std::ceil(cy + r + grow + extra))};
  };
  const int32_t half = static_cast<int32_t>(std::ceil(brushSize / 2 * scale + 4));
  return {box(1, 1), box(0, 1), {cx - half, cy - half, cx + half + 2, cy + half + 2}};
}

ScrollMetrics ScrollMetricsFor(const Document& doc, const ClientArea& client, bool vertical) {
  const double s = doc.zoom * client.dpiScale;
  ScrollMetrics m;
  m.content = static_cast<int32_t>(std::ceil((vertical ? doc.height : doc.width) * s));
  m.page = vertical ? client.height : client.width;
  m.position = vertical ? doc.scrollY : doc.scrollX;
  return m;
}

ThumbSpan ThumbFor(const ScrollMetrics& m, int32_t track, int32_t minThumb) {
  if (m.content <= m.page || track <= 0) return {0, std::max(track, 0)};
  const int32_t length =
      std::clamp(static_cast<int32_t>(int64_t{track} * m.page / m.content), std::min(minThumb, track), track);
  const int32_t range = m.content - m.page;
  const int32_t start = static_cast<int32_t>(int64_t{track - length} *
                                             std::clamp(m.position, 0, range) / range);
  return {start, length};
}

int32_t PositionForThumb(const ScrollMetrics& m, int32_t track, int32_t minThumb, int32_t thumbStart) {
  const ThumbSpan thumb = ThumbFor(m, track, minThumb);
  const int32_t free = track - thumb.length;
  if (m.content <= m.page || free <= 0) return 0;
  const int32_t range = m.content - m.page;
  return static_cast<int32_t>(int64_t{std::clamp(thumbStart, 0, free)} * range / free);
}

int32_t ScrollLineStep(double dpiScale) { return static_cast<int32_t>(40 * dpiScale); }
int32_t ScrollPageStep(int32_t page) { return page * 9 / 10; }

SampleMode SampleModeFor(double scale, double dpiScale, bool smooth) {
  if (!smooth || scale / dpiScale >= 4.0) return SampleMode::Nearest;
  return scale >= 1.0 ? SampleMode::Bilinear : SampleMode::AreaAverage;
}

void RenderCanvas(const CanvasRender& render, const Rect& area) {
  if (area.Empty() || !render.image || render.image->Empty() || !render.target) return;
  RenderJob job{&render, area, SampleModeFor(render.layout.scale, render.dpiScale, render.smooth), {}};
  // At exactly one device pixel per image pixel every bilinear weight is 0:
  // the nearest pixel is the same result for far less work.
  if (job.mode == SampleMode::Bilinear && render.layout.scale == 1.0) job.mode = SampleMode::Nearest;
  const CanvasLayout& L = render.layout;
  const int32_t w = render.image->Width();
  job.columns.reserve(std::size_t(area.Width()));
  for (int32_t x = area.x0; x < area.x1; ++x) {
    job.columns.push_back(SampleAxis(x, L.originX, L.scale, w));
    if (job.mode == SampleMode::AreaAverage) job.areaColumns.push_back(AreaAxis(x - L.originX, L.scale, w));
  }
  RowWorkers::Run(area.Height(), &RenderRows, &job);
}

}  // namespace tavora
