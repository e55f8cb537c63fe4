#include "panels/tab_order.h"

#include <algorithm>

namespace tavora {

int32_t DragTarget(const std::vector<TabEntry>& entries, const TabStrip& strip, int32_t dragged, int32_t x) {
  const auto count = static_cast<int32_t>(std::min(entries.size(), strip.tabs.size()));
  const auto isDocument = [&](int32_t i) { return i >= 0 && i < count && entries[i].document != kBrowseTab; };
  if (!isDocument(dragged)) return -1;
  int32_t over = -1;
  for (int32_t i = 0; i < count; ++i)
    if (x >= strip.tabs[i].box.x0 && x < strip.tabs[i].box.x1) over = i;
  if (over == dragged || !isDocument(over)) return -1;
  // The tabs between shift by the dragged tab's width, so its new place
  // ends where the target ends (moving right) or starts where it starts.
  const int32_t width = strip.tabs[dragged].box.Width();
  const Rect& target = strip.tabs[over].box;
  const int32_t x0 = over > dragged ? target.x1 - width : target.x0;
  return x >= x0 && x < x0 + width ? over : -1;
}

bool ApplyTabOrder(std::vector<std::unique_ptr<Document>>& documents, std::span<const int32_t> order,
                   int32_t& active) {
  const std::size_t n = documents.size();
  if (order.size() != n) return false;
  std::vector<bool> seen(n, false);
  for (int32_t i : order) {
    if (i < 0 || static_cast<std::size_t>(i) >= n || seen[static_cast<std::size_t>(i)]) return false;
    seen[static_cast<std::size_t>(i)] = true;
  }
  std::vector<std::unique_ptr<Document>> moved;
  moved.reserve(n);
  int32_t newActive = active;
  for (std::size_t to = 0; to < n; ++to) {
    const int32_t from = order[to];
    if (from == active) newActive = static_cast<int32_t>(to);
    moved.push_back(std::move(documents[static_cast<std::size_t>(from)]));
  }
  documents = std::move(moved);
  active = newActive;
  return true;
}

}  // namespace tavora
