#pragma once
// Moving documents between tab places: where a dragged tab lands as the
// pointer moves, and putting the open documents into a new order.
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "document/document.h"
#include "panels/tabs_bar.h"

namespace tavora {

// The entry whose place the dragged entry takes with the pointer at x, or
// -1. It moves only when the pointer would lie on the dragged tab in its
// new place, so that tabs of different widths do not swap back and forth
// under a pointer that stands still. The Browse tab takes no part.
int32_t DragTarget(const std::vector<TabEntry>& entries, const TabStrip& strip, int32_t dragged, int32_t x);

// Puts the documents into `order` (a permutation of their indices, as
// ReorderTabs gives) and keeps the same document active. False, changing
// nothing, when the order is not a permutation.
[[nodiscard]] bool ApplyTabOrder(std::vector<std::unique_ptr<Document>>& documents, std::span<const int32_t> order,
                                 int32_t& active);

}  // namespace tavora
