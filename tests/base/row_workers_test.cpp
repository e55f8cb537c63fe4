#include "base/row_workers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <mutex>
#include <thread>
#include <vector>

namespace tavora {
namespace {

std::vector<std::pair<int, int>> PlanOf(int rows, int processors) {
  RowSlice slices[kMaxRowWorkers];
  const int n = RowWorkers::Plan(rows, processors, slices);
  std::vector<std::pair<int, int>> out;
  for (int i = 0; i < n; ++i) out.emplace_back(slices[i].first, slices[i].end);
  return out;
}

TEST(RowWorkersPlan, SmallJobsAndSingleProcessorsStayWhole) {
  using P = std::vector<std::pair<int, int>>;
  EXPECT_EQ(PlanOf(31, 16), (P{{0, 31}}));
  EXPECT_EQ(PlanOf(1, 16), (P{{0, 1}}));
  EXPECT_EQ(PlanOf(1000, 1), (P{{0, 1000}}));
  // A machine that reports no processors at all still runs the rows.
  EXPECT_EQ(PlanOf(1000, 0), (P{{0, 1000}}));
  EXPECT_EQ(PlanOf(1000, -3), (P{{0, 1000}}));
  EXPECT_EQ(PlanOf(0, 16), (P{{0, 0}}));
}

TEST(RowWorkersPlan, BoundariesAreTruncatedFractions) {
  using P = std::vector<std::pair<int, int>>;
  EXPECT_EQ(PlanOf(33, 16), (P{{0, 2}, {2, 4}, {4, 6}, {6, 8}, {8, 10}, {10, 12}, {12, 14},
                               {14, 16}, {16, 18}, {18, 20}, {20, 22}, {22, 24}, {24, 26},
                               {26, 28}, {28, 30}, {30, 33}}));
  EXPECT_EQ(PlanOf(40, 3), (P{{0, 13}, {13, 26}, {26, 40}}));
  EXPECT_EQ(PlanOf(40, 2), (P{{0, 20}, {20, 40}}));
  EXPECT_EQ(PlanOf(32, 2), (P{{0, 16}, {16, 32}}));
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
  EXPECT_EQ(RowWorkers::ClampProcessorCount(0), 1);
  EXPECT_EQ(RowWorkers::ClampProcessorCount(-1), 1);
  EXPECT_EQ(RowWorkers::ClampProcessorCount(7), 7);
  EXPECT_EQ(RowWorkers::ClampProcessorCount(64), 16);
  const int count = RowWorkers::ProcessorCount();
  EXPECT_GE(count, 1);
  EXPECT_LE(count, 16);
  EXPECT_EQ(RowWorkers::ProcessorCount(), count);
}

struct Recorder {
  std::mutex lock;
  std::vector<int> hits;  // per row
  std::vector<std::pair<int, int>> calls;
  std::vector<std::thread::id> threads;
  explicit Recorder(int rows) : hits(rows, 0) {}
  static void Callback(int first, int end, void* context) {
    auto& self = *static_cast<Recorder*>(context);
    std::lock_guard<std::mutex> guard(self.lock);
    self.calls.emplace_back(first, end);
    self.threads.push_back(std::this_thread::get_id());
    for (int y = first; y < end; ++y) ++self.hits[y];
  }
};

TEST(RowWorkersRun, EveryRowRunsOnceAndPartZeroOnTheCaller) {
  for (int processors : {1, 2, 3, 16, 64}) {
    Recorder rec(1000);
    RowWorkers::RunAs(processors, 1000, &Recorder::Callback, &rec);
    EXPECT_TRUE(std::all_of(rec.hits.begin(), rec.hits.end(), [](int h) { return h == 1; }));
    EXPECT_EQ(rec.calls.size(), PlanOf(1000, processors).size());
    // Part 0 always runs on the calling thread.
    const auto part0 = std::find(rec.calls.begin(), rec.calls.end(), std::make_pair(0, PlanOf(1000, processors)[0].second));
    ASSERT_NE(part0, rec.calls.end());
    EXPECT_EQ(rec.threads[part0 - rec.calls.begin()], std::this_thread::get_id());
  }
}

TEST(RowWorkersRun, SmallJobsRunOnTheCallingThread) {
  Recorder rec(31);
  RowWorkers::RunAs(16, 31, &Recorder::Callback, &rec);
  ASSERT_EQ(rec.calls.size(), 1u);
  EXPECT_EQ(rec.calls[0], std::make_pair(0, 31));
  EXPECT_EQ(rec.threads[0], std::this_thread::get_id());
}

TEST(RowWorkersRun, AFailedThreadRunsItsPartOnTheCallerAtOnce) {
  Recorder rec(40);
  // Part 1 cannot get a thread: it must run on the caller before part 2 is
  // even started, and still every row runs once.
  RowWorkers::RunAs(3, 40, &Recorder::Callback, &rec, [](int part) { return part != 1; });
  EXPECT_TRUE(std::all_of(rec.hits.begin(), rec.hits.end(), [](int h) { return h == 1; }));
  ASSERT_EQ(rec.calls.size(), 3u);
  const auto p1 = std::find(rec.calls.begin(), rec.calls.end(), std::make_pair(13, 26));
  ASSERT_NE(p1, rec.calls.end());
  EXPECT_EQ(rec.threads[p1 - rec.calls.begin()], std::this_thread::get_id());

  Recorder none(40);
  RowWorkers::RunAs(3, 40, &Recorder::Callback, &none, [](int) { return false; });
  EXPECT_EQ(none.calls, (std::vector<std::pair<int, int>>{{13, 26}, {26, 40}, {0, 13}}));
  for (auto id : none.threads) EXPECT_EQ(id, std::this_thread::get_id());
}

TEST(RowWorkersRun, LambdaBodiesSeeTheirRows) {
  std::vector<int> out(500, -1);
  auto body = [&](int first, int end) {
    for (int y = first; y < end; ++y) out[y] = y * 2;
  };
  RowWorkers::Run(500, body);
  for (int y = 0; y < 500; ++y) ASSERT_EQ(out[y], y * 2);
}

}  // namespace
}  // namespace tavora
