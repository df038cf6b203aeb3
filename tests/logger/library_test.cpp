// The logger library through its C entries: records, levels, several logs,
// configurations that must not be trusted, rotation, and many writers.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "ostrevan_oqa_logger.h"
#include "support/logger_test.h"

namespace {

using namespace oqa_logger_test;
using namespace std::string_literals;

constexpr char const* config_name = "ostrevan_oqa_logger.cfg";

class Logger_library : public testing::Test {
 protected:
  Scratch_folder const scratch_;
};

// Every field, escaped, on one line that is in the file at once, for a
// record larger than any buffer on the way; a forked child's records carry
// its own process id.
class Record_fields : public Logger_library, public testing::WithParamInterface<std::string> {};

TEST_P(Record_fields, AreAllThereInParentAndForkedChild) {
  bool const json = GetParam() == "json";
  use_config(scratch_, "output = out.log\nlevel = 7\nformat = " + GetParam() + "\n");
  void* const log = oqa_get_log("MODULE\t1", "cam\"0", config_name);
  std::string const padding(20000, 'x');
  std::string const message = "5% {}\n\"" + padding;  // not a format string
  EXPECT_EQ(oqa_log(log, 7, "src/f.cpp", -3, "run", message.c_str()), 0);
  pid_t const child = fork();
  if (child == 0) _exit(oqa_log(log, 7, "src/f.cpp", -3, "run", message.c_str()));
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  std::vector<std::string> lines = read_lines(scratch_ / "out.log");
  oqa_free_log("MODULE\t1", "cam\"0");

  ASSERT_EQ(lines.size(), 2U);
  std::string const pid = std::to_string(getpid());
  std::string const tid = std::to_string(syscall(SYS_gettid));
  lines[0].replace(json ? 9 : 0, 32, "T");  // the time, checked with the other records
  EXPECT_EQ(lines[0],
            json ? R"({"time":"T","priority":7,"priority_name":"debug","module":"MODULE\t1",)"
                   R"("instance":"cam\"0","pid":)" +
                       pid + ",\"tid\":" + tid +
                       R"(,"file":"src/f.cpp","line":-3,"function":"run","message":"5% {}\n\")" +
                       padding + "\"}"
                 : "T [7 debug] MODULE\\t1/cam\"0 pid=" + pid + " tid=" + tid +
                       " src/f.cpp:-3 run: 5% {}\\n\"" + padding);
  std::string const child_pid = std::to_string(child);
  EXPECT_NE(lines[1].find(json ? "\"pid\":" + child_pid + "," : " pid=" + child_pid + " "),
            std::string::npos);
}
INSTANTIATE_TEST_SUITE_P(Formats, Record_fields, testing::Values("text", "json"));

// Priorities up to the level are kept and the rest accepted; bad arguments
// are refused, or read as empty strings; frees balance opens by name, and
// one too many does nothing.
TEST_F(Logger_library, EntriesKeepTheLevelRefuseBadArgumentsAndBalanceByName) {
  use_config(scratch_, "output = out.log\nlevel = 3\n");
  EXPECT_NE(oqa_log(nullptr, 2, "f", 1, "fn", "m"), 0);
  oqa_free_log("NEVER", "OPENED");
  void* const log = oqa_get_log(nullptr, nullptr, nullptr);
  EXPECT_EQ(oqa_get_log("", "", config_name), log);
  EXPECT_NE(oqa_log(log, -1, "f", 1, "fn", "m"), 0);
  EXPECT_NE(oqa_log(log, 8, "f", 1, "fn", "m"), 0);
  oqa_free_log(nullptr, nullptr);
  for (int p = 0; p <= 7; ++p) EXPECT_EQ(oqa_log(log, p, nullptr, p, nullptr, nullptr), 0);
  oqa_free_log("", "");
  oqa_free_log("", "");
  std::string kept;
  for (std::string const& line : read_lines(scratch_ / "out.log")) {
    std::smatch fields;
    bool const whole = std::regex_match(
        line, fields, std::regex(time_pattern + R"( \[(\d) [a-z]+\]  pid=\d+ tid=\d+ :(\d) : )"));
    kept += whole && fields[1] == fields[2] ? fields[1].str() : "?";
  }
  EXPECT_EQ(kept, "0123");
}

