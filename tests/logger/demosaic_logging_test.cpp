// Records written by the demosaic library through the real logger library:
// a rejected call gives one error record with every field right, a
// successful one one timing record, and level 6 drops the timing records.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <regex>
#include <string>
#include <vector>

#include "ostrevan_oqa_demosaic.h"
#include "support/json_line.h"
#include "support/record_patterns.h"
#include "support/scratch.h"

namespace {

using namespace oqa_logger_test;

constexpr int width = 64;
constexpr int height = 48;

// A valid call, or one with a single argument rejected.
struct Call {
  int width = ::width;
  int bit_depth = 12;
  bool same_buffers = false;
};

// Runs one call between an initialise and the terminate that unloads the
// logger library, and returns the records.
class Through_demosaic : public testing::Test {
 protected:
  std::vector<std::string> run(Call const& call, int level, int* result) {
    write_file(scratch_ / "logger.cfg",
               "output = demosaic.log\nformat = json\nlevel = " + std::to_string(level) + "\n");
    Scoped_environment const config("OSTREVAN_OQA_LOGGER_CONFIG",
                                    (scratch_ / "logger.cfg").c_str());
    std::vector<unsigned short> input(width * height, 1000);
    std::vector<unsigned short> output(3 * width * height, 0);
    qn_demosaic_module_initialize();
    *result = qn_demosaic_transform_16_to_48(
        call.width, height, 0, 0, QN_CFA_PHASE_RED, QN_COLOR_FORMAT_BGR_INTERLEAVED,
        QN_COLOR_FILTER_TYPE_BAYER, call.bit_depth, input.data(),
        call.same_buffers ? input.data() : output.data());
    qn_demosaic_module_terminate();
    return read_lines(scratch_ / "demosaic.log");
  }

  Scratch_directory scratch_;
};

std::string source_lines_around(std::string const& file, long long line) {
  std::vector<std::string> const lines = read_lines(file);
  std::string around;
  for (long long index = line - 1; index <= line + 1; ++index) {
    if (index >= 1 && index <= static_cast<long long>(lines.size())) around += lines[index - 1];
  }
  return around;
}

void expect_common_fields(Json_object const& record, int priority, char const* name) {
  EXPECT_TRUE(is_local_time(json_string(record, "time")));
  EXPECT_EQ(json_integer(record, "priority"), priority);
  EXPECT_EQ(json_string(record, "priority_name"), name);
  EXPECT_EQ(json_string(record, "module"), "OSTREVAN_OQA_DEMOSAIC");
  EXPECT_EQ(json_string(record, "instance"), "");
  EXPECT_EQ(json_integer(record, "pid"), getpid());
  EXPECT_EQ(json_integer(record, "tid"), syscall(SYS_gettid));
  EXPECT_EQ(json_string(record, "function"), "demosaic_transform_impl");
  std::string const file = json_string(record, "file");
  EXPECT_TRUE(file.ends_with("ostrevan_oqa_demosaic.cpp")) << file;
  EXPECT_GT(json_integer(record, "line"), 0);
}

struct Rejected {
  Call call;
  int code;
  char const* message;
  char const* format_in_source;
};

class Rejected_calls : public Through_demosaic, public testing::WithParamInterface<Rejected> {};

TEST_P(Rejected_calls, GiveOneErrorRecordWithEveryFieldRight) {
  int result = 0;
  std::vector<std::string> const lines = run(GetParam().call, 7, &result);
  EXPECT_EQ(result, GetParam().code);
  ASSERT_EQ(lines.size(), 1U);
  auto const record = parse_json_line(lines[0]);
  ASSERT_TRUE(record.has_value()) << lines[0];
  expect_common_fields(*record, 2, "crit");
  EXPECT_EQ(json_string(*record, "message"), GetParam().message);
  // The line is the one of the log call that wrote this very message.
  EXPECT_NE(source_lines_around(json_string(*record, "file"), json_integer(*record, "line"))
                .find(GetParam().format_in_source),
            std::string::npos);
}

// The messages themselves are checked with the demosaic library's tests;
// here, that they arrive through the real logger from the right lines.
INSTANTIATE_TEST_SUITE_P(
    ValidationOrder, Rejected_calls,
    testing::Values(Rejected{Call{.width = 1}, QN_DEMOSAIC_INVALID_IMAGE_WIDTH,
                             "ERROR:  Illegal input image width (1) specified!",
                             "Illegal input image width"},
                    Rejected{Call{.same_buffers = true}, QN_DEMOSAIC_SAME_INPUT_AND_OUTPUT_BUFFER,
                             "ERROR:  Separate input and output buffers must be specified!",
                             "Separate input and output"},
                    Rejected{Call{.bit_depth = 17}, QN_DEMOSAIC_UNSUPPORTED_BIT_DEPTH,
                             "ERROR:  Unsupported bit depth of 17 specified!",
                             "Unsupported bit depth"}));

TEST_F(Through_demosaic, SuccessfulCallGivesOneTimingRecord) {
  int result = -1;
  std::vector<std::string> const lines = run(Call{}, 7, &result);
  EXPECT_EQ(result, QN_DEMOSAIC_NO_ERROR);
  ASSERT_EQ(lines.size(), 1U);
  auto const record = parse_json_line(lines[0]);
  ASSERT_TRUE(record.has_value()) << lines[0];
  expect_common_fields(*record, 7, "debug");
  EXPECT_TRUE(std::regex_match(json_string(*record, "message"),
                               std::regex(R"(demosaic takes -?\d+\.000000 microseconds\.)")))
      << lines[0];
}

TEST_F(Through_demosaic, LevelSixDropsTimingRecordsButKeepsErrors) {
  int result = -1;
  EXPECT_TRUE(run(Call{}, 6, &result).empty());
  EXPECT_EQ(result, QN_DEMOSAIC_NO_ERROR);
  EXPECT_EQ(run(Call{.width = 0}, 6, &result).size(), 1U);
}

}  // namespace
