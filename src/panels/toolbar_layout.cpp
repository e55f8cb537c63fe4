#include "panels/toolbar_layout.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "base/command_ids.h"

namespace tavora {
namespace {

using K = ToolbarItem::Kind;
constexpr ToolbarItem kItems[] = {
    {K::Button, kCmdNew, u"New image (Ctrl+N)", u"C 3,1 10,1 13,4 13,15 3,15; L 10,1 10,4 13,4"},
    {K::Button, kCmdOpen, u"Open image (Ctrl+O)", u"C 1,3 6,3 8,5 15,5 15,14 1,14; L 1,7 15,7"},
    {K::Button, kCmdSave, u"Save (Ctrl+S)", u"C 2,2 12,2 14,4 14,14 2,14; B 5,2 11,6; B 4,9 12,14"},
    {K::Separator},
    {K::Button, kCmdUndo, u"Undo (Ctrl+Z)", u"L 2,6 10,6 13,9 10,12 5,12; L 2,6 5,3; L 2,6 5,9"},
    {K::Button, kCmdRedo, u"Redo (Ctrl+Y)", u"L 14,6 6,6 3,9 6,12 11,12; L 14,6 11,3; L 14,6 11,9"},
    {K::Separator},
    {K::Button, kCmdZoomOut, u"Zoom out (-)", u"E 1,1 13,13; L3 12,12 15,15; L 4,7 10,7"},
    {K::ZoomBox},
    {K::Button, kCmdZoomIn, u"Zoom in (+)", u"E 1,1 13,13; L3 12,12 15,15; L 4,7 10,7; L 7,4 7,10"},
    {K::Button, kCmdFit, u"Fit to window (Ctrl+0)",
     u"L2 1,5 1,1 5,1; L2 11,1 15,1 15,5; L2 15,11 15,15 11,15; L2 5,15 1,15 1,11"},
    {K::Separator},
    {K::Button, kCmdCaptureScreen, u"Capture full screen (Ctrl+Shift+F)", u"B 1,2 15,11; L 8,11 8,14; L 4,14 12,14"},
    {K::Button, kCmdCaptureDelay, u"Capture with delay", u"E 1,1 15,15; L 8,4 8,8 11,10"},
    {K::Button, kCmdCaptureRegion, u"Capture a region of the screen (Ctrl+Shift+R)",
     u"Bd 1,1 11,11; L2 13,8 13,15; L2 9,12 16,12"},
    {K::Separator},
    {K::Button, kCmdFullScreen, u"Full screen view (F11)",
     u"B 1,3 15,13; P 3,5 8,5 3,9; P 13,11 8,11 13,7"},
    {K::Button, kCmdSlideshow, u"Slideshow", u"B 1,3 15,13; P 6,5 11,8 6,11"},
};

constexpr int kMargin = 4, kButton = 26, kGap = 2, kSeparator = 11, kZoomBox = 96, kHeight = 32;

constexpr std::u16string_view kZoomChoices[] = {u"Fit to window", u"12.5%", u"25%",  u"50%",  u"100%",
                                                u"200%",          u"400%",  u"800%", u"1600%", u"Actual pixels (1:1)"};
constexpr double kChoiceZooms[] = {0, 0.125, 0.25, 0.5, 1.0, 2.0, 4.0, 8.0, 16.0, 0};

std::u16string Ascii(const char* text) { return std::u16string(text, text + std::char_traits<char>::length(text)); }

}  // namespace

std::span<const ToolbarItem> ToolbarItems() { return kItems; }

ToolbarLayout ComputeToolbarLayout(double scale) {
  const auto px = [scale](int dip) { return static_cast<int32_t>(std::lround(dip * scale)); };
  ToolbarLayout layout;
  layout.height = px(kHeight);
  const int32_t button = px(kButton), top = (layout.height - button) / 2;
  int32_t x = px(kMargin);
  for (const ToolbarItem& item : kItems) {
    const int32_t width = item.kind == K::Button ? button : px(item.kind == K::Separator ? kSeparator : kZoomBox);
    layout.items.push_back({x, top, x + width, top + button});
    x += width + px(kGap);
  }
  layout.width = x - px(kGap) + px(kMargin);
  return layout;
}

int32_t HitToolbar(const ToolbarLayout& layout, int32_t x, int32_t y) {
  for (std::size_t i = 0; i < layout.items.size(); ++i)
    if (kItems[i].kind == K::Button && layout.items[i].Contains(x, y)) return static_cast<int32_t>(i);
  return -1;
}

std::span<const std::u16string_view> ZoomChoices() { return kZoomChoices; }

ZoomChoice ZoomChoiceAt(std::size_t index) {
  if (index == 0) return {ZoomChoice::Kind::Fit};
  if (index + 1 == std::size(kZoomChoices)) return {ZoomChoice::Kind::ActualPixels};
  return {ZoomChoice::Kind::Zoom, kChoiceZooms[std::min(index, std::size(kChoiceZooms) - 1)]};
}

std::u16string ZoomPercentText(double zoom) {
  const double percent = zoom * 100;
  char text[32];
  if (std::fabs(percent - std::round(percent)) < 0.05)
    std::snprintf(text, sizeof text, "%.0f%%", std::round(percent));
  else
    std::snprintf(text, sizeof text, "%.1f%%", percent);
  return Ascii(text);
}

std::optional<double> ParseZoomPercent(std::u16string_view text) {
  auto trim = [&] {
    while (!text.empty() && text.front() == u' ') text.remove_prefix(1);
    while (!text.empty() && text.back() == u' ') text.remove_suffix(1);
  };
  trim();
  if (!text.empty() && text.back() == u'%') {
    text.remove_suffix(1);
    trim();
  }
  // Digits with at most one decimal point; no signs, exponents or words.
  double value = 0, place = 0;
  bool digits = false;
  for (char16_t c : text) {
    if (c >= u'0' && c <= u'9') {
      digits = true;
      if (place == 0) {
        value = value * 10 + (c - u'0');
      } else {
        value += (c - u'0') * place;
        place /= 10;
      }
    } else if (c == u'.' && place == 0) {
      place = 0.1;
    } else {
      return std::nullopt;
    }
    if (value > 1e9) return std::nullopt;  // far past the largest zoom
  }
  if (!digits || value <= 0) return std::nullopt;
  return std::clamp(value, 1.0, 6400.0) / 100.0;
}

}  // namespace tavora
