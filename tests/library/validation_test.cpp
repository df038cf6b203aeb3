// Argument validation and the records the library hands to the logger.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <regex>
#include <string>
#include <vector>

#include "library_test_support.h"
#include "ostrevan_oqa_demosaic.h"
#include "test_doubles_control.h"

namespace {

constexpr std::uint16_t untouched = 0x7777;

struct Call {
  int width = 4;
  int height = 4;
  int origin_x = 0;
  int origin_y = 0;
  int phase = 0;
  int format = 1;
  int filter_type = 0;
  int bit_depth = 16;
  bool null_input = false;
  bool null_output = false;
  bool output_is_input = false;
};

struct Rejection {
  char const* name;
  std::function<void(Call&)> change;
  int code;
  char const* message;
};

class Validation : public ::testing::TestWithParam<Rejection> {
 protected:
  void SetUp() override {
    qn_demosaic_module_initialize();
    test_doubles::logged_records().clear();
  }
  void TearDown() override { qn_demosaic_module_terminate(); }

  std::vector<std::uint16_t> input = std::vector<std::uint16_t>(64, 1000);
  std::vector<std::uint16_t> output = std::vector<std::uint16_t>(64, untouched);

  int run(Call const& call, int level = 0) {
    std::uint16_t const* in = call.null_input ? nullptr : input.data();
    std::uint16_t* out = call.null_output ? nullptr : output.data();
    if (call.output_is_input) out = input.data();
    return qn_demosaic_transform_test_16_to_48(
        call.width, call.height, call.origin_x, call.origin_y,
        static_cast<QN_COLOR_FILTER_ARRAY_PHASE>(call.phase),
        static_cast<QN_COLOR_FORMAT>(call.format),
        static_cast<QN_COLOR_FILTER_TYPE>(call.filter_type), call.bit_depth, in, out, level);
  }
};

TEST_P(Validation, RejectsWithItsCodeAndOneErrorRecord) {
  Call call;
  GetParam().change(call);
  std::vector<std::uint16_t> const input_before = input;
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(run(call), GetParam().code);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");

  auto const& records = test_doubles::logged_records();
  ASSERT_EQ(records.size(), 1U);
  EXPECT_EQ(records[0].priority, 2);
  EXPECT_EQ(records[0].message, GetParam().message);
  EXPECT_EQ(records[0].function, "demosaic_transform_impl");
  EXPECT_TRUE(records[0].file.ends_with("Demosaic/ostrevan_oqa_demosaic.cpp")) << records[0].file;
  EXPECT_GT(records[0].line, 0);
  EXPECT_EQ(output, std::vector<std::uint16_t>(64, untouched)) << "a rejected call wrote output";
  EXPECT_EQ(input, input_before);
}

// Each row fails exactly one test; the combinations show the order of tests.
INSTANTIATE_TEST_SUITE_P(
    Arguments, Validation,
    ::testing::Values(
        Rejection{"WidthOne", [](Call& c) { c.width = 1; }, 13,
                  "ERROR:  Illegal input image width (1) specified!"},
        Rejection{"WidthNegative", [](Call& c) { c.width = -3; }, 13,
                  "ERROR:  Illegal input image width (-3) specified!"},
        Rejection{"HeightOne", [](Call& c) { c.height = 1; }, 14,
                  "ERROR:  Illegal input image height (1) specified!"},
        Rejection{"HeightZero", [](Call& c) { c.height = 0; }, 14,
                  "ERROR:  Illegal input image height (0) specified!"},
        Rejection{"NullInput", [](Call& c) { c.null_input = true; }, 3,
                  "ERROR:  NULL input buffer pointer specified!"},
        Rejection{"NullOutput", [](Call& c) { c.null_output = true; }, 4,
                  "ERROR:  NULL output buffer pointer specified!"},
        Rejection{"SameBuffers", [](Call& c) { c.output_is_input = true; }, 5,
                  "ERROR:  Separate input and output buffers must be specified!"},
        Rejection{"PhaseFour", [](Call& c) { c.phase = 4; }, 6,
                  "ERROR:  Invalid color filter array phase specified!"},
        Rejection{"PhaseMinusOne", [](Call& c) { c.phase = -1; }, 6,
                  "ERROR:  Invalid color filter array phase specified!"},
        Rejection{"FormatThree", [](Call& c) { c.format = 3; }, 10,
                  "ERROR:  Invalid output color format specified!"},
        Rejection{"FormatMinusOne", [](Call& c) { c.format = -1; }, 10,
                  "ERROR:  Invalid output color format specified!"},
        Rejection{"FilterTypeOne", [](Call& c) { c.filter_type = 1; }, 7,
                  "ERROR:  Unknown color filter type - unable to demosaic the image!"},
        Rejection{"BitDepth17", [](Call& c) { c.bit_depth = 17; }, 8,
                  "ERROR:  Unsupported bit depth of 17 specified!"},
        Rejection{"WidthBeforeNullInput",
                  [](Call& c) {
                    c.width = 1;
                    c.null_input = true;
                  },
                  13, "ERROR:  Illegal input image width (1) specified!"},
        Rejection{"NullInputBeforeSameBuffers",
                  [](Call& c) {
                    c.null_input = true;
                    c.null_output = true;
                  },
                  3, "ERROR:  NULL input buffer pointer specified!"},
        Rejection{"PhaseBeforeFormat",
                  [](Call& c) {
                    c.phase = 4;
                    c.format = 3;
                  },
                  6, "ERROR:  Invalid color filter array phase specified!"},
        Rejection{"FilterTypeBeforeBitDepth",
                  [](Call& c) {
                    c.filter_type = 1;
                    c.bit_depth = 17;
                  },
                  7, "ERROR:  Unknown color filter type - unable to demosaic the image!"}),
    [](auto const& info) { return std::string(info.param.name); });

// bit_depth is checked, never applied: every depth up to 16 gives the same bytes.
TEST(Timing, BitDepthUpToSixteenSucceedsWithTheSameOutput) {
  qn_demosaic_module_initialize();
  auto const mosaic = test_support::random_mosaic(9, 7, 3);
  std::vector<std::vector<std::uint16_t>> outputs;
  for (int depth : {-1, 0, 12, 16}) {
    std::vector<std::uint16_t> output(3 * 9 * 7);
    EXPECT_EQ(qn_demosaic_transform_16_to_48(9, 7, 0, 0, QN_CFA_PHASE_BLUE,
                                             QN_COLOR_FORMAT_BGR_PLANAR, QN_COLOR_FILTER_TYPE_BAYER,
                                             depth, mosaic.data(), output.data()),
              QN_DEMOSAIC_NO_ERROR)
        << depth;
    outputs.push_back(output);
  }
  for (auto const& output : outputs) EXPECT_EQ(output, outputs[0]);
  qn_demosaic_module_terminate();
}

TEST(Timing, OneRecordPerSuccessfulTransformAndNoneForARejectedOne) {
  qn_demosaic_module_initialize();
  test_doubles::logged_records().clear();
  auto const mosaic = test_support::random_mosaic(64, 48, 4);
  for (int level : {test_support::default_entry, -1, 0, 1, 2, 3, 7}) {
    ASSERT_FALSE(test_support::transform(mosaic, 64, 48, 0, 1, level).empty());
  }
  EXPECT_TRUE(test_support::transform(mosaic, 64, 48, 9, 1, 0).empty());
  auto const& records = test_doubles::logged_records();
  ASSERT_EQ(records.size(), 8U);
  std::regex const timing(R"(demosaic takes -?[0-9]+\.000000 microseconds\.)");
  for (std::size_t i = 0; i < 7; ++i) {
    EXPECT_EQ(records[i].priority, 7);
    EXPECT_TRUE(std::regex_match(records[i].message, timing)) << records[i].message;
    EXPECT_EQ(records[i].function, "demosaic_transform_impl");
    EXPECT_TRUE(records[i].file.ends_with("Demosaic/ostrevan_oqa_demosaic.cpp"));
  }
  EXPECT_EQ(records[7].priority, 2);
  qn_demosaic_module_terminate();
}

TEST(Timing, NotInitialisedGivesOneAndNoRecord) {
  auto const mosaic = test_support::random_mosaic(4, 4, 5);
  test_doubles::reset();
  std::vector<std::uint16_t> output(48, untouched);
  EXPECT_EQ(
      qn_demosaic_transform_16_to_48(4, 4, 0, 0, QN_CFA_PHASE_RED, QN_COLOR_FORMAT_BGR_INTERLEAVED,
                                     QN_COLOR_FILTER_TYPE_BAYER, 16, mosaic.data(), output.data()),
      QN_DEMOSAIC_MODULE_NOT_INITIALIZED);
  // Rejected arguments are not even looked at before initialise.
  EXPECT_EQ(qn_demosaic_transform_test_16_to_48(
                0, 0, 0, 0, QN_CFA_PHASE_RED, QN_COLOR_FORMAT_BGR_INTERLEAVED,
                QN_COLOR_FILTER_TYPE_BAYER, 16, nullptr, nullptr, 0),
            QN_DEMOSAIC_MODULE_NOT_INITIALIZED);
  qn_demosaic_module_initialize();
  qn_demosaic_module_terminate();
  test_doubles::logged_records().clear();
  EXPECT_TRUE(test_support::transform(mosaic, 4, 4, 0, 1, test_support::default_entry).empty());
  EXPECT_TRUE(test_doubles::logged_records().empty());
  EXPECT_EQ(output, std::vector<std::uint16_t>(48, untouched));
}

}  // namespace
