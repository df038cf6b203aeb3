// The parts compiled straight in: configuration text to settings, where the
// configuration file is looked for, and the escaping of record fields.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "config_search.h"
#include "logger_settings.h"
#include "record_format.h"
#include "support/logger_test.h"

namespace oqa_logger {
namespace {

using namespace oqa_logger_test;

constexpr char const* config_path = "/configs/app/ostrevan_oqa_logger.cfg";

// Everything the settings decide, in one line, with the line of each problem.
std::string summary(Logger_settings const& settings) {
  constexpr char const* outputs[] = {"stderr", "syslog", "file:"};
  std::string summary =
      fmt::format("{}{} level={} {} size={} files={}", outputs[static_cast<int>(settings.output)],
                  settings.output_path, settings.level,
                  settings.format == Record_format::json ? "json" : "text", settings.max_size_bytes,
                  settings.max_files);
  for (auto const& problem : settings.problems) summary += " @" + std::to_string(problem.line);
  return summary;
}

// A bad line on line 3 leaves the defaults.
std::string const bad = "stderr level=4 text size=0 files=3 @3";

struct Case {
  std::string text;      // follows a comment line and a blank one
  std::string settings;  // summary()
  std::string problem;   // found in the problems' text
};
class Setting_lines : public testing::TestWithParam<Case> {};

TEST_P(Setting_lines, FollowTheTextAndReportEachBadLine) {
  Logger_settings const settings = parse_settings("# first\n\n" + GetParam().text, config_path);
  EXPECT_EQ(summary(settings), GetParam().settings);
  std::string texts;
  for (Config_problem const& problem : settings.problems) {
    EXPECT_EQ(problem.file, config_path);
    texts += problem.text + "\n";
  }
  EXPECT_NE(texts.find(GetParam().problem), std::string::npos) << texts;
}

Case const cases[] = {
    {"", "stderr level=4 text size=0 files=3", ""},
    {"  output = logs/demosaic.log   # comment\r\nlevel=7\n\tformat =json\n"
     "max_size_mb = 0.5\nmax_files = 9\n",
     "file:/configs/app/logs/demosaic.log level=7 json size=524288 files=9", ""},
    {"output = /var/log/run#1/../a.log", "file:/var/log/a.log level=4 text size=0 files=3", ""},
    {"output = syslog\nlevel = emerg", "syslog level=0 text size=0 files=3", ""},
    // The rotation bounds: exactly on them, then beyond them.
    {"output = a.log\nmax_size_mb = 0.0625\nmax_files = 1000",
     "file:/configs/app/a.log level=4 text size=65536 files=1000", ""},
    {"max_size_mb = 0.000001\noutput = a.log",
     "file:/configs/app/a.log level=4 text size=65536 files=3 @3",
     "max_size_mb \"0.000001\" is below the smallest file of 64 KiB; using 64 KiB"},
    {"max_files = 10000\noutput = a.log\nmax_size_mb = 1",
     "file:/configs/app/a.log level=4 text size=1048576 files=1000 @3",
     "max_files \"10000\" is above the largest of 1000; using 1000"},
    // Each bad line keeps its key's default, and later good lines still apply.
    {"level = 9\nformat = json\nsize = 3\nlevel = 6", "stderr level=6 json size=0 files=3 @3 @5",
     "unknown key \"size\""},
    {"colour = red", bad, "unknown key \"colour\""},
    {"level = 8", bad, "\"8\" for level"},
    {"level = -1", bad, "\"-1\""},
    {"level = 7x", bad, "\"7x\""},
    {"level =", bad, "\"\" for level"},
    {"format = xml", bad, "\"xml\" for format"},
    {"output =", bad, "empty value for output"},
    {"max_size_mb = 0", bad, "\"0\" for max_size_mb"},
    {"max_size_mb = lots", bad, "\"lots\""},
    {"max_size_mb = 1e9", bad, "\"1e9\""},
    {"max_files = -2", bad, "\"-2\" for max_files"},
    {"max_files = 3", bad, "max_files needs max_size_mb"},
    {"max_size_mb = 1", bad, "only to a file output"},
    {"just words", bad, "expected \"key = value\", found \"just words\""},
    // A repeated value is cut whole characters short of its limit.
    {std::string(63, 'k') + "\xc3\xa9k = 1", bad,
     "unknown key \"" + std::string(63, 'k') + "\"...;"}};
INSTANTIATE_TEST_SUITE_P(Lines, Setting_lines, testing::ValuesIn(cases));

constexpr char const* xdg = "xdg/ostrevan/ostrevan_oqa_logger.cfg";
constexpr char const* home = "home/.config/ostrevan/ostrevan_oqa_logger.cfg";
constexpr char const* system_wide = "etc/ostrevan_oqa_logger.cfg";

struct Lookup_case {
  std::vector<std::string> files;  // written under the scratch folder
  char const* xdg_config_home;     // a leading '/' means under the scratch folder
  bool explicit_path;              // names explicit.cfg, which does not exist
  std::string found;               // under the scratch folder; empty for none
};
// Run from the scratch folder, which is never searched.
class Lookup : public testing::TestWithParam<Lookup_case> {
 protected:
  void SetUp() override { std::filesystem::current_path(scratch_.path); }
  void TearDown() override { std::filesystem::current_path(old_directory_); }

