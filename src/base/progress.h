#pragma once
// Progress and cancellation of one long operation. Whoever runs the
// operation (a dialog's preview worker, the final apply with its progress
// bar, a batch job) owns a Progress and installs it for the thread with
// ScopedProgress; an operation that takes long reads CurrentProgress() once
// at its start, hands the pointer to its row workers, reports rows done and
// stops early once cancelled. A cancelled result is partial: the owner
// throws it away.
#include <atomic>
#include <cstdint>

namespace tavora {

class Progress {
 public:
  void Cancel() { cancelled_.store(true, std::memory_order_relaxed); }
  bool Cancelled() const { return cancelled_.load(std::memory_order_relaxed); }
  // Units of work: rows, usually. Safe from any thread.
  void AddTotal(int64_t units) { total_.fetch_add(units, std::memory_order_relaxed); }
  void Advance(int64_t units) { done_.fetch_add(units, std::memory_order_relaxed); }
  // Done out of total, 0..1 (0 while no total is known).
  double Fraction() const {
    const int64_t total = total_.load(std::memory_order_relaxed);
    const int64_t done = done_.load(std::memory_order_relaxed);
    return total <= 0 ? 0.0 : done >= total ? 1.0 : static_cast<double>(done) / static_cast<double>(total);
  }

 private:
  std::atomic<bool> cancelled_{false};
  std::atomic<int64_t> done_{0}, total_{0};
};

// The progress of the operation the calling thread runs; null when nobody
// watches (the operation then simply runs to its end).
Progress* CurrentProgress();

// Installs a progress for this thread for the scope's life.
class ScopedProgress {
 public:
  explicit ScopedProgress(Progress* progress);
  ~ScopedProgress();
  ScopedProgress(const ScopedProgress&) = delete;
  ScopedProgress& operator=(const ScopedProgress&) = delete;

 private:
  Progress* previous_;
};

// For the operations' row loops: true when the job should stop.
inline bool StopRequested(const Progress* progress) { return progress && progress->Cancelled(); }

}  // namespace tavora
