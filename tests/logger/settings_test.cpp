// Configuration text to settings: every key, every kind of bad line, and the
// rotation bounds.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <string>

#include "logger_settings.h"

namespace oqa_logger {
namespace {

constexpr char const* config_path = "/configs/app/ostrevan_oqa_logger.cfg";

// Everything the settings decide, in one line.
std::string summary(Logger_settings const& settings) {
  constexpr char const* outputs[] = {"stderr", "syslog", "file:"};
  return fmt::format("{}{} level={} {} size={} files={}",
                     outputs[static_cast<int>(settings.output)], settings.output_path,
                     settings.level, settings.format == Record_format::json ? "json" : "text",
                     settings.max_size_bytes, settings.max_files);
}

std::string const defaults = "stderr level=4 text size=0 files=3";

struct Case {
  std::string text;      // follows a comment line and a blank one
  std::string settings;  // summary()
  std::string problem;   // part of the only problem, which is on line 3; empty for none
};
class Setting_lines : public testing::TestWithParam<Case> {};

TEST_P(Setting_lines, FollowTheTextAndReportEachBadLine) {
  Logger_settings const settings = parse_settings("# first\n\n" + GetParam().text, config_path);
  EXPECT_EQ(summary(settings), GetParam().settings);
  if (GetParam().problem.empty()) {
    EXPECT_TRUE(settings.problems.empty()) << settings.problems.front().text;
    return;
  }
  ASSERT_EQ(settings.problems.size(), 1U);
  EXPECT_EQ(settings.problems[0].file, config_path);
  EXPECT_EQ(settings.problems[0].line, 3);
  EXPECT_NE(settings.problems[0].text.find(GetParam().problem), std::string::npos)
      << settings.problems[0].text;
}

INSTANTIATE_TEST_SUITE_P(
    Lines, Setting_lines,
    testing::Values(
        Case{"", defaults, ""},
        Case{"  output = logs/demosaic.log   # comment\r\nlevel=7\n\tformat =json\n"
             "max_size_mb = 0.5\nmax_files = 9\n",
             "file:/configs/app/logs/demosaic.log level=7 json size=524288 files=9", ""},
        Case{"output = /var/log/run#1/../a.log", "file:/var/log/a.log level=4 text size=0 files=3",
             ""},
        Case{"output = syslog\nlevel = emerg", "syslog level=0 text size=0 files=3", ""},
        Case{"output = stderr\nlevel = err", "stderr level=3 text size=0 files=3", ""},
        Case{"output = a.log\nmax_size_mb = 2",
             "file:/configs/app/a.log level=4 text size=2097152 files=3", ""},
        // The rotation bounds: exactly on them, then beyond them.
        Case{"output = a.log\nmax_size_mb = 0.0625\nmax_files = 1000",
             "file:/configs/app/a.log level=4 text size=65536 files=1000", ""},
        Case{"max_size_mb = 0.000001\noutput = a.log",
             "file:/configs/app/a.log level=4 text size=65536 files=3",
             "max_size_mb \"0.000001\" is below the smallest file of 64 KiB; using 64 KiB"},
        Case{"max_files = 10000\noutput = a.log\nmax_size_mb = 1",
             "file:/configs/app/a.log level=4 text size=1048576 files=1000",
             "max_files \"10000\" is above the largest of 1000; using 1000"},
        // Each bad line keeps its key's default.
        Case{"colour = red", defaults, "unknown key \"colour\""},
        Case{"level = 8", defaults, "\"8\" for level"}, Case{"level = -1", defaults, "\"-1\""},
        Case{"level = 7x", defaults, "\"7x\""}, Case{"level =", defaults, "\"\" for level"},
        Case{"format = xml", defaults, "\"xml\" for format"},
        Case{"output =", defaults, "empty value for output"},
        Case{"max_size_mb = 0", defaults, "\"0\" for max_size_mb"},
        Case{"max_size_mb = lots", defaults, "\"lots\""},
        Case{"max_size_mb = 1e9", defaults, "\"1e9\""},
        Case{"max_files = -2", defaults, "\"-2\" for max_files"},
        Case{"max_files = 3", defaults, "max_files needs max_size_mb"},
        Case{"max_size_mb = 1", defaults, "only to a file output"},
        Case{"just words", defaults, "expected \"key = value\", found \"just words\""},
        // A repeated value is cut whole characters short of its limit.
        Case{std::string(63, 'k') + "\xc3\xa9k = 1", defaults,
             "unknown key \"" + std::string(63, 'k') + "\"...;"}));

TEST(Settings, EveryBadLineIsReportedOnceAndGoodLinesStillApply) {
  Logger_settings const settings =
      parse_settings("level = 9\nformat = json\nsize = 3\nlevel = 6\n", config_path);
  ASSERT_EQ(settings.problems.size(), 2U);
  EXPECT_EQ(settings.problems[0].line, 1);
  EXPECT_EQ(settings.problems[1].line, 3);
  EXPECT_EQ(settings.level, 6);
  EXPECT_EQ(settings.format, Record_format::json);
}

}  // namespace
}  // namespace oqa_logger
