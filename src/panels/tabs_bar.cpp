#include "panels/tabs_bar.h"

#include <algorithm>
#include <cmath>

namespace tavora {
namespace {

int32_t Scaled(double v, double scale) { return static_cast<int32_t>(std::lround(v * scale)); }

// At 96 dpi: the space the text may use is the tab less 2 pixels, a
// 10-pixel margin and 22 for the close button.
constexpr int32_t kChrome = 34, kMinTab = 96, kMaxTab = 240, kArrow = 22, kStep = 120;

}  // namespace

std::u16string TabText(std::u16string_view title, bool modified) {
  return std::u16string(title) + (modified ? u"  \u25CF" : u"");
}

int32_t TabScrollStep(double scale) { return Scaled(kStep, scale); }

TabStrip LayoutTabs(const std::vector<TabEntry>& entries, int32_t barWidth, int32_t barHeight, int32_t scroll,
                    double scale, const std::function<int32_t(std::u16string_view)>& measure) {
  TabStrip strip;
  std::vector<int32_t> widths;
  const int32_t chrome = Scaled(kChrome, scale);
  for (const TabEntry& e : entries) {
    const int32_t w = std::clamp(measure(e.text) + chrome, Scaled(kMinTab, scale), Scaled(kMaxTab, scale));
    widths.push_back(w);
    strip.total += w;
  }
  int32_t visible = barWidth;
  if (strip.total > barWidth) {
    strip.arrows = true;
    const int32_t a = Scaled(kArrow, scale);
    visible = std::max(0, barWidth - 2 * a);
    strip.left = {visible, 0, visible + a, barHeight};
    strip.right = {visible + a, 0, visible + 2 * a, barHeight};
  }
  strip.scroll = std::clamp(scroll, 0, std::max(0, strip.total - visible));
  int32_t x = -strip.scroll;
  const int32_t closeSide = Scaled(16, scale), pad = Scaled(6, scale);
  for (std::size_t i = 0; i < entries.size(); ++i) {
    TabBox t;
    t.box = {x, 0, x + widths[i], barHeight};
    const int32_t cy = barHeight / 2;
    t.close = {t.box.x1 - pad - closeSide, cy - closeSide / 2, t.box.x1 - pad, cy - closeSide / 2 + closeSide};
    t.cut = measure(entries[i].text) > widths[i] - chrome;
    strip.tabs.push_back(t);
    x += widths[i];
  }
  return strip;
}

TabHit HitTestTabs(const TabStrip& strip, int32_t x, int32_t y) {
  if (strip.arrows) {
    if (strip.left.Contains(x, y)) return {TabHit::Kind::LeftArrow, -1};
    if (strip.right.Contains(x, y)) return {TabHit::Kind::RightArrow, -1};
    if (x >= strip.left.x0) return {};
  }
  for (std::size_t i = 0; i < strip.tabs.size(); ++i) {
    const TabBox& t = strip.tabs[i];
    if (!t.box.Contains(x, y)) continue;
    return {t.close.Contains(x, y) ? TabHit::Kind::Close : TabHit::Kind::Tab, static_cast<int32_t>(i)};
  }
  return {};
}

std::vector<int32_t> ReorderTabs(const std::vector<TabEntry>& entries, int32_t dragged, int32_t over) {
  std::vector<int32_t> order;
  for (const TabEntry& e : entries)
    if (e.document != kBrowseTab) order.push_back(e.document);
  const auto valid = [&](int32_t i) {
    return i >= 0 && i < static_cast<int32_t>(entries.size()) && entries[i].document != kBrowseTab;
  };
  if (!valid(dragged) || !valid(over) || dragged == over) return order;
  const auto from = std::find(order.begin(), order.end(), entries[dragged].document);
  const auto to = std::find(order.begin(), order.end(), entries[over].document);
  const int32_t moving = *from;
  const std::ptrdiff_t target = to - order.begin();
  order.erase(from);
  order.insert(order.begin() + target, moving);
  return order;
}

}  // namespace tavora
