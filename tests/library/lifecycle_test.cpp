// Initialise, terminate and the choice of companion, with fake companions in
// the working directory: the complete set, a broken set, or none.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "library_test_support.h"
#include "test_doubles_control.h"

namespace {

using test_doubles::state;
using test_support::default_entry;
using test_support::transform;

test_doubles::Companion const& companion(int level) { return state().companions[level]; }

std::vector<std::uint16_t> const mosaic = test_support::random_mosaic(37, 23, 17);

// Refused as not initialised by both entries, before the missing buffers are
// noticed.
void expect_not_initialised() {
  EXPECT_EQ(call_transform({}, 0, false), QN_DEMOSAIC_MODULE_NOT_INITIALIZED);
  EXPECT_EQ(call_transform({}, 0, true), QN_DEMOSAIC_MODULE_NOT_INITIALIZED);
}

// usable[level]: companion `level` has every entry and accepted initialise.
// The default entry runs the highest level both this processor and a usable
// companion offer; the test entry runs the companion it names when usable,
// the scalar code otherwise. Every path gives the scalar bytes.
void expect_levels(std::array<bool, 4> const& usable) {
  int chosen = 0;
  for (int level = 1; level <= test_support::processor_level(); ++level) {
    if (usable[level]) chosen = level;
  }
  for (int format = 0; format < 3; ++format) {
    auto const scalar = transform(mosaic, 37, 23, 2, format, 0);
    ASSERT_FALSE(scalar.empty());
    for (int level : {default_entry, 1, 2, 3, 4, -1}) {
      int const expected = level == default_entry                      ? chosen
                           : level >= 1 && level <= 3 && usable[level] ? level
                                                                       : 0;
      int before[4] = {};
      for (int l = 1; l <= 3; ++l) before[l] = companion(l).transforms;
      EXPECT_EQ(transform(mosaic, 37, 23, 2, format, level), scalar) << "level " << level;
      for (int l = 1; l <= 3; ++l) {
        EXPECT_EQ(companion(l).transforms - before[l], l == expected ? 1 : 0)
            << "level " << level << ", companion " << l;
      }
    }
  }
}

class Companions_complete : public ::testing::Test {
 protected:
  void SetUp() override { test_doubles::reset(); }
};

TEST_F(Companions_complete, InitialiseAndTerminateAreReferenceCounted) {
  expect_not_initialised();
  EXPECT_EQ(qn_demosaic_module_initialize(), 0);
  EXPECT_EQ(qn_demosaic_module_initialize(), 0);
  EXPECT_EQ(state().events.front(), "open OSTREVAN_OQA_DEMOSAIC [] ostrevan_oqa_logger.cfg");
  EXPECT_EQ(qn_demosaic_module_terminate(), 0);
  EXPECT_FALSE(transform(mosaic, 37, 23, 0, 1, default_entry).empty())
      << "one initialise is still open";
  state().events.clear();
  EXPECT_EQ(qn_demosaic_module_terminate(), 0);
  EXPECT_EQ(state().events,
            (std::vector<std::string>{"terminate sse", "terminate avx2", "terminate avx512",
                                      "free OSTREVAN_OQA_DEMOSAIC []"}));
  expect_not_initialised();
  // A terminate too many changes nothing, and a new initialise starts afresh.
  EXPECT_EQ(qn_demosaic_module_terminate(), 0);
  EXPECT_EQ(qn_demosaic_module_initialize(), 0);
  for (int level = 1; level <= 3; ++level) {
    EXPECT_EQ(companion(level).initialized, 2);
    EXPECT_EQ(companion(level).terminated, 1);
  }
  EXPECT_EQ(qn_demosaic_module_terminate(), 0);
}

TEST_F(Companions_complete, UnopenedLogIsStillFreedAndTransformsRun) {
  state().logger_open_fails = true;
  qn_demosaic_module_initialize();
  EXPECT_FALSE(transform(mosaic, 37, 23, 0, 1, 0).empty());
  EXPECT_TRUE(transform(mosaic, 1, 23, 0, 1, 0).empty());
  EXPECT_TRUE(state().records.empty());
  qn_demosaic_module_terminate();
  EXPECT_EQ(state().events.back(), "free OSTREVAN_OQA_DEMOSAIC []");
}

// A set of companions (index 1 SSE, 2 AVX2, 3 AVX-512): whether each has
// every entry, and what its initialise returns.
struct Companion_set {
  std::array<bool, 4> complete;
  std::array<int, 4> initialize_results;
};

class Companion_sets : public Companions_complete,
                       public ::testing::WithParamInterface<Companion_set> {};

// A companion that declines is never called, but still terminated, once; one
// that lacks an entry is neither initialised, called nor terminated.
TEST_P(Companion_sets, EveryLevelRunsItsCompanionWhenUsableAndTheScalarCodeOtherwise) {
  std::array<bool, 4> usable{};
  for (int level = 1; level <= 3; ++level) {
    state().companions[level].initialize_result = GetParam().initialize_results[level];
    usable[level] = GetParam().complete[level] && GetParam().initialize_results[level] == 0;
  }
  EXPECT_EQ(qn_demosaic_module_initialize(), 0);
  expect_levels(usable);
  EXPECT_TRUE(transform(mosaic, 1, 23, 0, 1, 0).empty());
  EXPECT_EQ(qn_demosaic_module_terminate(), 0);
  for (int level = 1; level <= 3; ++level) {
    int const calls = GetParam().complete[level] ? 1 : 0;
    EXPECT_EQ(companion(level).initialized, calls) << "companion " << level;
    EXPECT_EQ(companion(level).terminated, calls) << "companion " << level;
  }
}

constexpr std::array<bool, 4> every{false, true, true, true};
INSTANTIATE_TEST_SUITE_P(Companions_complete, Companion_sets,
                         ::testing::Values(Companion_set{every, {0, 0, 0, 0}},
                                           Companion_set{every, {0, 0, 0, 1}},
                                           Companion_set{every, {0, 0, -7, 1}},
                                           Companion_set{every, {0, 1, 1, 1}}));
// AVX2 lacks its initialise entry, AVX-512 its terminate entry.
INSTANTIATE_TEST_SUITE_P(Companions_broken, Companion_sets,
                         ::testing::Values(Companion_set{{false, true, false, false}, {}}));
// No companion and no logger anywhere.
INSTANTIATE_TEST_SUITE_P(Companions_none, Companion_sets, ::testing::Values(Companion_set{}));

}  // namespace
