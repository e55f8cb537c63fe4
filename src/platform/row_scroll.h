#pragma once
// A column of equal rows seen through a viewport, as a panel's list shows
// them: the scroll offset (in pixels from the first row's top) kept in
// range, a row brought into view, the row under a point and the wheel.
#include <cstdint>

namespace tavora {

struct RowView {
  int32_t rows = 0;
  int32_t rowHeight = 1;
  int32_t viewHeight = 0;
};

// How far the rows can scroll: 0 when they all fit.
int32_t MaxRowOffset(const RowView& view);
int32_t ClampRowOffset(const RowView& view, int32_t offset);
// The nearest offset that shows `row` whole; a view shorter than a row
// shows the row's top.
int32_t OffsetShowingRow(const RowView& view, int32_t offset, int32_t row);
// The row at `y` (from the view's top), or -1 where there is none.
int32_t RowAtY(const RowView& view, int32_t offset, int32_t y);
// The offset after a wheel turn of `delta` (120 a notch, positive away from
// the user, so the rows move down) by `rowsPerNotch` rows a notch.
int32_t WheelRowOffset(const RowView& view, int32_t offset, int32_t delta, int32_t rowsPerNotch);

}  // namespace tavora
