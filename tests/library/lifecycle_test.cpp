// Initialise, terminate and the choice of companion, with fake companions in
// the working directory: the complete set, a broken set, or none.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <stdexcept>
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

// What each companion's initialise returns (index 1 SSE, 2 AVX2, 3 AVX-512):
// one that declines is never called, but still terminated, once.
class Declining : public Companions_complete,
                  public ::testing::WithParamInterface<std::array<int, 4>> {};

TEST_P(Declining, DefaultEntryRunsTheHighestAcceptingLevel) {
  std::array<bool, 4> usable{};
  for (int level = 1; level <= 3; ++level) {
    state().companions[level].initialize_result = GetParam()[level];
    usable[level] = GetParam()[level] == 0;
  }
  qn_demosaic_module_initialize();
  expect_levels(usable);
  qn_demosaic_module_terminate();
  for (int level = 1; level <= 3; ++level) {
    EXPECT_EQ(companion(level).initialized, 1);
    EXPECT_EQ(companion(level).terminated, 1);
  }
}

INSTANTIATE_TEST_SUITE_P(Companions_complete, Declining,
                         ::testing::Values(std::array{0, 0, 0, 0}, std::array{0, 0, 0, 1},
                                           std::array{0, 0, -7, 1}, std::array{0, 1, 1, 1}));

TEST_F(Companions_complete, TimingRecordIsWrittenWhenTheCompanionThrows) {
  qn_demosaic_module_initialize();
  state().records.clear();
  state().companions[2].transform_throws = true;
  EXPECT_THROW(transform(mosaic, 37, 23, 0, 1, 2), std::runtime_error);
  ASSERT_EQ(state().records.size(), 1U);
  EXPECT_EQ(state().records[0].priority, 7);
  qn_demosaic_module_terminate();
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

// AVX2 lacks its initialise entry, AVX-512 its terminate entry: neither is
// initialised, called or terminated.
class Companions_broken : public Companions_complete {};

TEST_F(Companions_broken, IncompleteCompanionsAreNeverCalled) {
  qn_demosaic_module_initialize();
  expect_levels({false, true, false, false});
  qn_demosaic_module_terminate();
  EXPECT_EQ(companion(1).terminated, 1);
  EXPECT_EQ(companion(3).initialized, 0);
  EXPECT_EQ(companion(2).terminated, 0);
}

// No companion and no logger anywhere.
class Companions_none : public Companions_complete {};

TEST_F(Companions_none, EveryLevelRunsTheScalarCode) {
  EXPECT_EQ(qn_demosaic_module_initialize(), 0);
  expect_levels({false, false, false, false});
  EXPECT_TRUE(transform(mosaic, 1, 23, 0, 1, 0).empty());
  EXPECT_EQ(qn_demosaic_module_terminate(), 0);
  EXPECT_TRUE(state().events.empty()) << "a logger was opened";
}

}  // namespace
