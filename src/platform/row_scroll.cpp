#include "platform/row_scroll.h"

#include <algorithm>

namespace tavora {

int32_t MaxRowOffset(const RowView& view) {
  const int64_t content = int64_t{std::max(view.rows, 0)} * std::max(view.rowHeight, 1);
  return static_cast<int32_t>(std::clamp<int64_t>(content - std::max(view.viewHeight, 0), 0, INT32_MAX));
}

int32_t ClampRowOffset(const RowView& view, int32_t offset) {
  return std::clamp(offset, 0, MaxRowOffset(view));
}

int32_t OffsetShowingRow(const RowView& view, int32_t offset, int32_t row) {
  if (view.rows <= 0) return 0;
  const int32_t h = std::max(view.rowHeight, 1);
  const int64_t top = int64_t{std::clamp(row, 0, view.rows - 1)} * h;
  int64_t wanted = offset;
  if (top + h > wanted + view.viewHeight) wanted = top + h - view.viewHeight;
  if (top < wanted) wanted = top;
  return ClampRowOffset(view, static_cast<int32_t>(std::clamp<int64_t>(wanted, 0, INT32_MAX)));
}

int32_t RowAtY(const RowView& view, int32_t offset, int32_t y) {
  if (y < 0 || y >= view.viewHeight) return -1;
  const int64_t row = (int64_t{y} + offset) / std::max(view.rowHeight, 1);
  return row < view.rows ? static_cast<int32_t>(row) : -1;
}

int32_t WheelRowOffset(const RowView& view, int32_t offset, int32_t delta, int32_t rowsPerNotch) {
  const int64_t move = -int64_t{delta} * rowsPerNotch * std::max(view.rowHeight, 1) / 120;
  return ClampRowOffset(view, static_cast<int32_t>(std::clamp<int64_t>(offset + move, INT32_MIN, INT32_MAX)));
}

}  // namespace tavora
