#pragma once
// What an effect dialog does to the document apart from its window. The
// effect runs on a worker thread over a private copy of the pixels
// (EffectJob), so the window keeps answering while it works; only the
// window's thread writes a result into the layer (EffectPreviewSession),
// where Cancel puts the pixels back exactly and OK makes one undo step.
// A live preview of a neighbourhood filter over a large area runs on a
// reduced copy, as fine as the canvas shows it (PreviewScale). The Lens
// Flare dialog's thumbnail is drawn and read here too.
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <thread>

#include "base/memory.h"
#include "base/progress.h"
#include "document/document.h"
#include "processing/effect_dialogs.h"

namespace tavora {

// The pixels a job rewrote: rows packed, width x height, standing for
// `rect` of the layer (fewer pixels than the rectangle when reduced).
struct EffectResult {
  std::unique_ptr<uint32_t[], FreeDeleter> pixels;
  int32_t width = 0, height = 0;
  Rect rect;
  bool Exact() const { return width == rect.Width() && height == rect.Height(); }
};

// A live preview of an area this small is always exact.
inline constexpr int64_t kExactPreviewPixels = int64_t(1) << 20;

// How finely a live preview of a width x height work area renders, as a
// fraction of full size. Only the filters whose first value is a length in
// pixels (their margin comes from it) are reduced: the colour adjustments
// are quick anyway, and the other effects depend on the area's own size or
// on single pixels, which a reduced copy would show wrongly. A reduced copy
// is never coarser than the canvas shows the picture (`screenScale`, device
// pixels per image pixel) and never smaller than kExactPreviewPixels.
double PreviewScale(const EffectDef& def, int32_t width, int32_t height, double screenScale);
// The values an effect runs with on a copy reduced by `scale`: its first
// value, a length in pixels, shrinks with it.
EffectValues ReducedValues(const EffectDef& def, const EffectValues& values, double scale);

// One run of an effect on a worker thread, over its own copy of the
// pixels; it starts at once.
class EffectJob {
 public:
  // `source` holds rows of `stride` pixels, the first at rect's corner, and
  // must stay unchanged until the job has ended. With `scale` below 1 the
  // copy is reduced (each pixel the mean of its part) and the values with
  // it. `ended` is called on the worker as the job ends, finished or
  // cancelled: a window posts itself a message from it.
  EffectJob(const EffectDef& def, const EffectValues& values, const uint32_t* source, int32_t stride,
            const Rect& rect, double scale, std::function<void()> ended);
  // Cancels the job and waits for it to stop.
  ~EffectJob();
  EffectJob(const EffectJob&) = delete;
  EffectJob& operator=(const EffectJob&) = delete;

  // Operations that watch their progress stop early; a cancelled job has
  // no result, even one that ran to its end.
  void Cancel() { progress_.Cancel(); }
  bool Cancelled() const { return progress_.Cancelled(); }
  bool Ended() const { return ended_.load(std::memory_order_acquire); }
  // 0..1; stays 0 for operations that do not report.
  double Fraction() const { return progress_.Fraction(); }
  const EffectValues& Values() const { return values_; }
  bool Exact() const { return scale_ >= 1; }

  // Waits for the end: the result, or nothing when cancelled.
  [[nodiscard]] std::optional<EffectResult> Take();

 private:
  void Run(const EffectDef& def, const uint32_t* source, int32_t stride);

  EffectValues values_;
  double scale_;
  Progress progress_;
  EffectResult result_;
  std::function<void()> onEnd_;
  std::atomic<bool> ended_{false};
  std::thread thread_;  // last: starts once the rest is in place
};

// An effect dialog's hold on its document: the pixels the effect may read,
// saved as they were, a preview shown in the active layer, and the end,
// either the layer exactly as it was or one undo step.
class EffectPreviewSession {
 public:
  // Saves the operated rectangle (the selection's bounds, or the canvas,
  // within the active layer, as ApplyToSelection picks it) with room for
  // the largest margin any of the effect's values may ask for.
  EffectPreviewSession(Document& doc, const EffectDef& def);
  bool Valid() const { return !target_.Empty(); }
  // The operated rectangle, in layer pixels.
  const Rect& Target() const { return target_; }

  // A job for these values over the saved pixels: `scale` 1 gives exactly
  // what OK records.
  [[nodiscard]] std::unique_ptr<EffectJob> Start(const EffectValues& values, double scale,
                                                 std::function<void()> ended) const;
  // Shows a result in the layer, blended by the selection as OK blends it
  // (a reduced one enlarged), and invalidates the canvas.
  void Show(const EffectResult& result);
  bool Showing() const { return showing_; }
  // The layer exactly as it was; nothing to do when nothing is shown.
  void Restore();
  // The layer as it was, then an exact result as one undo step named after
  // the effect.
  void Commit(const EffectResult& result);

 private:
  Document& doc_;
  const EffectDef& def_;
  Rect target_, saved_;  // saved_: the rectangle the saved pixels cover
  std::unique_ptr<uint32_t[], FreeDeleter> pixels_;
  bool showing_ = false;
};

// ---- the Lens Flare dialog's thumbnail of the operated area
struct ThumbnailSize {
  int32_t width = 1, height = 1;
};
// `longSide` pixels on the long side, the other in proportion (at least 1).
ThumbnailSize FitThumbnail(int32_t width, int32_t height, int32_t longSide);
// Along one axis: the area pixel under the centre of thumbnail pixel
// `position` (off the thumbnail: the area's first or last pixel), and
// where the centre of an area position lies on the thumbnail.
int32_t ThumbnailToArea(int32_t position, int32_t thumbnailLength, int32_t areaLength);
double AreaToThumbnail(double position, int32_t areaLength, int32_t thumbnailLength);
// The area of the layer as a width x height thumbnail, 0x00RRGGBB: each
// pixel the mean of up to 4 x 4 samples of its part, over a checkerboard
// where the layer is transparent.
void RenderThumbnail(const Surface& layer, const Rect& area, int32_t width, int32_t height, uint32_t* out);

}  // namespace tavora