// Each log writes to its own output; logs naming one file share it in the
// format of the first (a log asking for the other one is told so), and
// freeing one leaves the others writing.
TEST_F(Logger_library, LogsWriteToTheirOutputsAndShareFilesInTheFirstFormat) {
  use_config(scratch_, "output = a.log\nlevel = 7\n", "a.cfg");
  void* const a = oqa_get_log("A", "", config_name);
  use_config(scratch_, "output = b.log\nlevel = 7\nformat = json\n", "b.cfg");
  void* const b = oqa_get_log("B", "", config_name);
  void* const a_other = oqa_get_log("A", "other", config_name);
  std::string const c_config = use_config(scratch_, "output = b.log\nlevel = 7\n", "c.cfg");
  void* const c = oqa_get_log("C", "", config_name);
  use_config(scratch_, "output = syslog\nlevel = 7\n", "syslog.cfg");
  void* const syslog = oqa_get_log("S", "", config_name);
  for (void* const log : {a, b, a_other, c, syslog}) {
    EXPECT_EQ(oqa_log(log, 6, "f", 1, "fn", "logger library test record"), 0);
  }
  for (char const* module : {"A", "B", "S"}) oqa_free_log(module, "");
  EXPECT_EQ(oqa_log(a_other, 6, "f", 2, "fn", "after B"), 0);
  oqa_free_log("A", "other");
  oqa_free_log("C", "");

  EXPECT_TRUE(std::regex_match(read_file(scratch_ / "a.log"),
                               std::regex(time_pattern + R"( \[6 info\] A pid=.*\n)")));
  std::string records;
  std::regex const record(R"re(^\{"time".*"module":"(\w*)","instance":"(\w*)",.*)re"
                          R"re("file":"([^"]*)","line":(\d+),.*"message":"(\w+))re");
  for (std::string const& line : read_lines(scratch_ / "b.log")) {
    std::smatch fields;
    records += std::regex_search(line, fields, record) ? fields.format("$1/$2 $3:$4 $5\n") : "?\n";
  }
  EXPECT_EQ(records, "C/ " + c_config + ":1 output\nB/ f:1 logger\nA/other f:1 logger\n" +
                         "C/ f:1 logger\nA/other f:2 after\n");
}

// Configurations that must not be trusted. Each leaves the log on stderr,
// the default output, with one warning naming the configuration file and
// line, and changes nothing in the file system.
struct Trust_case {
  std::string config;     // written as logger.cfg unless empty
  char const* link_to;    // made the target of a symbolic link link.log, unless null
  char const* fifo;       // made a FIFO, unless null
  int line;               // of the warning
  std::string warning;    // after "oqa_get_log: "
  char const* untouched;  // keeps its content, or stays absent
};
class Untrusted_configs : public Logger_library, public testing::WithParamInterface<Trust_case> {};

TEST_P(Untrusted_configs, WarnOnStderrAndChangeNothing) {
  Trust_case const& trust = GetParam();
  std::string const config = use_config(scratch_, trust.config);
  if (trust.config.empty()) std::filesystem::remove(config);
  write_file(scratch_ / "victim", "precious\n");
  if (trust.link_to)
    std::filesystem::create_symlink(scratch_ / trust.link_to, scratch_ / "link.log");
  if (trust.fifo != nullptr) mkfifo((scratch_ / trust.fifo).c_str(), 0600);
  std::string const untouched = scratch_ / trust.untouched;
  bool const existed = std::filesystem::exists(untouched);

  testing::internal::CaptureStderr();
  void* const log = oqa_get_log("M", "", config_name);
  EXPECT_EQ(oqa_log(log, 3, "f.cpp", 9, "fn", "still here"), 0);
  oqa_free_log("M", "");
  std::vector<std::string> const lines = split_lines(testing::internal::GetCapturedStderr());
  ASSERT_EQ(lines.size(), 2U) << testing::PrintToString(lines);
  EXPECT_NE(lines[0].find("[4 warning] M pid="), std::string::npos) << lines[0];
  std::string const warning = config + ":" + std::to_string(trust.line) + " oqa_get_log: ";
  EXPECT_NE(lines[0].find(warning + trust.warning), std::string::npos) << lines[0];
  EXPECT_TRUE(lines[1].ends_with("f.cpp:9 fn: still here")) << lines[1];
  EXPECT_EQ(std::filesystem::exists(untouched), existed);
  EXPECT_EQ(read_file(untouched), existed ? "precious\n" : "");
}

std::string const hostile = "\"; touch pwned; \x1b[2J\"" + std::string(80, 'A');
std::string const not_opened = "cannot open output: ";
std::string const not_read = "cannot read configuration file: ";

Trust_case const trust_cases[] = {
    // Outputs that are no regular file, or whose folder is missing.
    {"output = link.log\n", "victim", nullptr, 1,
     not_opened + "it is a symbolic link; writing to stderr", "victim"},
    {"output = link.log\n", "absent", nullptr, 1, not_opened + "it is a symbolic link", "absent"},
    {"\noutput = missing/sub/out.log\n", nullptr, nullptr, 2,
     not_opened + "its folder does not exist", "missing"},
    // Opening a FIFO without a reader would wait for ever.
    {"output = fifo.log\n", nullptr, "fifo.log", 1, not_opened + "it is not a regular file",
     "victim"},
    {"level = " + hostile + "\n", nullptr, nullptr, 1,
     "bad value \"\\\"; touch pwned; \\x1b[2J\\\"" + std::string(43, 'A') + "\"... for level",
     "pwned"},
    {"", nullptr, nullptr, 0, not_read + "No such file or directory", "logger.cfg"},
    {"", nullptr, "logger.cfg", 0, not_read + "not a regular file", "victim"},
    {"output = victim\n" + std::string(70000, '#'), nullptr, nullptr, 0,
     not_read + "larger than 64 KiB", "victim"}};
INSTANTIATE_TEST_SUITE_P(Cases, Untrusted_configs, testing::ValuesIn(trust_cases));

// A size below the smallest is raised to it: records fill 64 KiB files
// instead of each rotating, and only the newest files are kept.
TEST_F(Logger_library, RotationIsBoundedAndKeepsTheNewestFiles) {
  constexpr std::uintmax_t max_size = 64 * 1024;
  use_config(scratch_, "output = rot.log\nlevel = 7\nmax_size_mb = 0.000001\nmax_files = 2\n");
  void* const log = oqa_get_log("M", "", config_name);
  constexpr int records = 2000;  // about 250 KB: the oldest of four files is dropped
  for (int index = 0; index < records; ++index) {
    ASSERT_EQ(oqa_log(log, 6, "f", index, "fn", std::string(50, '.').c_str()), 0);
  }
  oqa_free_log("M", "");

  EXPECT_FALSE(std::filesystem::exists(scratch_ / "rot.3.log"));
  // Newest file first, each read backwards: no gap back from the last record,
  // and each file rotated only when the next record would not fit.
  int expected_line = records - 1;
  std::size_t newer_first_line = 0;
  for (char const* name : {"rot.log", "rot.1.log", "rot.2.log"}) {
    std::vector<std::string> const lines = read_lines(scratch_ / name);
    ASSERT_FALSE(lines.empty()) << name;
    std::uintmax_t const size = std::filesystem::file_size(scratch_ / name);
    EXPECT_LE(size, max_size) << name;
    EXPECT_TRUE(newer_first_line == 0 || size + newer_first_line + 1 > max_size) << name;
    newer_first_line = lines.front().size();
    for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
      std::smatch fields;
      ASSERT_TRUE(std::regex_match(*line, fields, text_record)) << *line;
      EXPECT_EQ(std::stoi(fields[7]), expected_line--) << name;
    }
  }
}

// Many writers on one log file, threads of one process or processes of their
// own: every record arrives, once and whole.
constexpr int writer_count = 4;
constexpr int records_per_writer = 5000;

// The number of records refused.
int write_records(void* log, int writer) {
  // Long records: buffered output would split them between writers.
  std::string const padding(200, '.');
  int failures = 0;
  for (int record = 0; record < records_per_writer; ++record) {
    std::string const message =
        "writer " + std::to_string(writer) + " record " + std::to_string(record) + padding;
    // Mixed priorities, as the demosaic library writes them.
    failures += oqa_log(log, record % 100 == 0 ? 2 : 7, "worker.cpp", record, "worker",
                        message.c_str()) != 0;
  }
  return failures;
}

// A whole line as write_records writes it: the record number in the line
// field, then the writer and the record number in the message.
std::regex whole_record(bool json) {
  return std::regex(
      json ? R"(\{"time":")" + time_pattern +
                 R"re(","priority":[27],"priority_name":"[a-z]+","module":"M","instance":"",)re"
                 R"re("pid":\d+,"tid":\d+,"file":"worker\.cpp","line":(\d+),"function":"worker",)re"
                 R"re("message":"writer (\d) record (\d+)\.{200}"\})re"
           : time_pattern + R"( \[[27] [a-z]+\] M pid=\d+ tid=\d+ )"
                            R"(worker\.cpp:(\d+) worker: writer (\d) record (\d+)\.{200})");
}

