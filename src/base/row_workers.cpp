#include "base/row_workers.h"

#include <algorithm>
#include <system_error>
#include <thread>

namespace tavora {

int RowWorkers::ClampProcessorCount(int reported) {
  return std::clamp(reported, 1, kMaxRowWorkers);
}

int RowWorkers::ProcessorCount() {
  // hardware_concurrency() is the system's logical processor count (0 when
  // unknown); a function-local static makes the first call the only query.
  static const int count =
      ClampProcessorCount(static_cast<int>(std::thread::hardware_concurrency()));
  return count;
}

int RowWorkers::Plan(int rowCount, int processors, RowSlice* slices) {
  processors = ClampProcessorCount(processors);
  if (rowCount < kMinRowsToSplit || processors < 2) {
    slices[0] = {0, rowCount};
    return 1;
  }
  const int parts = std::min(rowCount, processors);
  for (int i = 0; i < parts; ++i) {
    slices[i].first = static_cast<int>(int64_t{i} * rowCount / parts);
    slices[i].end = static_cast<int>(int64_t{i + 1} * rowCount / parts);
  }
  return parts;
}

namespace {
int g_overrideProcessors = 0;
}

void RowWorkers::OverrideProcessorCountForTesting(int processors) { g_overrideProcessors = processors; }

void RowWorkers::Run(int rowCount, RowCallback callback, void* context) {
  RunAs(g_overrideProcessors > 0 ? g_overrideProcessors : ProcessorCount(), rowCount, callback, context);
}

void RowWorkers::RunAs(int processors, int rowCount, RowCallback callback, void* context,
                       ThreadGate startThread) {
  RowSlice slices[kMaxRowWorkers];
  const int parts = Plan(rowCount, processors, slices);
  if (parts == 1) {
    callback(slices[0].first, slices[0].end, context);
    return;
  }
  std::thread threads[kMaxRowWorkers];
  for (int i = 1; i < parts; ++i) {
    const RowSlice slice = slices[i];
    bool started = false;
    if (!startThread || startThread(i)) {
      try {
        threads[i] = std::thread(callback, slice.first, slice.end, context);
        started = true;
      } catch (const std::system_error&) {
        // No thread to be had: same result, only slower.
      }
    }
    if (!started) callback(slice.first, slice.end, context);
  }
  callback(slices[0].first, slices[0].end, context);
  for (int i = 1; i < parts; ++i) {
    if (threads[i].joinable()) threads[i].join();
  }
}

}  // namespace tavora
