// Initialise and terminate in balanced pairs from many threads at once while
// other threads transform between pairs of their own: nothing deadlocks,
// every output is exact, and once every pair is balanced the library is back
// in its loaded state, with its companions and logger closed.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "stress_support.h"

namespace {

constexpr int lifecycle_threads = 4;
constexpr int transform_threads = 4;

bool refused_as_not_initialised(stress::Case const& c) {
  std::vector<std::uint16_t> output(c.expected.size(), 0x5A5A);
  int const result = qn_demosaic_transform_test_16_to_48(
      c.width, c.height, c.origin_x, c.origin_y, static_cast<QN_COLOR_FILTER_ARRAY_PHASE>(c.phase),
      static_cast<QN_COLOR_FORMAT>(c.format), QN_COLOR_FILTER_TYPE_BAYER, 16, c.input.data(),
      output.data(), 0);
  return result == QN_DEMOSAIC_MODULE_NOT_INITIALIZED &&
         output == std::vector<std::uint16_t>(c.expected.size(), 0x5A5A);
}

// Libraries that initialise opens and the balancing terminate closes.
constexpr char const* opened_libraries[] = {
    "libostrevan_oqa_demosaic_vector_sse.so", "libostrevan_oqa_demosaic_vector_avx2.so",
    "libostrevan_oqa_demosaic_vector_avx512.so", "libostrevan_oqa_logger.so"};

TEST(LifecycleStress, ConcurrentBalancedPairsEndUninitialised) {
  std::vector<stress::Case> const cases = stress::make_cases(16);
  ASSERT_TRUE(refused_as_not_initialised(cases[0]));

  auto const until = stress::deadline();
  std::atomic<long> pairs{0};
  std::atomic<long> transforms{0};
  std::atomic<long> wrong{0};
  std::vector<std::thread> threads;
  threads.reserve(lifecycle_threads + transform_threads);
  for (int t = 0; t < lifecycle_threads; ++t) {
    threads.emplace_back([&] {
      while (std::chrono::steady_clock::now() < until) {
        qn_demosaic_module_initialize();
        qn_demosaic_module_terminate();
        ++pairs;
      }
    });
  }
  for (int t = 0; t < transform_threads; ++t) {
    threads.emplace_back([&, t] {
      int const levels[] = {test_support::default_entry, 0, 1, 2, 3};
      for (std::size_t i = static_cast<std::size_t>(t); std::chrono::steady_clock::now() < until;
           ++i) {
        qn_demosaic_module_initialize();
        // Inside its own pair a thread's transforms are safe whatever the
        // other threads initialise or terminate.
        for (int k = 0; k < 3; ++k) {
          stress::Case const& c = cases[(i + static_cast<std::size_t>(k)) % cases.size()];
          if (!stress::transform_is_exact(c, levels[(i + static_cast<std::size_t>(k)) % 5])) {
            ++wrong;
          }
          ++transforms;
        }
        qn_demosaic_module_terminate();
        ++pairs;
      }
    });
  }
  for (auto& thread : threads) thread.join();

  EXPECT_EQ(wrong.load(), 0) << "of " << transforms.load() << " transforms";
  EXPECT_GT(pairs.load(), lifecycle_threads + transform_threads);
  // Every count is back at zero: the objects are gone and their libraries
  // closed.
  EXPECT_TRUE(refused_as_not_initialised(cases[1]));
  for (char const* library : opened_libraries) {
    EXPECT_FALSE(stress::is_mapped(library)) << library << " is still loaded";
  }
  // And the module starts afresh.
  ASSERT_EQ(qn_demosaic_module_initialize(), 0);
  EXPECT_TRUE(stress::transform_is_exact(cases[2], test_support::default_entry));
  EXPECT_EQ(qn_demosaic_module_terminate(), 0);
  EXPECT_TRUE(refused_as_not_initialised(cases[3]));
  RecordProperty("pairs", static_cast<int>(pairs.load()));
}

}  // namespace
