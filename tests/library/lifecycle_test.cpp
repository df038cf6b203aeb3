// Initialise, terminate and the choice of companion, with fake companions
// (or the real ones) in the working directory.
#include <gtest/gtest.h>
#include <link.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "library_test_support.h"
#include "ostrevan_oqa_demosaic.h"
#include "test_doubles_control.h"

namespace {

using test_doubles::companion_counters;
using test_support::default_entry;
using test_support::transform;

constexpr int sse = 1;
constexpr int avx2 = 2;
constexpr int avx512 = 3;

int transforms_run(int level) { return companion_counters(level).transform.load(); }

std::vector<std::uint16_t> const& mosaic() {
  static auto const samples = test_support::random_mosaic(37, 23, 17);
  return samples;
}

class Companions_complete : public ::testing::Test {
 protected:
  void SetUp() override { test_doubles::reset(); }
};

TEST_F(Companions_complete, FirstInitialiseCreatesEverythingOnceAndLastTerminateDestroysIt) {
  EXPECT_EQ(qn_demosaic_module_initialize(), 0);
  EXPECT_EQ(qn_demosaic_module_initialize(), 0);
  for (int level : {sse, avx2, avx512}) EXPECT_EQ(companion_counters(level).initialize.load(), 1);
  EXPECT_EQ(test_doubles::events().front(),
            "open OSTREVAN_OQA_DEMOSAIC [] ostrevan_oqa_logger.cfg");

  EXPECT_EQ(qn_demosaic_module_terminate(), 0);
  EXPECT_FALSE(transform(mosaic(), 37, 23, 0, 1, default_entry).empty())
      << "one initialise is still open";
  for (int level : {sse, avx2, avx512}) EXPECT_EQ(companion_counters(level).terminate.load(), 0);

  EXPECT_EQ(qn_demosaic_module_terminate(), 0);
  for (int level : {sse, avx2, avx512}) {
    EXPECT_EQ(companion_counters(level).initialize.load(), 1);
    EXPECT_EQ(companion_counters(level).terminate.load(), 1);
  }
  auto const& events = test_doubles::events();
  std::vector<std::string> const expected_end = {
      "terminate sse", "terminate avx2", "terminate avx512", "free OSTREVAN_OQA_DEMOSAIC []"};
  ASSERT_GE(events.size(), expected_end.size());
  EXPECT_TRUE(std::equal(expected_end.begin(), expected_end.end(), events.end() - 4));
  EXPECT_TRUE(transform(mosaic(), 37, 23, 0, 1, default_entry).empty()) << "terminated: result 1";

  // Terminate with every count at zero changes nothing.
  EXPECT_EQ(qn_demosaic_module_terminate(), 0);
  EXPECT_EQ(companion_counters(sse).terminate.load(), 1);

  // A new initialise starts afresh.
  qn_demosaic_module_initialize();
  EXPECT_EQ(companion_counters(sse).initialize.load(), 2);
  qn_demosaic_module_terminate();
}

TEST_F(Companions_complete, DefaultTransformUsesTheHighestUsableLevel) {
  if (!test_support::processor_has_avx512()) GTEST_SKIP() << "processor lacks AVX-512";
  qn_demosaic_module_initialize();
  auto const scalar = transform(mosaic(), 37, 23, 2, 0, 0);
  EXPECT_EQ(transform(mosaic(), 37, 23, 2, 0, default_entry), scalar);
  EXPECT_EQ(transforms_run(avx512), 1);
  EXPECT_EQ(transform(mosaic(), 37, 23, 2, 0, avx2), scalar);
  EXPECT_EQ(transforms_run(avx2), 1);
  EXPECT_EQ(transform(mosaic(), 37, 23, 2, 0, sse), scalar);
  EXPECT_EQ(transforms_run(sse), 1);
  // Out-of-range levels run the scalar code.
  EXPECT_EQ(transform(mosaic(), 37, 23, 2, 0, 4), scalar);
  EXPECT_EQ(transform(mosaic(), 37, 23, 2, 0, -1), scalar);
  EXPECT_EQ(transforms_run(sse) + transforms_run(avx2) + transforms_run(avx512), 3);
  qn_demosaic_module_terminate();
}

TEST_F(Companions_complete, DecliningModuleIsSkippedButStillTerminated) {
  if (!test_support::processor_has_avx512()) GTEST_SKIP() << "processor lacks AVX-512";
  test_doubles::companion_initialize_result(avx512) = 1;
  test_doubles::companion_initialize_result(avx2) = -7;
  qn_demosaic_module_initialize();
  auto const scalar = transform(mosaic(), 37, 23, 1, 2, 0);
  EXPECT_EQ(transform(mosaic(), 37, 23, 1, 2, default_entry), scalar);
  EXPECT_EQ(transforms_run(sse), 1);
  // The test entry never calls a declining module.
  EXPECT_EQ(transform(mosaic(), 37, 23, 1, 2, avx512), scalar);
  EXPECT_EQ(transforms_run(avx512), 0);
  qn_demosaic_module_terminate();
  EXPECT_EQ(companion_counters(avx512).terminate.load(), 1);
  EXPECT_EQ(companion_counters(avx2).terminate.load(), 1);
}

TEST_F(Companions_complete, TimingRecordIsWrittenWhenTheCompanionThrows) {
  qn_demosaic_module_initialize();
  test_doubles::logged_records().clear();
  test_doubles::companion_transform_throws(avx2) = true;
  std::vector<std::uint16_t> output(3 * 37 * 23);
  EXPECT_THROW(qn_demosaic_transform_test_16_to_48(
                   37, 23, 0, 0, QN_CFA_PHASE_RED, QN_COLOR_FORMAT_BGR_INTERLEAVED,
                   QN_COLOR_FILTER_TYPE_BAYER, 16, mosaic().data(), output.data(), avx2),
               std::runtime_error);
  ASSERT_EQ(test_doubles::logged_records().size(), 1U);
  EXPECT_EQ(test_doubles::logged_records()[0].priority, 7);
  qn_demosaic_module_terminate();
}

TEST_F(Companions_complete, UnopenedLogIsStillFreedAndTransformsRun) {
  test_doubles::logger_open_fails() = true;
  qn_demosaic_module_initialize();
  EXPECT_FALSE(transform(mosaic(), 37, 23, 0, 1, 0).empty());
  EXPECT_TRUE(transform(mosaic(), 1, 23, 0, 1, 0).empty());
  EXPECT_TRUE(test_doubles::logged_records().empty());
  qn_demosaic_module_terminate();
  EXPECT_EQ(test_doubles::events().back(), "free OSTREVAN_OQA_DEMOSAIC []");
}

// AVX2 lacks its initialise entry, AVX-512 its terminate entry.
class Companions_broken : public Companions_complete {};

TEST_F(Companions_broken, IncompleteModulesAreNeverCalled) {
  qn_demosaic_module_initialize();
  EXPECT_EQ(companion_counters(sse).initialize.load(), 1);
  EXPECT_EQ(companion_counters(avx512).initialize.load(), 0)
      << "initialise runs only when all entries exist";
  auto const scalar = transform(mosaic(), 37, 23, 3, 1, 0);
  EXPECT_EQ(transform(mosaic(), 37, 23, 3, 1, default_entry), scalar);
  EXPECT_EQ(transforms_run(sse), 1);
  EXPECT_EQ(transform(mosaic(), 37, 23, 3, 1, avx2), scalar);
  EXPECT_EQ(transform(mosaic(), 37, 23, 3, 1, avx512), scalar);
  EXPECT_EQ(transforms_run(avx2) + transforms_run(avx512), 0);
  qn_demosaic_module_terminate();
  EXPECT_EQ(companion_counters(sse).terminate.load(), 1);
  EXPECT_EQ(companion_counters(avx2).terminate.load(), 0);
}

class Companions_none : public Companions_complete {};

TEST_F(Companions_none, EveryLevelRunsTheScalarCode) {
  EXPECT_EQ(qn_demosaic_module_initialize(), 0);
  for (int format = 0; format < 3; ++format) {
    auto const scalar = transform(mosaic(), 37, 23, 0, format, 0);
    ASSERT_FALSE(scalar.empty());
    for (int level : {default_entry, 1, 2, 3})
      EXPECT_EQ(transform(mosaic(), 37, 23, 0, format, level), scalar);
  }
  EXPECT_EQ(qn_demosaic_module_terminate(), 0);
}

// The companions built from vector/ (skipped where they are not built).
class Companions_real : public ::testing::Test {
 protected:
  void SetUp() override {
    for (char const* name : {"sse", "avx2", "avx512"}) {
      if (!std::filesystem::exists(std::string("libostrevan_oqa_demosaic_vector_") + name +
                                   ".so")) {
        GTEST_SKIP() << "the " << name << " companion is not built";
      }
    }
  }
};

bool library_loaded(std::string const& file_name) {
  struct Search {
    std::string name;
    bool found = false;
  } search{file_name};
  dl_iterate_phdr(
      [](dl_phdr_info* info, std::size_t, void* data) {
        auto* s = static_cast<Search*>(data);
        if (std::string(info->dlpi_name).ends_with("/" + s->name)) s->found = true;
        return 0;
      },
      &search);
  return search.found;
}

TEST_F(Companions_real, AllLoadAndEveryLevelGivesTheScalarBytes) {
  qn_demosaic_module_initialize();
  for (char const* name : {"sse", "avx2", "avx512"}) {
    EXPECT_TRUE(library_loaded(std::string("libostrevan_oqa_demosaic_vector_") + name + ".so"))
        << name;
  }
  for (auto [width, height] :
       {std::pair{37, 23}, std::pair{2, 9}, std::pair{130, 3}, std::pair{640, 11}}) {
    auto const input = test_support::random_mosaic(width, height, width);
    for (int phase = 0; phase < 4; ++phase) {
      for (int format = 0; format < 3; ++format) {
        auto const scalar = transform(input, width, height, phase, format, 0, 1, -3);
        for (int level : {default_entry, 1, 2, 3}) {
          ASSERT_EQ(transform(input, width, height, phase, format, level, 1, -3), scalar)
              << width << "x" << height << " phase " << phase << " format " << format << " level "
              << level;
        }
      }
    }
  }
  qn_demosaic_module_terminate();
}

}  // namespace
