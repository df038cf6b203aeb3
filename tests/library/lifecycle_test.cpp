// The public entries with fake companions in the working directory (the
// complete set, a broken set, or none) and a capture logger: initialise,
// terminate and the choice of companion; argument validation and the
// records the library hands to the logger.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <regex>
#include <string>
#include <vector>

#include "library_test_support.h"
#include "test_doubles_control.h"
#include "validation_oracle.h"

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

constexpr std::uint16_t untouched = 0x7777;

struct Rejection {
  char const* name;
  Transform_arguments call;
  int code;
  Buffers buffers = Buffers::separate;
};

class Arguments : public ::testing::TestWithParam<Rejection> {
 protected:
  void SetUp() override {
    test_doubles::reset();
    qn_demosaic_module_initialize();
  }
  void TearDown() override { qn_demosaic_module_terminate(); }
};

TEST_P(Arguments, RejectsWithItsCodeOneErrorRecordAndNothingWritten) {
  std::vector<std::uint16_t> input(4, 1000);
  std::vector<std::uint16_t> output(12, untouched);
  Transform_arguments a = GetParam().call;
  use_buffers(a, GetParam().buffers, input.data(), output.data());
  Expected_result const expected = expected_result(a);
  ASSERT_EQ(expected.code, GetParam().code) << "the oracle of the fuzzer disagrees";

  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(call_transform(a, 0, false), GetParam().code);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  ASSERT_EQ(state().records.size(), 1U);
  auto const& record = state().records[0];
  EXPECT_EQ(record.priority, 2);
  EXPECT_EQ(record.message, expected.error_message);
  EXPECT_EQ(record.function, "demosaic_transform_impl");
  EXPECT_TRUE(record.file.ends_with("Demosaic/ostrevan_oqa_demosaic.cpp")) << record.file;
  EXPECT_EQ(output, std::vector<std::uint16_t>(12, untouched)) << "a rejected call wrote output";
  EXPECT_EQ(input, std::vector<std::uint16_t>(4, 1000));
}

// Each pair row fails two neighbouring checks, the first at its boundary
// value, and the first in the order width, height, input, output, same
// buffers, phase, format, filter type, bit depth decides; the single rows
// fail the other side of a range, or the last check, alone.
INSTANTIATE_TEST_SUITE_P(
    Validation, Arguments,
    ::testing::Values(
        Rejection{"WidthBeforeHeight", {.width = 1, .height = 1}, 13},
        Rejection{"HeightBeforeInput", {.height = 1}, 14, Buffers::null_input},
        Rejection{"InputBeforeOutput", {}, 3, Buffers::both_null},
        Rejection{"OutputBeforePhase", {.phase = 4}, 4, Buffers::null_output},
        Rejection{"SameBuffersBeforePhase", {.phase = 4}, 5, Buffers::same},
        Rejection{"PhaseBeforeFormat", {.phase = 4, .color_format = 3}, 6},
        Rejection{"FormatBeforeFilterType", {.color_format = 3, .color_filter_type = 1}, 10},
        Rejection{"FilterTypeBeforeBitDepth", {.color_filter_type = 1, .bit_depth = 17}, 7},
        Rejection{"WidthNegative", {.width = -3}, 13}, Rejection{"HeightZero", {.height = 0}, 14},
        Rejection{"PhaseMinusOne", {.phase = -1}, 6},
        Rejection{"FormatMinusOne", {.color_format = -1}, 10},
        Rejection{"BitDepth17", {.bit_depth = 17}, 8}),
    [](auto const& info) { return std::string(info.param.name); });

// Every successful transform, at any level and any accepted bit depth, writes
// one timing record; a rejected one only its error record. The bit depth is
// checked, never applied: every depth up to 16 gives the same bytes.
TEST(Timing, OneRecordPerSuccessfulTransformAndTheBitDepthIsNeverApplied) {
  test_doubles::reset();
  qn_demosaic_module_initialize();
  auto const mosaic = test_support::random_mosaic(9, 7, 3);
  auto const scalar = transform(mosaic, 9, 7, 1, 0, 0);
  state().records.clear();
  for (int level : {test_support::default_entry, -1, 1, 2, 3, 7}) {
    for (int depth : {-1, 0, 12, 16}) {
      std::vector<std::uint16_t> output(scalar.size());
      Transform_arguments const a{9, 7, 0, 0, 1, 0, 0, depth, mosaic.data(), output.data()};
      EXPECT_EQ(call_transform(a, level, level == test_support::default_entry), 0);
      EXPECT_EQ(output, scalar) << "level " << level << ", depth " << depth;
    }
  }
  EXPECT_TRUE(transform(mosaic, 9, 7, 9, 1, 0).empty());
  auto const& records = state().records;
  ASSERT_EQ(records.size(), 25U);
  std::regex const timing(R"(demosaic takes -?[0-9]+\.000000 microseconds\.)");
  for (std::size_t i = 0; i < 24; ++i) {
    EXPECT_EQ(records[i].priority, 7);
    EXPECT_TRUE(std::regex_match(records[i].message, timing)) << records[i].message;
  }
  EXPECT_EQ(records[24].priority, 2);
  qn_demosaic_module_terminate();
}

}  // namespace
