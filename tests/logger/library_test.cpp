// The logger library through its C entries: records, levels, configuration
// and its lookup, bad configurations, several logs, flushing and rotation.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "ostrevan_oqa_logger.h"
#include "support/json_line.h"
#include "support/record_patterns.h"
#include "support/scratch.h"

namespace {

using namespace oqa_logger_test;

constexpr char const* config_name = "ostrevan_oqa_logger.cfg";

long this_thread_id() { return syscall(SYS_gettid); }

// Each test names its configuration explicitly, so that files on the test
// machine (working directory, XDG, /etc) play no part unless a test wants
// them to.
class Logger_library : public testing::Test {
 protected:
  std::string use_config(std::string const& text, std::string const& name = "logger.cfg") {
    std::string path = scratch_ / name;
    write_file(path, text);
    explicit_config_.reset();
    explicit_config_.emplace("OSTREVAN_OQA_LOGGER_CONFIG", path.c_str());
    return path;
  }

  Scratch_directory scratch_;
  std::optional<Scoped_environment> explicit_config_;
};

TEST_F(Logger_library, TextRecordCarriesEveryField) {
  use_config("output = out.log\nlevel = 7\n");
  void* const log = oqa_get_log("MODULE", "camera0", config_name);
  ASSERT_NE(log, nullptr);
  EXPECT_EQ(oqa_log(log, 2, "src/f.cpp", 12, "run_frame", "it broke: 5%"), 0);
  oqa_free_log("MODULE", "camera0");

  std::vector<std::string> const lines = read_lines(scratch_ / "out.log");
  ASSERT_EQ(lines.size(), 1U);
  std::smatch fields;
  ASSERT_TRUE(std::regex_match(lines[0], fields, text_record)) << lines[0];
  EXPECT_EQ(fields[1], "2");
  EXPECT_EQ(fields[2], "crit");
  EXPECT_EQ(fields[3], "MODULE/camera0");
  EXPECT_EQ(fields[4], std::to_string(getpid()));
  EXPECT_EQ(fields[5], std::to_string(this_thread_id()));
  EXPECT_EQ(fields[6], "src/f.cpp");
  EXPECT_EQ(fields[7], "12");
  EXPECT_EQ(fields[8], "run_frame");
  EXPECT_EQ(fields[9], "it broke: 5%");
}

TEST_F(Logger_library, JsonRecordCarriesEveryFieldSeparately) {
  use_config("output = out.json\nlevel = 7\nformat = json\n");
  void* const log = oqa_get_log("MODULE", "", config_name);
  ASSERT_NE(log, nullptr);
  EXPECT_EQ(oqa_log(log, 7, "f.cpp", -3, "fn", "line one\nline \"two\""), 0);
  oqa_free_log("MODULE", "");

  std::vector<std::string> const lines = read_lines(scratch_ / "out.json");
  ASSERT_EQ(lines.size(), 1U);
  auto const record = parse_json_line(lines[0]);
  ASSERT_TRUE(record.has_value()) << lines[0];
  EXPECT_EQ(record->size(), 11U);
  EXPECT_TRUE(is_local_time(json_string(*record, "time"))) << lines[0];
  EXPECT_EQ(json_integer(*record, "priority"), 7);
  EXPECT_EQ(json_string(*record, "priority_name"), "debug");
  EXPECT_EQ(json_string(*record, "module"), "MODULE");
  EXPECT_EQ(json_string(*record, "instance"), "");
  EXPECT_EQ(json_integer(*record, "pid"), getpid());
  EXPECT_EQ(json_integer(*record, "tid"), this_thread_id());
  EXPECT_EQ(json_string(*record, "file"), "f.cpp");
  EXPECT_EQ(json_integer(*record, "line"), -3);
  EXPECT_EQ(json_string(*record, "function"), "fn");
  EXPECT_EQ(json_string(*record, "message"), "line one\nline \"two\"");
}

TEST_F(Logger_library, ForkedChildRecordsCarryTheChildsProcessId) {
  use_config("output = out.log\nlevel = 7\nformat = json\n");
  void* const log = oqa_get_log("M", "", config_name);
  ASSERT_NE(log, nullptr);
  ASSERT_EQ(oqa_log(log, 3, "f", 1, "fn", "parent"), 0);
  pid_t const child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    oqa_log(log, 3, "f", 2, "fn", "child");
    _exit(0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  oqa_free_log("M", "");
  std::vector<std::string> const lines = read_lines(scratch_ / "out.log");
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(json_integer(parse_json_line(lines[0]).value(), "pid"), getpid());
  EXPECT_EQ(json_integer(parse_json_line(lines[1]).value(), "pid"), child);
}

class Levels : public Logger_library, public testing::WithParamInterface<int> {};
TEST_P(Levels, KeepPrioritiesUpToTheLevelAndAcceptTheRest) {
  int const level = GetParam();
  use_config("output = out.log\nlevel = " + std::to_string(level) + "\n");
  void* const log = oqa_get_log("M", "", config_name);
  ASSERT_NE(log, nullptr);
  for (int priority = 0; priority <= 7; ++priority) {
    EXPECT_EQ(oqa_log(log, priority, "f", priority, "fn", "m"), 0);
  }
  oqa_free_log("M", "");
  std::vector<std::string> const lines = read_lines(scratch_ / "out.log");
  ASSERT_EQ(lines.size(), static_cast<std::size_t>(level + 1));
  for (int priority = 0; priority <= level; ++priority) {
    EXPECT_NE(lines[priority].find("[" + std::to_string(priority) + " "), std::string::npos);
  }
}
INSTANTIATE_TEST_SUITE_P(AllLevels, Levels, testing::Range(0, 8));

TEST_F(Logger_library, RejectsBadRecordsWithoutWritingOrCrashing) {
  use_config("output = out.log\nlevel = 7\n");
  EXPECT_NE(oqa_log(nullptr, 2, "f", 1, "fn", "m"), 0);
  void* const log = oqa_get_log("M", "", config_name);
  ASSERT_NE(log, nullptr);
  EXPECT_NE(oqa_log(log, -1, "f", 1, "fn", "m"), 0);
  EXPECT_NE(oqa_log(log, 8, "f", 1, "fn", "m"), 0);
  EXPECT_EQ(oqa_log(log, 3, nullptr, 1, nullptr, nullptr), 0);
  oqa_free_log("M", "");
  std::vector<std::string> const lines = read_lines(scratch_ / "out.log");
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_TRUE(std::regex_match(lines[0], text_record)) << lines[0];
}

TEST_F(Logger_library, NullNamesCountAsEmpty) {
  use_config("output = out.log\n");
  void* const log = oqa_get_log(nullptr, nullptr, nullptr);
  ASSERT_NE(log, nullptr);
  EXPECT_EQ(oqa_get_log("", "", config_name), log);
  oqa_free_log("", "");
  oqa_free_log(nullptr, nullptr);
  oqa_free_log(nullptr, nullptr);
}

TEST_F(Logger_library, SevereRecordsAreOnDiskBeforeTheLogIsFreed) {
  use_config("output = out.log\nlevel = 7\n");
  void* const log = oqa_get_log("M", "", config_name);
  ASSERT_NE(log, nullptr);
  ASSERT_EQ(oqa_log(log, 7, "f", 1, "fn", "first"), 0);
  ASSERT_EQ(oqa_log(log, 3, "f", 2, "fn", "second"), 0);
  EXPECT_EQ(read_lines(scratch_ / "out.log").size(), 2U);
  ASSERT_EQ(oqa_log(log, 6, "f", 3, "fn", "third"), 0);
  oqa_free_log("M", "");
  EXPECT_EQ(read_lines(scratch_ / "out.log").size(), 3U);
}

TEST_F(Logger_library, FreeingIsBalancedAndHarmlessWhenNothingIsOpen) {
  use_config("output = out.log\nlevel = 7\n");
  oqa_free_log("NEVER", "OPENED");
  void* const first = oqa_get_log("M", "i", config_name);
  void* const second = oqa_get_log("M", "i", config_name);
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first, second);
  oqa_free_log("M", "i");
  EXPECT_EQ(oqa_log(first, 3, "f", 1, "fn", "still open"), 0);
  oqa_free_log("M", "i");
  oqa_free_log("M", "i");
  EXPECT_EQ(read_lines(scratch_ / "out.log").size(), 1U);
}

TEST_F(Logger_library, SeveralLogsWriteToTheirOwnOutputs) {
  use_config("output = a.log\nlevel = 7\n", "a.cfg");
  void* const a = oqa_get_log("A", "", config_name);
  use_config("output = b.log\nlevel = 7\nformat = json\n", "b.cfg");
  void* const b = oqa_get_log("B", "", config_name);
  void* const a_other = oqa_get_log("A", "other", config_name);
  ASSERT_NE(a, nullptr);
  ASSERT_NE(b, nullptr);
  ASSERT_NE(a_other, a);
  EXPECT_EQ(oqa_log(a, 6, "f", 1, "fn", "to a"), 0);
  EXPECT_EQ(oqa_log(b, 6, "f", 1, "fn", "to b"), 0);
  EXPECT_EQ(oqa_log(a_other, 6, "f", 1, "fn", "to b too"), 0);
  oqa_free_log("B", "");
  oqa_free_log("A", "other");
  EXPECT_EQ(oqa_log(a, 6, "f", 1, "fn", "a again"), 0);
  oqa_free_log("A", "");

  std::vector<std::string> const a_lines = read_lines(scratch_ / "a.log");
  ASSERT_EQ(a_lines.size(), 2U);
  EXPECT_NE(a_lines[1].find("] A pid="), std::string::npos) << a_lines[1];
  std::vector<std::string> const b_lines = read_lines(scratch_ / "b.log");
  ASSERT_EQ(b_lines.size(), 2U);
  EXPECT_EQ(json_string(parse_json_line(b_lines[0]).value(), "module"), "B");
  auto const shared = parse_json_line(b_lines[1]).value();
  EXPECT_EQ(json_string(shared, "module"), "A");
  EXPECT_EQ(json_string(shared, "instance"), "other");
}

TEST_F(Logger_library, LogsSharingAFileKeepItsFormatAndSayWhy) {
  use_config("output = shared.log\nlevel = 7\n", "a.cfg");
  void* const a = oqa_get_log("A", "", config_name);
  std::string const b_config = use_config("output = shared.log\nformat = json\n", "b.cfg");
  void* const b = oqa_get_log("B", "", config_name);
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(oqa_log(b, 3, "f", 1, "fn", "from b"), 0);
  oqa_free_log("B", "");
  oqa_free_log("A", "");
  (void)a;
  std::vector<std::string> const lines = read_lines(scratch_ / "shared.log");
  ASSERT_EQ(lines.size(), 2U);
  for (std::string const& line : lines) EXPECT_TRUE(std::regex_match(line, text_record)) << line;
  EXPECT_NE(lines[0].find(b_config + ":1 oqa_get_log: output already open"), std::string::npos)
      << lines[0];
}

// A bad configuration opens the log with defaults for the bad keys and one
// warning record naming the file, the line and the problem.
struct Bad_config {
  char const* line;
  char const* mentions;
};
class Bad_configs : public Logger_library, public testing::WithParamInterface<Bad_config> {};
TEST_P(Bad_configs, WarnOnceWithFileAndLine) {
  std::string const config =
      use_config(std::string("output = out.json\nformat = json\n") + GetParam().line + "\n");
  void* const log = oqa_get_log("M", "", config_name);
  ASSERT_NE(log, nullptr);
  EXPECT_EQ(oqa_log(log, 5, "f", 1, "fn", "dropped at the default level"), 0);
  oqa_free_log("M", "");
  std::vector<std::string> const lines = read_lines(scratch_ / "out.json");
  ASSERT_EQ(lines.size(), 1U);
  auto const warning = parse_json_line(lines[0]);
  ASSERT_TRUE(warning.has_value()) << lines[0];
  EXPECT_EQ(json_integer(*warning, "priority"), 4);
  EXPECT_EQ(json_string(*warning, "file"), config);
  EXPECT_EQ(json_integer(*warning, "line"), 3);
  EXPECT_EQ(json_string(*warning, "function"), "oqa_get_log");
  EXPECT_NE(json_string(*warning, "message").find(GetParam().mentions), std::string::npos)
      << lines[0];
}
INSTANTIATE_TEST_SUITE_P(Keys, Bad_configs,
                         testing::Values(Bad_config{"colour = red", "unknown key \"colour\""},
                                         Bad_config{"level = 12", "\"12\" for level"},
                                         Bad_config{"level = loud", "\"loud\" for level"},
                                         Bad_config{"max_files = many", "\"many\""}));

TEST_F(Logger_library, UnwritableOutputFallsBackToStderrWithAWarning) {
  write_file(scratch_ / "plain_file", "not a folder");
  std::string const config = use_config("# logs\noutput = plain_file/sub/out.log\nlevel = 7\n");
  Captured_stderr captured(scratch_ / "stderr.txt");
  void* const log = oqa_get_log("M", "", config_name);
  ASSERT_NE(log, nullptr);
  EXPECT_EQ(oqa_log(log, 6, "f.cpp", 9, "fn", "still here"), 0);
  oqa_free_log("M", "");
  std::string const stderr_text = captured.finish();
  std::istringstream stream(stderr_text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  ASSERT_EQ(lines.size(), 2U) << stderr_text;
  EXPECT_NE(lines[0].find("[4 warning] M pid="), std::string::npos) << lines[0];
  EXPECT_NE(lines[0].find(config + ":2 oqa_get_log: cannot open output"), std::string::npos)
      << lines[0];
  EXPECT_NE(lines[1].find("f.cpp:9 fn: still here"), std::string::npos) << lines[1];
}

TEST_F(Logger_library, MissingExplicitConfigWarnsOnStderrAndUsesDefaults) {
  Scoped_environment const missing("OSTREVAN_OQA_LOGGER_CONFIG", (scratch_ / "nope.cfg").c_str());
  Captured_stderr captured(scratch_ / "stderr.txt");
  void* const log = oqa_get_log("M", "", config_name);
  ASSERT_NE(log, nullptr);
  EXPECT_EQ(oqa_log(log, 5, "f", 1, "fn", "above the default level"), 0);
  EXPECT_EQ(oqa_log(log, 4, "f", 1, "fn", "at the default level"), 0);
  oqa_free_log("M", "");
  std::string const stderr_text = captured.finish();
  EXPECT_NE(stderr_text.find("nope.cfg:0 oqa_get_log: cannot read configuration file"),
            std::string::npos)
      << stderr_text;
  EXPECT_NE(stderr_text.find("at the default level"), std::string::npos);
  EXPECT_EQ(stderr_text.find("above the default level"), std::string::npos);
}

TEST_F(Logger_library, SyslogOutputAcceptsRecords) {
  use_config("output = syslog\nlevel = 7\n");
  void* const log = oqa_get_log("M", "", config_name);
  ASSERT_NE(log, nullptr);
  EXPECT_EQ(oqa_log(log, 7, "f", 1, "fn", "logger library test record"), 0);
  oqa_free_log("M", "");
}

// The whole lookup through the library: explicit path, then the working
// directory, then XDG_CONFIG_HOME.
TEST_F(Logger_library, ConfigLookupOrder) {
  std::filesystem::create_directories(scratch_.path() / "work");
  Scoped_working_directory const work(scratch_.path() / "work");
  Scoped_environment const xdg("XDG_CONFIG_HOME", (scratch_ / "xdg").c_str());
  Scoped_environment const no_explicit("OSTREVAN_OQA_LOGGER_CONFIG", nullptr);
  write_file(scratch_ / "work/ostrevan_oqa_logger.cfg", "output = work.log\n");
  write_file(scratch_ / "xdg/ostrevan/ostrevan_oqa_logger.cfg", "output = xdg.log\n");
  write_file(scratch_ / "explicit.cfg", "output = explicit.log\n");

  auto const write_one = [&](char const* message) {
    void* const log = oqa_get_log("M", "", config_name);
    ASSERT_NE(log, nullptr);
    EXPECT_EQ(oqa_log(log, 3, "f", 1, "fn", message), 0);
    oqa_free_log("M", "");
  };
  write_one("from the working directory");
  std::filesystem::remove(scratch_ / "work/ostrevan_oqa_logger.cfg");
  write_one("from XDG_CONFIG_HOME");
  {
    Scoped_environment const explicit_path("OSTREVAN_OQA_LOGGER_CONFIG",
                                           (scratch_ / "explicit.cfg").c_str());
    write_one("from the explicit path");
  }
  EXPECT_NE(read_file(scratch_ / "work/work.log").find("from the working directory"),
            std::string::npos);
  EXPECT_NE(read_file(scratch_ / "xdg/ostrevan/xdg.log").find("from XDG_CONFIG_HOME"),
            std::string::npos);
  EXPECT_NE(read_file(scratch_ / "explicit.log").find("from the explicit path"), std::string::npos);
}

TEST_F(Logger_library, RotationHappensAtTheConfiguredSize) {
  // 0.01 MB: 10485 bytes per file, one current and three older files.
  constexpr std::uintmax_t max_size = 10485;
  use_config("output = rot.log\nlevel = 7\nmax_size_mb = 0.01\nmax_files = 3\n");
  void* const log = oqa_get_log("M", "", config_name);
  ASSERT_NE(log, nullptr);
  constexpr int records = 200;  // about 25 kB: two full files and part of a third
  std::string const padding(40, '.');
  for (int index = 0; index < records; ++index) {
    ASSERT_EQ(oqa_log(log, 6, "f", index, "fn", (padding + std::to_string(index)).c_str()), 0);
  }
  oqa_free_log("M", "");

  std::size_t total_lines = 0;
  for (char const* name : {"rot.log", "rot.1.log", "rot.2.log"}) {
    std::string const path = scratch_ / name;
    ASSERT_TRUE(std::filesystem::exists(path)) << name;
    std::uintmax_t const size = std::filesystem::file_size(path);
    EXPECT_LE(size, max_size) << name;
    std::vector<std::string> const lines = read_lines(path);
    if (std::string(name) != "rot.log") {
      // Rotated only when the next record would not fit.
      EXPECT_GT(size + lines.back().size() + 3, max_size) << name;
    }
    for (std::string const& line : lines) {
      EXPECT_TRUE(std::regex_match(line, text_record)) << line;
    }
    total_lines += lines.size();
  }
  EXPECT_FALSE(std::filesystem::exists(scratch_ / "rot.3.log"));
  EXPECT_EQ(total_lines, static_cast<std::size_t>(records));
}

}  // namespace
