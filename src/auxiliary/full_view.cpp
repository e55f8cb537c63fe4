#include "auxiliary/full_view.h"

#include <algorithm>

#include "base/row_workers.h"
#include "document/composite.h"
#include "processing/resample.h"

namespace tavora {

FittedPicture FitPicture(const Surface& flat, int32_t monitorW, int32_t monitorH) {
  FittedPicture fitted;
  fitted.place = FullScreenPlacement(flat.Width(), flat.Height(), monitorW, monitorH);
  if (fitted.place.Empty()) return {};
  const int32_t w = fitted.place.Width(), h = fitted.place.Height();
  if (w == flat.Width() && h == flat.Height()) {
    fitted.pixels = flat;
  } else {
    // Scaled by less than 1 (the monitor is smaller on some axis): the
    // resampler's sharper method for reducing, else its smoother one.
    const bool reducing = monitorW < flat.Width() || monitorH < flat.Height();
    fitted.pixels = Resample(flat, w, h,
                             reducing ? ResampleAlgorithm::BicubicSharper : ResampleAlgorithm::BicubicSmoother);
  }
  return fitted;
}

FittedPicture FitDocument(Document& doc, int32_t monitorW, int32_t monitorH) {
  if (doc.width < 1 || doc.height < 1 || monitorW < 1 || monitorH < 1) return {};
  return FitPicture(FlatCopy(doc, 0x000000, Matte::Use), monitorW, monitorH);
}

namespace {

struct FadeJob {
  const Surface* source;
  Surface* target;
  uint32_t brightness;
};

void FadeRows(int first, int end, void* context) {
  const FadeJob& job = *static_cast<const FadeJob*>(context);
  const uint32_t b = job.brightness;
  const int32_t w = job.source->Width();
  for (int y = first; y < end; ++y) {
    const uint32_t* src = job.source->Row(y);
    uint32_t* dst = job.target->Row(y);
    for (int32_t x = 0; x < w; ++x) {
      // Red and blue side by side, then green: each channel
      // ((c x b + 128) x 257) >> 16, the compositor's rounded product.
      const uint32_t p = src[x];
      uint32_t rb = (p & 0x00FF00FFu) * b + 0x00800080u;
      rb = ((rb + ((rb >> 8) & 0x00FF00FFu)) >> 8) & 0x00FF00FFu;
      uint32_t g = (p & 0x0000FF00u) * b + 0x00008000u;
      g = ((g + ((g >> 8) & 0x0000FF00u)) >> 8) & 0x0000FF00u;
      dst[x] = 0xFF000000u | rb | g;
    }
  }
}

}  // namespace

void FadeCopy(const Surface& source, int32_t brightness, Surface& target) {
  if (source.Width() != target.Width() || source.Height() != target.Height()) return;
  FadeJob job{&source, &target, static_cast<uint32_t>(std::clamp(brightness, 0, 255))};
  RowWorkers::Run(source.Height(), &FadeRows, &job);
}

SlidePlaces SlideFrame(const Rect& outgoing, const Rect& incoming, int32_t monitorW, int32_t offset,
                       int32_t direction) {
  const int32_t sign = direction < 0 ? -1 : 1;
  const int32_t in = sign * offset, out = sign * (offset - monitorW);
  return {{outgoing.x0 + out, outgoing.y0, outgoing.x1 + out, outgoing.y1},
          {incoming.x0 + in, incoming.y0, incoming.x1 + in, incoming.y1}};
}

FullViewTimeline::FullViewTimeline(int32_t tab, int32_t tabCount, bool slideshow, int32_t seconds,
                                   SlideTransition transition, int64_t now)
    : tab_(tab),
      count_(tabCount),
      slideshow_(slideshow),
      intervalMs_(int64_t(std::clamp(seconds, 1, 3600)) * 1000),
      transition_(transition),
      nextDue_(now + intervalMs_) {}

void FullViewTimeline::Request(int32_t direction) { request_ = direction < 0 ? -1 : 1; }

std::optional<FullViewTimeline::Step> FullViewTimeline::Due(int64_t now) {
  int32_t direction = 0;
  if (request_ != 0) {
    direction = request_;
    request_ = 0;
  } else if (slideshow_ && transitionMs_ == 0 && now >= nextDue_) {
    direction = 1;
  }
  if (direction == 0) return std::nullopt;
  const int32_t next = StepTab(tab_, direction, count_);
  if (next < 0 || next == tab_) {
    nextDue_ = now + intervalMs_;
    return std::nullopt;
  }
  // Stepping by hand outside a slideshow never animates.
  return Step{next, direction, slideshow_ && transition_ != SlideTransition::None};
}

void FullViewTimeline::Shown(const Step& step, int64_t now) {
  tab_ = step.tab;
  direction_ = step.direction;
  transitionStart_ = now;
  transitionMs_ = !step.animated ? 0 : transition_ == SlideTransition::Slide ? kSlideMs : kFadeMs;
  nextDue_ = now + transitionMs_ + intervalMs_;
}

std::optional<double> FullViewTimeline::Progress(int64_t now) {
  if (transitionMs_ == 0) return std::nullopt;
  const double u = std::clamp(double(now - transitionStart_) / double(transitionMs_), 0.0, 1.0);
  if (u >= 1) transitionMs_ = 0;
  return u;
}

int64_t FullViewTimeline::WaitMs(int64_t now) const {
  if (transitionMs_ > 0) return 8;
  if (slideshow_) return std::max<int64_t>(nextDue_ - now, 0);
  return -1;
}

}  // namespace tavora
