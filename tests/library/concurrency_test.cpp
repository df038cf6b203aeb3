// Transforms on many threads at once, each on its own buffers, at every
// level: every output must be exact.
#include <gtest/gtest.h>

#include <cstdint>
#include <thread>
#include <vector>

#include "library_test_support.h"
#include "ostrevan_oqa_demosaic.h"

namespace {

TEST(Concurrency, EightThreadsOnDifferentBuffersAreAllExact) {
  qn_demosaic_module_initialize();
  struct Job {
    int width;
    int height;
    int phase;
    int format;
    std::vector<std::uint16_t> input;
    std::vector<std::uint16_t> expected;
    bool all_exact = true;
  };
  std::vector<Job> jobs;
  for (int i = 0; i < 8; ++i) {
    Job job{64 + 13 * i, 40 + 7 * i, i % 4, i % 3, {}, {}};
    job.input = test_support::random_mosaic(job.width, job.height, 100 + i);
    job.expected =
        test_support::transform(job.input, job.width, job.height, job.phase, job.format, 0);
    jobs.push_back(std::move(job));
  }
  std::vector<std::thread> threads;
  threads.reserve(jobs.size());
  for (auto& job : jobs) {
    threads.emplace_back([&job] {
      for (int round = 0; round < 20; ++round) {
        for (int level : {test_support::default_entry, 0, 1, 2, 3}) {
          if (test_support::transform(job.input, job.width, job.height, job.phase, job.format,
                                      level) != job.expected) {
            job.all_exact = false;
          }
        }
      }
    });
  }
  for (auto& thread : threads) thread.join();
  for (auto const& job : jobs) EXPECT_TRUE(job.all_exact) << job.width << "x" << job.height;
  qn_demosaic_module_terminate();
}

}  // namespace
