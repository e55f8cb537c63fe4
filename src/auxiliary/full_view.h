#pragma once
// The full-screen view's portable half: a tab's picture fitted to the
// monitor once per slide, the frames of the transitions drawn from those
// fitted pictures, and the timeline of a run (when the next slide is due,
// how far a transition has come, what a key asked for). The "KZFullView"
// window only waits, dispatches and blits what this gives.
#include <cstdint>
#include <optional>

#include "auxiliary/slideshow.h"
#include "document/document.h"
#include "document/rect.h"
#include "document/surface.h"

namespace tavora {

// A picture ready to show: its pixels at the shown size and where they sit
// on the monitor (monitor coordinates).
struct FittedPicture {
  Surface pixels;
  Rect place;
  bool Empty() const { return pixels.Empty(); }
};

// A flat picture scaled by min(monitor / picture) with the resampler's
// reducing method when it shrinks and its enlarging method when it grows;
// an unchanged size is a copy. Empty for an empty picture or monitor.
[[nodiscard]] FittedPicture FitPicture(const Surface& flat, int32_t monitorW, int32_t monitorH);
// The document flattened over opaque black, then fitted.
[[nodiscard]] FittedPicture FitDocument(Document& doc, int32_t monitorW, int32_t monitorH);

// `target` (the source's size) gets the source with every colour channel
// scaled by brightness / 255 (rounded as the compositor rounds), opaque.
// Rows are split over the row workers: this runs for every frame of a fade.
void FadeCopy(const Surface& source, int32_t brightness, Surface& target);

// The two pictures of a slide frame when the incoming one is `offset`
// pixels from its place: a step forward (+1) brings it in from the right
// and pushes the outgoing one out to the left, a step back the other way.
struct SlidePlaces {
  Rect outgoing, incoming;
};
SlidePlaces SlideFrame(const Rect& outgoing, const Rect& incoming, int32_t monitorW, int32_t offset,
                       int32_t direction);

// One run of the view, on a millisecond clock the caller supplies.
class FullViewTimeline {
 public:
  FullViewTimeline(int32_t tab, int32_t tabCount, bool slideshow, int32_t seconds, SlideTransition transition,
                   int64_t now);

  // A key asked for the previous (-1) or the next (+1) tab.
  void Request(int32_t direction);

  struct Step {
    int32_t tab = 0;
    int32_t direction = 1;
    bool animated = false;  // with the slideshow's transition
  };
  // The step to show now, if any: a key's request at once, else in a
  // slideshow the next tab once its time has come (wrapping at the ends).
  // A step onto the tab already shown only restarts the timer.
  std::optional<Step> Due(int64_t now);
  // The step's picture is ready and goes up now: its transition starts,
  // and the next slide falls due `seconds` after the picture is fully shown.
  void Shown(const Step& step, int64_t now);

  // The running transition's progress 0..1; nothing when none runs. The
  // call that returns 1 ends it.
  std::optional<double> Progress(int64_t now);
  // How long to wait for messages: 8 ms while a transition runs, the time
  // to the next slide in a slideshow (0 when due), else -1 (no time-out).
  int64_t WaitMs(int64_t now) const;

  int32_t Tab() const { return tab_; }
  SlideTransition Transition() const { return transition_; }
  int32_t Direction() const { return direction_; }

 private:
  int32_t tab_, count_;
  bool slideshow_;
  int64_t intervalMs_;
  SlideTransition transition_;
  int64_t nextDue_;
  int32_t request_ = 0;
  int64_t transitionStart_ = 0, transitionMs_ = 0;  // 0 ms: none runs
  int32_t direction_ = 1;
};

}  // namespace tavora
