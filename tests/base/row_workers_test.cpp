#include "base/row_workers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <mutex>
#include <thread>
#include <vector>

namespace tavora {
namespace {

using Plan = std::vector<std::pair<int, int>>;

Plan PlanOf(int rows, int processors) {
  RowSlice slices[kMaxRowWorkers];
  const int n = RowWorkers::Plan(rows, processors, slices);
  Plan out;
  for (int i = 0; i < n; ++i) out.emplace_back(slices[i].first, slices[i].end);
  return out;
}

TEST(RowWorkersPlan, SmallJobsStayWholeAndBoundariesAreTruncatedFractions) {
  const struct {
    int rows, processors;
    Plan want;
  } table[] = {
      {31, 16, {{0, 31}}}, {1, 16, {{0, 1}}}, {0, 16, {{0, 0}}},  // below the 32-row threshold
      // A machine that reports no processors at all still runs the rows.
      {1000, 1, {{0, 1000}}}, {1000, 0, {{0, 1000}}}, {1000, -3, {{0, 1000}}},
      {32, 2, {{0, 16}, {16, 32}}}, {40, 2, {{0, 20}, {20, 40}}},
      {40, 3, {{0, 13}, {13, 26}, {26, 40}}},
      {33, 16, {{0, 2}, {2, 4}, {4, 6}, {6, 8}, {8, 10}, {10, 12}, {12, 14}, {14, 16},
                {16, 18}, {18, 20}, {20, 22}, {22, 24}, {24, 26}, {26, 28}, {28, 30}, {30, 33}}},
  };
  for (const auto& row : table)
    EXPECT_EQ(PlanOf(row.rows, row.processors), row.want)
        << row.rows << " rows on " << row.processors << " processors";
}

TEST(RowWorkersPlan, PartsCoverEveryRowOnceAndDifferByAtMostOne) {
  for (int processors : {1, 2, 3, 16, 64}) {
    for (int rows : {31, 32, 33, 40, 47, 100, 1001, 30000}) {
      const auto plan = PlanOf(rows, processors);
      const int expectedParts =
          rows < kMinRowsToSplit || processors < 2 ? 1 : std::min({rows, processors, 16});
      ASSERT_EQ(static_cast<int>(plan.size()), expectedParts) << rows << " rows, " << processors;
      int next = 0, smallest = rows, largest = 0;
      for (auto [first, end] : plan) {
        EXPECT_EQ(first, next);
        smallest = std::min(smallest, end - first);
        largest = std::max(largest, end - first);
        next = end;
      }
      EXPECT_EQ(next, rows);
      EXPECT_LE(largest - smallest, 1);
    }
  }
}

TEST(RowWorkersPlan, ProcessorCountIsClamped) {
  for (auto [reported, used] : {std::pair{0, 1}, {-1, 1}, {7, 7}, {16, 16}, {64, 16}})
    EXPECT_EQ(RowWorkers::ClampProcessorCount(reported), used) << reported;
  EXPECT_TRUE(RowWorkers::ProcessorCount() >= 1 && RowWorkers::ProcessorCount() <= 16);
}

struct Recorder {
  std::mutex lock;
  std::vector<int> hits;  // per row
  Plan calls;
  std::vector<std::thread::id> threads;
  explicit Recorder(int rows) : hits(rows, 0) {}
  static void Callback(int first, int end, void* context) {
    auto& self = *static_cast<Recorder*>(context);
    std::lock_guard<std::mutex> guard(self.lock);
    self.calls.emplace_back(first, end);
    self.threads.push_back(std::this_thread::get_id());
    for (int y = first; y < end; ++y) ++self.hits[y];
  }
  bool EveryRowOnce() const {
    return std::all_of(hits.begin(), hits.end(), [](int h) { return h == 1; });
  }
  std::thread::id ThreadOf(std::pair<int, int> part) const {
    const auto at = std::find(calls.begin(), calls.end(), part);
    return at == calls.end() ? std::thread::id() : threads[at - calls.begin()];
  }
};

TEST(RowWorkersRun, RunsThePlanWithEveryRowOnceAndPartZeroOnTheCaller) {
  for (auto [rows, processors] : {std::pair{1000, 1}, {1000, 2}, {1000, 3}, {1000, 16},
                                  {1000, 64}, {31, 16}}) {
    Recorder rec(rows);
    RowWorkers::RunAs(processors, rows, &Recorder::Callback, &rec);
    EXPECT_TRUE(rec.EveryRowOnce()) << rows << " rows, " << processors;
    Plan calls = rec.calls;
    std::sort(calls.begin(), calls.end());
    const Plan plan = PlanOf(rows, processors);
    EXPECT_EQ(calls, plan) << rows << " rows, " << processors;
    EXPECT_EQ(rec.ThreadOf(plan[0]), std::this_thread::get_id()) << rows << " rows, " << processors;
  }
  // And as a lambda.
  std::vector<int> out(500, -1);
  auto body = [&](int first, int end) {
    for (int y = first; y < end; ++y) out[y] = y * 2;
  };
  RowWorkers::Run(500, body);
  for (int y = 0; y < 500; ++y) ASSERT_EQ(out[y], y * 2);
}

TEST(RowWorkersRun, AFailedThreadRunsItsPartOnTheCallerAtOnce) {
  Recorder rec(40);
  // Part 1 cannot get a thread: it must run on the caller before part 2 is
  // even started, and still every row runs once.
  RowWorkers::RunAs(3, 40, &Recorder::Callback, &rec, [](int part) { return part != 1; });
  EXPECT_TRUE(rec.EveryRowOnce());
  ASSERT_EQ(rec.calls.size(), 3u);
  EXPECT_EQ(rec.ThreadOf({13, 26}), std::this_thread::get_id());

  Recorder none(40);
  RowWorkers::RunAs(3, 40, &Recorder::Callback, &none, [](int) { return false; });
  EXPECT_EQ(none.calls, (Plan{{13, 26}, {26, 40}, {0, 13}}));
  for (auto id : none.threads) EXPECT_EQ(id, std::this_thread::get_id());
}

}  // namespace
}  // namespace tavora
