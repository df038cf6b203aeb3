// Many threads for a bounded time (OQA_STRESS_SECONDS, default 3 s), with the
// real companions and logger; every output is compared with the per-pixel
// model, at every level and through the default entry.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <thread>
#include <vector>

#include "library_test_support.h"

namespace {

using test_support::default_entry;

// Runs `body(thread, i)` for i = 0, 1, ... on each of `count` threads until
// the time is up.
template <typename Body>
void on_threads(int count, Body body) {
  char const* const seconds = std::getenv("OQA_STRESS_SECONDS");
  auto const until = std::chrono::steady_clock::now() +
                     std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                         std::chrono::duration<double>(seconds ? std::atof(seconds) : 3.0));
  std::vector<std::thread> threads;
  threads.reserve(count);
  for (int t = 0; t < count; ++t) {
    threads.emplace_back([&, t] {
      for (std::size_t i = 0; std::chrono::steady_clock::now() < until; ++i) body(t, i);
    });
  }
  for (auto& thread : threads) thread.join();
}

TEST(TransformStress, ManyThreadsManyShapesAllExact) {
  auto const cases = test_support::make_cases(48);
  ASSERT_EQ(qn_demosaic_module_initialize(), 0);
  std::atomic<long> transforms{0};
  std::atomic<long> wrong{0};
  // Each thread walks the cases from its own start, so that different shapes
  // and levels overlap in time.
  on_threads(8, [&](int t, std::size_t i) {
    constexpr int levels[] = {default_entry, 0, 1, 2, 3, 4, -1};
    std::size_t const k = i + 5 * static_cast<std::size_t>(t);
    wrong += cases[k % cases.size()].transform_is_exact(levels[k % std::size(levels)]) ? 0 : 1;
    ++transforms;
  });
  EXPECT_EQ(qn_demosaic_module_terminate(), 0);
  EXPECT_EQ(wrong, 0) << "of " << transforms << " transforms";
  EXPECT_GT(transforms, 8);
}

// Refused before any argument is read.
bool not_initialised() {
  return call_transform(Transform_arguments{}, 0, false) == QN_DEMOSAIC_MODULE_NOT_INITIALIZED;
}

// Initialise and terminate in balanced pairs on four threads while four
// others transform inside pairs of their own: nothing deadlocks, every output
// is exact, and once every pair is balanced the companions and the logger are
// closed and the library starts afresh.
TEST(LifecycleStress, ConcurrentBalancedPairsEndUninitialised) {
  auto const cases = test_support::make_cases(16);
  ASSERT_TRUE(not_initialised());
  constexpr char const* opened[] = {
      "libostrevan_oqa_demosaic_vector_sse.so", "libostrevan_oqa_demosaic_vector_avx2.so",
      "libostrevan_oqa_demosaic_vector_avx512.so", "libostrevan_oqa_logger.so"};
  std::atomic<long> pairs{0};
  std::atomic<long> wrong{0};
  on_threads(8, [&](int t, std::size_t i) {
    qn_demosaic_module_initialize();
    for (std::size_t k = i; t % 2 == 1 && k < i + 3; ++k) {
      constexpr int levels[] = {default_entry, 0, 1, 2, 3};
      wrong += cases[(k + t) % cases.size()].transform_is_exact(levels[k % 5]) ? 0 : 1;
    }
    qn_demosaic_module_terminate();
    ++pairs;
  });
  EXPECT_EQ(wrong, 0);
  EXPECT_GT(pairs, 8);
  EXPECT_TRUE(not_initialised());
  for (char const* file : opened) EXPECT_FALSE(test_support::is_mapped(file)) << file;
  ASSERT_EQ(qn_demosaic_module_initialize(), 0);
  EXPECT_TRUE(cases[2].transform_is_exact(default_entry));
  EXPECT_EQ(qn_demosaic_module_terminate(), 0);
  EXPECT_TRUE(not_initialised());
}

}  // namespace
