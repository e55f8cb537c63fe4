#include "base/progress.h"

namespace tavora {
namespace {

thread_local Progress* t_progress = nullptr;

}  // namespace

Progress* CurrentProgress() { return t_progress; }

ScopedProgress::ScopedProgress(Progress* progress) : previous_(t_progress) { t_progress = progress; }

ScopedProgress::~ScopedProgress() { t_progress = previous_; }

}  // namespace tavora
