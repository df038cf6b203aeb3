// Argument validation and the records the library hands to the logger.
#include <gtest/gtest.h>

#include <cstdint>
#include <regex>
#include <string>
#include <vector>

#include "library_test_support.h"
#include "test_doubles_control.h"
#include "validation_oracle.h"

namespace {

using test_doubles::state;
using test_support::transform;

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