  std::filesystem::path const old_directory_ = std::filesystem::current_path();
  Scratch_folder const scratch_;
};

TEST_P(Lookup, FindsTheFirstPlaceThatHoldsTheFile) {
  Lookup_case const& lookup = GetParam();
  for (std::string const& file : lookup.files) write_file(scratch_ / file, "level = 1\n");
  std::string const explicit_path = scratch_ / "explicit.cfg";
  std::string const home_directory = scratch_ / "home";
  char const* const xdg_home = lookup.xdg_config_home;
  std::string const absolute_xdg = scratch_.path.string() + (xdg_home != nullptr ? xdg_home : "");
  Config_search const search{
      lookup.explicit_path ? explicit_path.c_str() : nullptr, "ostrevan_oqa_logger.cfg",
      xdg_home != nullptr && xdg_home[0] == '/' ? absolute_xdg.c_str() : xdg_home,
      home_directory.c_str(), scratch_ / "etc"};
  EXPECT_EQ(find_config_file(search).value_or(""),
            lookup.found.empty() ? "" : scratch_ / lookup.found);
}

Lookup_case const lookups[] = {
    // The explicit path wins, even when it names no file.
    {{xdg, system_wide}, "/xdg", true, "explicit.cfg"},
    {{xdg, home, system_wide}, "/xdg", false, xdg},
    // XDG_CONFIG_HOME replaces the home folder's default...
    {{home, system_wide}, "/xdg", false, system_wide},
    // ... unless it is unset, empty or relative (to the working directory).
    {{home, system_wide}, nullptr, false, home},
    {{home, system_wide}, "", false, home},
    {{home, system_wide, "cwd/ostrevan/ostrevan_oqa_logger.cfg"}, "cwd", false, home},
    // A folder in the file's place is passed over.
    {{std::string(xdg) + "/inside", system_wide}, "/xdg", false, system_wide},
    {{"ostrevan_oqa_logger.cfg"}, "/xdg", false, ""}};
INSTANTIATE_TEST_SUITE_P(Places, Lookup, testing::ValuesIn(lookups));

struct Escape_case {
  std::string input;
  std::string text;
  std::string json;
};
class Escapes : public testing::TestWithParam<Escape_case> {};
TEST_P(Escapes, KeepTextOnOneLineAndJsonValid) {
  Record_buffer text;
  append_text(GetParam().input, text);
  EXPECT_EQ(fmt::to_string(text), GetParam().text);
  Record_buffer json;
  append_json_string(GetParam().input, json);
  EXPECT_EQ(fmt::to_string(json), GetParam().json);
}
Escape_case const escapes[] = {
    {"", "", "\"\""},
    {"plain", "plain", "\"plain\""},
    {"\"\\\n\r\t", "\"\\\\n\\r\\t", "\"\\\"\\\\\\n\\r\\t\""},
    {std::string("\x00\x1f\x7f", 3), "\\x00\\x1f\\x7f", "\"\\u0000\\u001f\\u007f\""},
    {"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80", "caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80",
     "\"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80\""},
    // Stray continuation, overlong, surrogate, cut short, above U+10FFFF:
    // left as they are in text, replaced in JSON.
    {"\x80", "\x80", "\"\\ufffd\""},
    {"\xc0\xaf", "\xc0\xaf", "\"\\ufffd\\ufffd\""},
    {"\xed\xa0\x80", "\xed\xa0\x80", "\"\\ufffd\\ufffd\\ufffd\""},
    {"a\xe2\x82", "a\xe2\x82", "\"a\\ufffd\\ufffd\""},
    {"\xf4\x90\x80\x80", "\xf4\x90\x80\x80", "\"\\ufffd\\ufffd\\ufffd\\ufffd\""}};
INSTANTIATE_TEST_SUITE_P(Strings, Escapes, testing::ValuesIn(escapes));

}  // namespace
}  // namespace oqa_logger
