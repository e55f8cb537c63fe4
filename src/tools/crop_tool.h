#pragma once
// The Crop tool: a drag shows a crop rectangle on whole pixels within the
// canvas; its eight handles resize it, a drag inside moves it. Enter or a
// double-click inside crops to it, Esc or a tool change drops it.
#include <cstdint>
#include <optional>

#include "document/document.h"
#include "document/rect.h"

namespace tavora {

enum class CropHandle { None, Inside, Left, Top, Right, Bottom, TopLeft, TopRight, BottomLeft, BottomRight };

class CropTool {
 public:
  // `reach`: how far from a handle, in image pixels, a press still takes it.
  void Press(const Document& doc, double x, double y, double reach);
  // Shift keeps the rectangle square while a new one is dragged.
  void Drag(const Document& doc, double x, double y, int modifiers);
  void Release(const Document& doc, double x, double y);
  // Enter or a double-click inside: the rectangle to crop to, once; the
  // tool is then idle again. Nothing when no rectangle is shown.
  std::optional<Rect> Take();
  void Cancel();

  bool Shown() const { return !area_.Empty(); }
  const Rect& Area() const { return area_; }
  CropHandle HandleAt(double x, double y, double reach) const;
  // The image area whose overlay changed since the last call.
  Rect TakeDamage();

 private:
  void SetArea(const Rect& area);

  Rect area_;
  CropHandle held_ = CropHandle::None;
  bool newRect_ = false;
  int modifiers_ = 0;
  Rect startArea_;
  double pressX_ = 0, pressY_ = 0;
  Rect damage_;
};

}  // namespace tavora