class Concurrent_writers : public Logger_library,
                           public testing::WithParamInterface<std::tuple<std::string, bool>> {};

TEST_P(Concurrent_writers, LoseNoRecordAndTearNoLine) {
  auto const [format, processes] = GetParam();
  use_config(scratch_, "output = out.log\nlevel = 7\nformat = " + format + "\n");
  void* const log = processes ? nullptr : oqa_get_log("M", "", config_name);
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  std::vector<pid_t> children;
  for (int writer = 0; writer < writer_count; ++writer) {
    if (!processes) {
      threads.emplace_back([&failures, log, writer] { failures += write_records(log, writer); });
    } else if (children.emplace_back(fork()) == 0) {
      // Each process opens the file for itself.
      _exit(write_records(oqa_get_log("M", "", config_name), writer) == 0 ? 0 : 1);
    }
  }
  for (std::thread& thread : threads) thread.join();
  for (pid_t const child : children) {
    int status = -1;
    failures += waitpid(child, &status, 0) != child || status != 0;
  }
  if (log != nullptr) oqa_free_log("M", "");
  EXPECT_EQ(failures, 0);

  std::vector<std::string> const lines = read_lines(scratch_ / "out.log");
  std::regex const pattern = whole_record(format == "json");
  std::set<std::pair<int, int>> seen;
  for (std::string const& line : lines) {
    std::smatch fields;
    ASSERT_TRUE(std::regex_match(line, fields, pattern) && fields[1] == fields[3]) << line;
    seen.emplace(std::stoi(fields[2]), std::stoi(fields[3]));
  }
  EXPECT_EQ(lines.size(), std::size_t{writer_count * records_per_writer});
  EXPECT_EQ(seen.size(), lines.size());
}

INSTANTIATE_TEST_SUITE_P(Formats, Concurrent_writers,
                         testing::Combine(testing::Values("text", "json"), testing::Bool()));

}  // namespace
