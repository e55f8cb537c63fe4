#include "processing/effect_preview.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "base/row_workers.h"
#include "document/composite.h"
#include "document/history.h"
#include "processing/adjustments.h"

namespace tavora {
namespace {

std::unique_ptr<uint32_t[], FreeDeleter> NewPixels(std::size_t count) {
  return std::unique_ptr<uint32_t[], FreeDeleter>(static_cast<uint32_t*>(CheckedAlloc(count * 4)));
}

// Where each output index starts in the source when `length` source pixels
// shrink to `count` (count <= length, so no part is empty).
std::vector<int32_t> PartStarts(int32_t length, int32_t count) {
  std::vector<int32_t> starts(std::size_t(count) + 1);
  for (int32_t i = 0; i <= count; ++i) starts[i] = int32_t(int64_t(i) * length / count);
  return starts;
}

// Each output pixel is the mean of its part of the source, weighted by
// alpha so that transparent pixels lend no colour.
void Reduce(const uint32_t* source, int32_t stride, int32_t sw, int32_t sh, uint32_t* out, int32_t w, int32_t h) {
  const std::vector<int32_t> xs = PartStarts(sw, w), ys = PartStarts(sh, h);
  auto rows = [&](int first, int end) {
    for (int32_t y = first; y < end; ++y) {
      for (int32_t x = 0; x < w; ++x) {
        uint64_t a = 0, r = 0, g = 0, b = 0;
        for (int32_t sy = ys[y]; sy < ys[y + 1]; ++sy) {
          const uint32_t* row = source + std::size_t(sy) * stride;
          for (int32_t sx = xs[x]; sx < xs[x + 1]; ++sx) {
            const uint32_t p = row[sx], pa = p >> 24;
            a += pa;
            r += ((p >> 16) & 255) * pa;
            g += ((p >> 8) & 255) * pa;
            b += (p & 255) * pa;
          }
        }
        const uint64_t n = uint64_t(ys[y + 1] - ys[y]) * uint64_t(xs[x + 1] - xs[x]);
        uint32_t v = 0;
        if (a > 0)
          v = uint32_t((a + n / 2) / n) << 24 | uint32_t((r + a / 2) / a) << 16 | uint32_t((g + a / 2) / a) << 8 |
              uint32_t((b + a / 2) / a);
        out[std::size_t(y) * w + x] = v;
      }
    }
  };
  RowWorkers::Run(h, rows);
}

// A sample position along one axis of an enlarged result: the two pixels
// either side and the weight of the second.
struct Tap {
  int32_t i0, i1;
  float t;
};
Tap TapAt(int32_t index, int32_t length, int32_t count) {
  const double f = std::clamp((index + 0.5) * count / length - 0.5, 0.0, double(count - 1));
  const int32_t i0 = int32_t(f);
  return {i0, std::min(i0 + 1, count - 1), float(f - i0)};
}

// Bilinear, weighted by alpha like Reduce.
uint32_t Sample(const EffectResult& r, const Tap& tx, const Tap& ty) {
  const uint32_t* row0 = r.pixels.get() + std::size_t(ty.i0) * r.width;
  const uint32_t* row1 = r.pixels.get() + std::size_t(ty.i1) * r.width;
  const uint32_t q[4] = {row0[tx.i0], row0[tx.i1], row1[tx.i0], row1[tx.i1]};
  const float w[4] = {(1 - tx.t) * (1 - ty.t), tx.t * (1 - ty.t), (1 - tx.t) * ty.t, tx.t * ty.t};
  float a = 0, c[3] = {};
  for (int k = 0; k < 4; ++k) {
    const float wa = w[k] * float(q[k] >> 24);
    a += wa;
    for (int ch = 0; ch < 3; ++ch) c[ch] += wa * float((q[k] >> (16 - 8 * ch)) & 255);
  }
  if (a <= 0) return 0;
  uint32_t v = uint32_t(std::min(255.0f, a + 0.5f)) << 24;
  for (int ch = 0; ch < 3; ++ch) v |= uint32_t(std::min(255.0f, c[ch] / a + 0.5f)) << (16 - 8 * ch);
  return v;
}

}  // namespace

double PreviewScale(const EffectDef& def, int32_t width, int32_t height, double screenScale) {
  const double pixels = double(width) * double(height);
  if (def.margin != MarginKind::FromFirstValue || def.rows.empty() || pixels <= double(kExactPreviewPixels))
    return 1;
  const double smallest = std::sqrt(double(kExactPreviewPixels) / pixels);
  const double scale = screenScale > smallest ? screenScale : smallest;  // also refuses NaN
  return scale >= 0.8 ? 1 : scale;  // a copy only a little smaller saves too little to be worth its blur
}

EffectValues ReducedValues(const EffectDef& def, const EffectValues& values, double scale) {
  EffectValues v = values;
  if (scale < 1 && def.margin == MarginKind::FromFirstValue && !v.rows.empty()) v.rows[0] *= scale;
  return v;
}

// ---------------------------------------------------------------- EffectJob

EffectJob::EffectJob(const EffectDef& def, const EffectValues& values, const uint32_t* source, int32_t stride,
                     const Rect& rect, double scale, std::function<void()> ended)
    : values_(values), scale_(1), onEnd_(std::move(ended)) {
  result_.rect = rect;
  result_.width = rect.Width();
  result_.height = rect.Height();
  if (scale < 1) {
    const int32_t w = std::max(1, int32_t(std::lround(rect.Width() * scale)));
    const int32_t h = std::max(1, int32_t(std::lround(rect.Height() * scale)));
    if (w < rect.Width() && h < rect.Height()) {
      result_.width = w;
      result_.height = h;
      scale_ = std::sqrt(double(w) * double(h) / (double(rect.Width()) * double(rect.Height())));
    }
  }
  thread_ = std::thread([this, &def, source, stride] { Run(def, source, stride); });
}

EffectJob::~EffectJob() {
  progress_.Cancel();
  if (thread_.joinable()) thread_.join();
}

void EffectJob::Run(const EffectDef& def, const uint32_t* source, int32_t stride) {
  ScopedProgress scope(&progress_);
  const int32_t w = result_.width, h = result_.height;
  result_.pixels = NewPixels(std::size_t(w) * std::size_t(h));
  if (Exact()) {
    for (int32_t y = 0; y < h; ++y)
      std::memcpy(result_.pixels.get() + std::size_t(y) * w, source + std::size_t(y) * stride, std::size_t(w) * 4);
  } else {
    Reduce(source, stride, result_.rect.Width(), result_.rect.Height(), result_.pixels.get(), w, h);
  }
  if (!progress_.Cancelled()) {
    alignas(8) unsigned char block[64] = {};
    def.packer(ReducedValues(def, values_, scale_), block);
    def.operation(result_.pixels.get(), w, h, block);
  }
  ended_.store(true, std::memory_order_release);
  if (onEnd_) onEnd_();
}

std::optional<EffectResult> EffectJob::Take() {
  if (thread_.joinable()) thread_.join();
  if (progress_.Cancelled() || !result_.pixels) return std::nullopt;
  return std::move(result_);
}

// ---------------------------------------------------------------- EffectPreviewSession

EffectPreviewSession::EffectPreviewSession(Document& doc, const EffectDef& def) : doc_(doc), def_(def) {
  Layer* layer = ActiveLayer(&doc);
  if (!layer) return;
  const Rect layerRect{0, 0, layer->Width(), layer->Height()};
  const Rect target = Intersect(doc.selection ? doc.selectionBounds : doc.Bounds(), layerRect);
  if (target.Empty()) return;
  const int32_t m = std::max(0, EffectDialogMargin(def, def.rows.empty() ? 0 : def.rows[0].maximum));
  saved_ = Intersect({target.x0 - m, target.y0 - m, target.x1 + m, target.y1 + m}, layerRect);
  const int32_t w = saved_.Width(), h = saved_.Height();
  pixels_ = NewPixels(std::size_t(w) * std::size_t(h));
  for (int32_t y = 0; y < h; ++y)
    std::memcpy(pixels_.get() + std::size_t(y) * w, layer->pixels.Row(saved_.y0 + y) + saved_.x0, std::size_t(w) * 4);
  target_ = target;
}

std::unique_ptr<EffectJob> EffectPreviewSession::Start(const EffectValues& values, double scale,
                                                       std::function<void()> ended) const {
  // The rectangle ApplyToSelection would give the operation: the saved one
  // holds it, made for the largest margin.
  const int32_t m = std::max(0, EffectDialogMargin(def_, values.rows.empty() ? 0 : values.rows[0]));
  const Rect rect = Intersect({target_.x0 - m, target_.y0 - m, target_.x1 + m, target_.y1 + m}, saved_);
  const uint32_t* source =
      pixels_.get() + std::size_t(rect.y0 - saved_.y0) * saved_.Width() + (rect.x0 - saved_.x0);
  return std::make_unique<EffectJob>(def_, values, source, saved_.Width(), rect, scale, std::move(ended));
}

void EffectPreviewSession::Show(const EffectResult& result) {
  Surface& layer = ActiveLayer(&doc_)->pixels;
  const SelectionMask* mask = doc_.selection ? &*doc_.selection : nullptr;
  const int32_t sw = saved_.Width(), tw = target_.Width();
  const bool exact = result.Exact();
  std::vector<Tap> columns;
  if (!exact)
    for (int32_t x = target_.x0; x < target_.x1; ++x)
      columns.push_back(TapAt(x - result.rect.x0, result.rect.Width(), result.width));
  auto rows = [&](int first, int end) {
    std::vector<uint32_t> enlarged(exact ? 0 : std::size_t(tw));
    for (int32_t y = target_.y0 + first; y < target_.y0 + end; ++y) {
      const uint32_t* src;
      if (exact) {
        src = result.pixels.get() + std::size_t(y - result.rect.y0) * result.width + (target_.x0 - result.rect.x0);
      } else {
        const Tap ty = TapAt(y - result.rect.y0, result.rect.Height(), result.height);
        for (int32_t i = 0; i < tw; ++i) enlarged[i] = Sample(result, columns[i], ty);
        src = enlarged.data();
      }
      const uint32_t* before = pixels_.get() + std::size_t(y - saved_.y0) * sw + (target_.x0 - saved_.x0);
      const uint8_t* cover = mask ? mask->Row(y) + target_.x0 : nullptr;
      uint32_t* out = layer.Row(y) + target_.x0;
      for (int32_t i = 0; i < tw; ++i) {
        const uint32_t c = cover ? cover[i] : 255;
        out[i] = c == 255 ? src[i] : c == 0 ? before[i] : LerpPixel(before[i], src[i], c);
      }
    }
  };
  RowWorkers::Run(target_.Height(), rows);
  showing_ = true;
  Invalidate(doc_, doc_.active, target_);
}

void EffectPreviewSession::Restore() {
  if (!showing_) return;
  Surface& layer = ActiveLayer(&doc_)->pixels;
  for (int32_t y = target_.y0; y < target_.y1; ++y)
    std::memcpy(layer.Row(y) + target_.x0,
                pixels_.get() + std::size_t(y - saved_.y0) * saved_.Width() + (target_.x0 - saved_.x0),
                std::size_t(target_.Width()) * 4);
  showing_ = false;
  Invalidate(doc_, doc_.active, target_);
}

void EffectPreviewSession::Commit(const EffectResult& result) {
  Restore();  // the tiles must hold the pixels as they were
  BeginTiles(doc_, doc_.active, def_.historyName);
  SaveTiles(doc_, target_);
  Show(result);
  CommitTiles(doc_);
  showing_ = false;
}

// ---------------------------------------------------------------- thumbnail

ThumbnailSize FitThumbnail(int32_t width, int32_t height, int32_t longSide) {
  if (width < 1 || height < 1 || longSide < 1) return {};
  if (width >= height) return {longSide, std::max(1, int32_t(std::lround(double(height) * longSide / width)))};
  return {std::max(1, int32_t(std::lround(double(width) * longSide / height))), longSide};
}

int32_t ThumbnailToArea(int32_t position, int32_t thumbnailLength, int32_t areaLength) {
  // Dragged off the thumbnail, the source stays on the area's edge.
  if (position < 0 || areaLength < 1) return 0;
  if (position >= thumbnailLength) return areaLength - 1;
  return int32_t((2 * int64_t(position) + 1) * areaLength / (2 * int64_t(thumbnailLength)));
}

double AreaToThumbnail(double position, int32_t areaLength, int32_t thumbnailLength) {
  return (position + 0.5) * thumbnailLength / std::max(1, areaLength);
}

void RenderThumbnail(const Surface& layer, const Rect& area, int32_t width, int32_t height, uint32_t* out) {
  const double kx = double(area.Width()) / width, ky = double(area.Height()) / height;
  const int32_t nx = std::clamp(int32_t(kx), 1, 4), ny = std::clamp(int32_t(ky), 1, 4);
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < width; ++x) {
      const uint32_t square = ((x >> 3) ^ (y >> 3)) & 1 ? 0xCC : 0xFF;
      uint32_t sum[3] = {};
      for (int32_t j = 0; j < ny; ++j) {
        const int32_t sy = std::min(area.Height() - 1, int32_t((y + (2 * j + 1) / (2.0 * ny)) * ky));
        const uint32_t* row = layer.Row(area.y0 + sy) + area.x0;
        for (int32_t i = 0; i < nx; ++i) {
          const int32_t sx = std::min(area.Width() - 1, int32_t((x + (2 * i + 1) / (2.0 * nx)) * kx));
          const uint32_t p = row[sx], a = p >> 24;
          for (int c = 0; c < 3; ++c)
            sum[c] += (((p >> (16 - 8 * c)) & 255) * a + square * (255 - a) + 127) / 255;
        }
      }
      const uint32_t n = uint32_t(nx * ny);
      out[std::size_t(y) * width + x] = (sum[0] + n / 2) / n << 16 | (sum[1] + n / 2) / n << 8 | (sum[2] + n / 2) / n;
    }
  }
}

}  // namespace tavora
