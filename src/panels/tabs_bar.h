#pragma once
// The tabs bar's model: one tab per open document (and the Browse tab),
// their texts, widths, scrolling, what a point on the bar hits, and how a
// dragged tab reorders the documents. The window ("KZTabs") only draws and
// forwards the mouse.
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "document/rect.h"

namespace tavora {

inline constexpr int32_t kBrowseTab = -1;

// "%ls%ls": the title and "  ●" while modified.
std::u16string TabText(std::u16string_view title, bool modified);

struct TabEntry {
  int32_t document = 0;  // index into the open documents, or kBrowseTab
  std::u16string text;
};

struct TabBox {
  Rect box;        // the tab, in bar coordinates (after scrolling)
  Rect close;      // its close button
  bool cut = false;  // the text does not fit: shown cut, whole in a tooltip
};

struct TabStrip {
  std::vector<TabBox> tabs;  // one per entry, in order
  bool arrows = false;       // the strip is wider than the bar
  Rect left, right;          // the scroll arrows when shown
  int32_t scroll = 0;        // clamped
  int32_t total = 0;         // the strip's whole width
};

// Sizes at 96 dpi, scaled by `scale` (dpi / 96). `measure` gives a text's
// width in the tab font, in device pixels.
TabStrip LayoutTabs(const std::vector<TabEntry>& entries, int32_t barWidth, int32_t barHeight, int32_t scroll,
                    double scale, const std::function<int32_t(std::u16string_view)>& measure);
// The distance one click on an arrow scrolls.
int32_t TabScrollStep(double scale);

struct TabHit {
  enum class Kind { Nothing, Tab, Close, LeftArrow, RightArrow } kind = Kind::Nothing;
  int32_t entry = -1;  // for Tab and Close
};
TabHit HitTestTabs(const TabStrip& strip, int32_t x, int32_t y);

// A document tab dragged over another document tab takes its place; the
// Browse tab never moves and is never a target. The new order of the
// document indices, or the same order when nothing moves.
std::vector<int32_t> ReorderTabs(const std::vector<TabEntry>& entries, int32_t dragged, int32_t over);

}  // namespace tavora
