// Configuration text to settings: every key, and every kind of bad line.
#include <gtest/gtest.h>

#include <string>

#include "logger_settings.h"

namespace oqa_logger {
namespace {

constexpr char const* config_path = "/configs/app/ostrevan_oqa_logger.cfg";

TEST(Settings, EmptyTextGivesTheDefaults) {
  Logger_settings const settings = parse_settings("", config_path);
  EXPECT_EQ(settings.output, Output_kind::standard_error);
  EXPECT_EQ(settings.level, 4);
  EXPECT_EQ(settings.format, Record_format::text);
  EXPECT_EQ(settings.max_size_bytes, 0U);
  EXPECT_TRUE(settings.problems.empty());
}

TEST(Settings, ReadsEveryKeyAndSkipsCommentsAndBlanks) {
  Logger_settings const settings = parse_settings(
      "# a comment\n"
      "\n"
      "  output = logs/demosaic.log   # trailing comment\r\n"
      "level=7\n"
      "\tformat =json\n"
      "max_size_mb = 0.5\n"
      "max_files = 9\n",
      config_path);
  EXPECT_TRUE(settings.problems.empty()) << settings.problems.front().text;
  EXPECT_EQ(settings.output, Output_kind::file);
  EXPECT_EQ(settings.output_path, "/configs/app/logs/demosaic.log");
  EXPECT_EQ(settings.output_line, 3);
  EXPECT_EQ(settings.level, 7);
  EXPECT_EQ(settings.format, Record_format::json);
  EXPECT_EQ(settings.max_size_bytes, 512U * 1024U);
  EXPECT_EQ(settings.max_files, 9U);
}

TEST(Settings, AbsoluteOutputPathsAndHashesInsideWordsAreKept) {
  Logger_settings const settings =
      parse_settings("output = /var/log/run#1/../a.log\n", config_path);
  EXPECT_EQ(settings.output_path, "/var/log/a.log");
}

struct Output_case {
  char const* value;
  Output_kind kind;
};
class Output_values : public testing::TestWithParam<Output_case> {};
TEST_P(Output_values, AreRecognised) {
  Logger_settings const settings =
      parse_settings(std::string("output = ") + GetParam().value + "\n", config_path);
  EXPECT_EQ(settings.output, GetParam().kind);
  EXPECT_TRUE(settings.problems.empty());
}
INSTANTIATE_TEST_SUITE_P(Keys, Output_values,
                         testing::Values(Output_case{"stderr", Output_kind::standard_error},
                                         Output_case{"syslog", Output_kind::syslog},
                                         Output_case{"out.log", Output_kind::file}));

struct Level_case {
  char const* value;
  int level;
};
class Level_values : public testing::TestWithParam<Level_case> {};
TEST_P(Level_values, AcceptNumbersAndSeverityNames) {
  Logger_settings const settings =
      parse_settings(std::string("level = ") + GetParam().value, config_path);
  EXPECT_EQ(settings.level, GetParam().level);
  EXPECT_TRUE(settings.problems.empty());
}
INSTANTIATE_TEST_SUITE_P(Keys, Level_values,
                         testing::Values(Level_case{"0", 0}, Level_case{"3", 3}, Level_case{"7", 7},
                                         Level_case{"err", 3}, Level_case{"debug", 7},
                                         Level_case{"emerg", 0}));

// One bad line each: the key keeps its default and one problem names the
// file, the line and the offending text.
struct Bad_case {
  char const* line;
  char const* problem_mentions;
};
class Bad_lines : public testing::TestWithParam<Bad_case> {};
TEST_P(Bad_lines, KeepDefaultsAndReportTheLine) {
  Logger_settings const settings =
      parse_settings(std::string("# first\n\n") + GetParam().line + "\n", config_path);
  ASSERT_EQ(settings.problems.size(), 1U);
  EXPECT_EQ(settings.problems[0].file, config_path);
  EXPECT_EQ(settings.problems[0].line, 3);
  EXPECT_NE(settings.problems[0].text.find(GetParam().problem_mentions), std::string::npos)
      << settings.problems[0].text;
  EXPECT_EQ(settings.level, 4);
  EXPECT_EQ(settings.format, Record_format::text);
  EXPECT_EQ(settings.output, Output_kind::standard_error);
  EXPECT_EQ(settings.max_size_bytes, 0U);
}
INSTANTIATE_TEST_SUITE_P(Keys, Bad_lines,
                         testing::Values(Bad_case{"colour = red", "unknown key \"colour\""},
                                         Bad_case{"level = 8", "\"8\" for level"},
                                         Bad_case{"level = -1", "\"-1\""},
                                         Bad_case{"level = 7x", "\"7x\""},
                                         Bad_case{"level =", "\"\" for level"},
                                         Bad_case{"format = xml", "\"xml\" for format"},
                                         Bad_case{"output =", "empty value for output"},
                                         Bad_case{"max_size_mb = 0", "\"0\" for max_size_mb"},
                                         Bad_case{"max_size_mb = lots", "\"lots\""},
                                         Bad_case{"max_size_mb = 1e9", "\"1e9\""},
                                         Bad_case{"max_files = -2", "\"-2\" for max_files"},
                                         Bad_case{"max_files = 3", "max_files needs max_size_mb"},
                                         Bad_case{"max_size_mb = 1", "only to a file output"},
                                         Bad_case{"just words", "expected \"key = value\""}));

TEST(Settings, EveryBadLineIsReportedOnceAndGoodLinesStillApply) {
  Logger_settings const settings =
      parse_settings("level = 9\nformat = json\nsize = 3\nlevel = 6\n", config_path);
  ASSERT_EQ(settings.problems.size(), 2U);
  EXPECT_EQ(settings.problems[0].line, 1);
  EXPECT_EQ(settings.problems[1].line, 3);
  EXPECT_EQ(settings.level, 6);
  EXPECT_EQ(settings.format, Record_format::json);
}

TEST(Settings, RotationWithoutMaxFilesKeepsTheDefaultCount) {
  Logger_settings const settings = parse_settings("output = a.log\nmax_size_mb = 2\n", config_path);
  EXPECT_TRUE(settings.problems.empty());
  EXPECT_EQ(settings.max_size_bytes, 2U * 1024U * 1024U);
  EXPECT_EQ(settings.max_files, default_max_files);
}

}  // namespace
}  // namespace oqa_logger
