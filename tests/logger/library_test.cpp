// The logger library through its C entries: records, levels, several logs,
// configurations that must not be trusted, and rotation.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
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
  EXPECT_EQ(oqa_log(log, 7, "src/f.cpp", 12, "run_frame", "it broke: 5%"), 0);
  // In the file at once, whatever the priority.
  std::vector<std::string> const lines = read_lines(scratch_ / "out.log");
  oqa_free_log("MODULE", "camera0");
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_TRUE(is_local_time(lines[0].substr(0, 32))) << lines[0];
  EXPECT_EQ(lines[0].substr(32), " [7 debug] MODULE/camera0 pid=" + std::to_string(getpid()) +
                                     " tid=" + std::to_string(this_thread_id()) +
                                     " src/f.cpp:12 run_frame: it broke: 5%");
}

TEST_F(Logger_library, JsonRecordCarriesEveryFieldSeparately) {
  use_config("output = out.json\nlevel = 7\nformat = json\n");
  void* const log = oqa_get_log("MODULE", "", config_name);
  ASSERT_NE(log, nullptr);
  std::string const message = "line one\nline \"two\"" + std::string(20000, 'x');
  EXPECT_EQ(oqa_log(log, 7, "f.cpp", -3, "fn", message.c_str()), 0);
  oqa_free_log("MODULE", "");

  std::vector<std::string> const lines = read_lines(scratch_ / "out.json");
  ASSERT_EQ(lines.size(), 1U);
  std::optional<Json_object> record = parse_json_line(lines[0]);
  ASSERT_TRUE(record.has_value()) << lines[0];
  EXPECT_TRUE(is_local_time(json_string(*record, "time"))) << lines[0];
  record->erase("time");
  EXPECT_EQ(*record, (Json_object{{"priority", 7LL},
                                  {"priority_name", "debug"},
                                  {"module", "MODULE"},
                                  {"instance", ""},
                                  {"pid", static_cast<long long>(getpid())},
                                  {"tid", static_cast<long long>(this_thread_id())},
                                  {"file", "f.cpp"},
                                  {"line", -3LL},
                                  {"function", "fn"},
                                  {"message", message}}));
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

TEST_F(Logger_library, OpensAndFreesBalanceByNameAndNullCountsAsEmpty) {
  use_config("output = out.log\nlevel = 7\n");
  oqa_free_log("NEVER", "OPENED");
  void* const first = oqa_get_log(nullptr, nullptr, nullptr);
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(oqa_get_log("", "", config_name), first);
  oqa_free_log(nullptr, nullptr);
  EXPECT_EQ(oqa_log(first, 3, "f", 1, "fn", "still open"), 0);
  oqa_free_log("", "");
  oqa_free_log("", "");
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

TEST_F(Logger_library, SyslogOutputAcceptsRecords) {
  use_config("output = syslog\nlevel = 7\n");
  void* const log = oqa_get_log("M", "", config_name);
  ASSERT_NE(log, nullptr);
  EXPECT_EQ(oqa_log(log, 7, "f", 1, "fn", "logger library test record"), 0);
  oqa_free_log("M", "");
}

// Configurations that must not be trusted. Each opens the log on stderr, the
// default output, with at most one warning naming the configuration file and
// line, and leaves the file system as it was.
enum class Config_at { environment, working_folder };
struct Trust_case {
  Config_at at;
  std::string config;
  void (*prepare)(Scratch_directory const& scratch);  // after the configuration is written
  std::string warning;    // after "<configuration file>:"; empty for none
  char const* untouched;  // under the scratch folder: keeps its content, or stays absent
};
class Untrusted_configs : public Logger_library, public testing::WithParamInterface<Trust_case> {};

TEST_P(Untrusted_configs, WarnOnStderrAndChangeNothing) {
  Trust_case const& trust = GetParam();
  std::string config = scratch_ / "logger.cfg";
  std::optional<Scoped_working_directory> working_folder;
  Scoped_environment const xdg("XDG_CONFIG_HOME", (scratch_ / "xdg").c_str());
  Scoped_environment const home("HOME", (scratch_ / "home").c_str());
  if (trust.at == Config_at::environment) {
    use_config(trust.config);
  } else {
    config = scratch_ / "work/ostrevan_oqa_logger.cfg";
    write_file(config, trust.config);
    explicit_config_.emplace("OSTREVAN_OQA_LOGGER_CONFIG", nullptr);
    working_folder.emplace(scratch_.path() / "work");
  }
  write_file(scratch_ / "victim", "precious\n");
  if (trust.prepare != nullptr) trust.prepare(scratch_);
  std::string const untouched = scratch_ / trust.untouched;
  bool const existed = std::filesystem::exists(untouched);

  Captured_stderr captured(scratch_ / "stderr.txt");
  void* const log = oqa_get_log("M", "", config_name);
  ASSERT_NE(log, nullptr);
  EXPECT_EQ(oqa_log(log, 3, "f.cpp", 9, "fn", "still here"), 0);
  oqa_free_log("M", "");
  std::vector<std::string> const lines = captured.finish();
  ASSERT_EQ(lines.size(), trust.warning.empty() ? 1U : 2U) << testing::PrintToString(lines);
  if (!trust.warning.empty()) {
    EXPECT_NE(lines[0].find("[4 warning] M pid="), std::string::npos) << lines[0];
    EXPECT_NE(lines[0].find(config + ":" + trust.warning), std::string::npos) << lines[0];
  }
  EXPECT_NE(lines.back().find("f.cpp:9 fn: still here"), std::string::npos) << lines.back();
  if (existed) {
    EXPECT_EQ(read_file(untouched), "precious\n");
  } else {
    EXPECT_FALSE(std::filesystem::exists(untouched));
  }
}

std::string const hostile = "\"; touch pwned; \x1b[2J\"" + std::string(80, 'A');

INSTANTIATE_TEST_SUITE_P(
    Cases, Untrusted_configs,
    testing::Values(
        // A folder of downloaded files cannot configure the log.
        Trust_case{Config_at::working_folder, "output = victim.log\nlevel = 7\n", nullptr, "",
                   "work/victim.log"},
        Trust_case{Config_at::environment, "output = link.log\n",
                   [](Scratch_directory const& s) {
                     std::filesystem::create_symlink(s / "victim", s / "link.log");
                   },
                   "1 oqa_get_log: cannot open output: it is a symbolic link; writing to stderr",
                   "victim"},
        Trust_case{Config_at::environment, "output = link.log\n",
                   [](Scratch_directory const& s) {
                     std::filesystem::create_symlink(s / "absent", s / "link.log");
                   },
                   "1 oqa_get_log: cannot open output: it is a symbolic link", "absent"},
        Trust_case{Config_at::environment, "\noutput = missing/sub/out.log\n", nullptr,
                   "2 oqa_get_log: cannot open output: its folder does not exist", "missing"},
        // Opening a FIFO without a reader would wait for ever.
        Trust_case{Config_at::environment, "output = fifo.log\n",
                   [](Scratch_directory const& s) { mkfifo((s / "fifo.log").c_str(), 0600); },
                   "1 oqa_get_log: cannot open output: it is not a regular file", "victim"},
        Trust_case{Config_at::environment, "level = " + hostile + "\n", nullptr,
                   "1 oqa_get_log: bad value \"\\\"; touch pwned; \\x1b[2J\\\"" +
                       std::string(43, 'A') + "\"... for level",
                   "pwned"},
        Trust_case{Config_at::environment, "",
                   [](Scratch_directory const& s) { std::filesystem::remove(s / "logger.cfg"); },
                   "0 oqa_get_log: cannot read configuration file: No such file or directory",
                   "logger.cfg"},
        Trust_case{Config_at::environment, "",
                   [](Scratch_directory const& s) {
                     std::filesystem::remove(s / "logger.cfg");
                     mkfifo((s / "logger.cfg").c_str(), 0600);
                   },
                   "0 oqa_get_log: cannot read configuration file: not a regular file", "victim"},
        Trust_case{Config_at::environment, "output = victim\n" + std::string(70000, '#'), nullptr,
                   "0 oqa_get_log: cannot read configuration file: larger than 64 KiB", "victim"}));

// A size below the smallest is raised to it (the setting's warning is checked
// with the settings): records fill 64 KiB files instead of each rotating.
TEST_F(Logger_library, RotationIsBoundedAndKeepsTheNewestFiles) {
  constexpr std::uintmax_t max_size = 64 * 1024;
  use_config("output = rot.log\nlevel = 7\nmax_size_mb = 0.000001\nmax_files = 2\n");
  void* const log = oqa_get_log("M", "", config_name);
  ASSERT_NE(log, nullptr);
  constexpr int records = 2000;  // about 260 KB: the oldest of four files is dropped
  std::string const padding(50, '.');
  for (int index = 0; index < records; ++index) {
    ASSERT_EQ(oqa_log(log, 6, "f", index, "fn", (padding + std::to_string(index)).c_str()), 0);
  }
  oqa_free_log("M", "");

  std::vector<std::string> names;
  for (auto const& entry : std::filesystem::directory_iterator(scratch_.path())) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{"logger.cfg", "rot.1.log", "rot.2.log", "rot.log"}));
  // Newest file first, each read backwards: no gap back from the last record.
  int expected_line = records - 1;
  std::string newer_first_line;
  for (char const* name : {"rot.log", "rot.1.log", "rot.2.log"}) {
    std::string const path = scratch_ / name;
    std::vector<std::string> const lines = read_lines(path);
    ASSERT_FALSE(lines.empty()) << name;
    std::uintmax_t const size = std::filesystem::file_size(path);
    EXPECT_LE(size, max_size) << name;
    if (!newer_first_line.empty()) {
      // Rotated only when the next record would not fit.
      EXPECT_GT(size + newer_first_line.size() + 1, max_size) << name;
    }
    newer_first_line = lines.front();
    for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
      std::smatch fields;
      ASSERT_TRUE(std::regex_match(*line, fields, text_record)) << *line;
      EXPECT_EQ(std::stoi(fields[7]), expected_line--) << name;
    }
  }
}
}  // namespace
