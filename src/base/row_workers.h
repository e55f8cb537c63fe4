#pragma once
// Runs one row callback over a range of rows, split across the processors,
// and returns when every row is done. Threads live for one call only.
#include <cstdint>

namespace tavora {

// Processes rows first <= y < end; touches nothing outside them but its own
// outputs. A callback that can fail records that in its context.
using RowCallback = void (*)(int first, int end, void* context);

inline constexpr int kMaxRowWorkers = 16;
// Jobs smaller than this stay on the calling thread: starting threads would
// cost more than it saves (a brush dab, a dirty strip).
inline constexpr int kMinRowsToSplit = 32;

struct RowSlice {
  int first = 0;
  int end = 0;
};

class RowWorkers {
 public:
  // Logical processors of the machine, at least 1 and at most 16; determined
  // once per process.
  static int ProcessorCount();

  // Runs callback over rows 0 .. rowCount - 1 (a job below 32 rows, even an
  // empty one, is one call with (0, rowCount)).
  static void Run(int rowCount, RowCallback callback, void* context);

  template <typename F>
  static void Run(int rowCount, F& body) {
    Run(rowCount, [](int first, int end, void* f) { (*static_cast<F*>(f))(first, end); }, &body);
  }

  // A processor count as the system would report it, clamped to 1..16.
  static int ClampProcessorCount(int reported);

  // The parts a call uses on a machine that reports `processors`; slices
  // must hold kMaxRowWorkers entries. Returns the number of parts.
  static int Plan(int rowCount, int processors, RowSlice* slices);

  // Makes Run() behave as on a machine with this many processors (0 puts
  // the real count back), so tests can compare split and unsplit runs.
  static void OverrideProcessorCountForTesting(int processors);

  // Run as on a machine that reports `processors`. startThread, when given,
  // is asked before each thread is started and a false answer is treated as
  // a failed thread creation. For tests of the split and the fall-back.
  using ThreadGate = bool (*)(int part);
  static void RunAs(int processors, int rowCount, RowCallback callback, void* context,
                    ThreadGate startThread = nullptr);
};

}  // namespace tavora
