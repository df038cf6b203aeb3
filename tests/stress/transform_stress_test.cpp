// Transforms on many threads for a bounded time, every output compared with
// the per-pixel model, at every level and through the default entry.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "stress_support.h"

namespace {

constexpr int thread_count = 8;

TEST(TransformStress, ManyThreadsManyShapesAllExact) {
  std::vector<stress::Case> const cases = stress::make_cases(48);
  ASSERT_EQ(qn_demosaic_module_initialize(), 0);
  auto const until = stress::deadline();
  std::atomic<long> transforms{0};
  std::atomic<long> wrong{0};
  std::vector<std::thread> threads;
  threads.reserve(thread_count);
  for (int t = 0; t < thread_count; ++t) {
    threads.emplace_back([&, t] {
      int const levels[] = {test_support::default_entry, 0, 1, 2, 3, 4, -1};
      // Each thread walks the cases from its own start, so that different
      // shapes and levels overlap in time.
      for (std::size_t i = static_cast<std::size_t>(t) * 5;
           std::chrono::steady_clock::now() < until; ++i) {
        stress::Case const& c = cases[i % cases.size()];
        if (!stress::transform_is_exact(c, levels[i % std::size(levels)])) ++wrong;
        ++transforms;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(qn_demosaic_module_terminate(), 0);
  EXPECT_EQ(wrong.load(), 0) << "of " << transforms.load() << " transforms";
  EXPECT_GT(transforms.load(), thread_count);
  RecordProperty("transforms", static_cast<int>(transforms.load()));
}

}  // namespace
