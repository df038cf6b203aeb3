// Many writers on one log file, threads of one process or processes of their
// own: every record arrives, once and whole.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <regex>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "ostrevan_oqa_logger.h"
#include "support/json_line.h"
#include "support/record_patterns.h"
#include "support/scratch.h"

namespace {

using namespace oqa_logger_test;

constexpr int writer_count = 4;
constexpr int records_per_writer = 5000;
constexpr char const* config_name = "ostrevan_oqa_logger.cfg";

// The number of records refused.
int write_records(void* log, int writer) {
  // Long records: buffered output would split them between writers.
  std::string const padding(200, '.');
  int failures = 0;
  for (int record = 0; record < records_per_writer; ++record) {
    std::string const message =
        "writer " + std::to_string(writer) + " record " + std::to_string(record) + padding;
    // Mixed priorities, as the demosaic library writes them.
    int const priority = record % 100 == 0 ? 2 : 7;
    failures += oqa_log(log, priority, "worker.cpp", record, "worker", message.c_str()) != 0;
  }
  return failures;
}

struct Writers {
  char const* format;
  bool processes;
};
class Concurrent_writers : public testing::TestWithParam<Writers> {};

TEST_P(Concurrent_writers, LoseNoRecordAndTearNoLine) {
  std::string const format = GetParam().format;
  Scratch_directory const scratch;
  write_file(scratch / "logger.cfg", "output = out.log\nlevel = 7\nformat = " + format + "\n");
  Scoped_environment const config("OSTREVAN_OQA_LOGGER_CONFIG", (scratch / "logger.cfg").c_str());

  if (GetParam().processes) {
    // Each process opens the file for itself.
    std::vector<pid_t> children;
    for (int writer = 0; writer < writer_count; ++writer) {
      pid_t const child = fork();
      ASSERT_GE(child, 0);
      if (child == 0) {
        int const failures = write_records(oqa_get_log("M", "", config_name), writer);
        oqa_free_log("M", "");
        _exit(failures == 0 ? 0 : 1);
      }
      children.push_back(child);
    }
    for (pid_t const child : children) {
      int status = -1;
      ASSERT_EQ(waitpid(child, &status, 0), child);
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    }
  } else {
    void* const log = oqa_get_log("M", "", config_name);
    ASSERT_NE(log, nullptr);
    std::vector<int> failures(writer_count, 0);
    std::vector<std::thread> threads;
    threads.reserve(writer_count);
    for (int writer = 0; writer < writer_count; ++writer) {
      threads.emplace_back(
          [&failures, log, writer] { failures[writer] = write_records(log, writer); });
    }
    for (std::thread& thread : threads) thread.join();
    oqa_free_log("M", "");
    EXPECT_EQ(failures, std::vector<int>(writer_count, 0));
  }

  std::vector<std::string> const lines = read_lines(scratch / "out.log");
  ASSERT_EQ(lines.size(), static_cast<std::size_t>(writer_count * records_per_writer));
  std::regex const message_pattern(R"(writer (\d+) record (\d+)\.+)");
  std::set<std::pair<int, int>> seen;
  std::size_t broken = 0;
  for (std::string const& line : lines) {
    std::string message;
    std::string line_field;
    if (format == "json") {
      auto const record = parse_json_line(line);
      if (!record) {
        ++broken;
        continue;
      }
      message = json_string(*record, "message");
      line_field = std::to_string(json_integer(*record, "line"));
    } else {
      std::smatch fields;
      if (!std::regex_match(line, fields, text_record)) {
        ++broken;
        continue;
      }
      message = fields[9];
      line_field = fields[7];
    }
    std::smatch numbers;
    if (!std::regex_match(message, numbers, message_pattern) || numbers[2] != line_field) {
      ++broken;
      continue;
    }
    seen.emplace(std::stoi(numbers[1]), std::stoi(numbers[2]));
  }
  EXPECT_EQ(broken, 0U);
  EXPECT_EQ(seen.size(), static_cast<std::size_t>(writer_count * records_per_writer));
}

INSTANTIATE_TEST_SUITE_P(Formats, Concurrent_writers,
                         testing::Values(Writers{"text", false}, Writers{"json", false},
                                         Writers{"text", true}, Writers{"json", true}));

}  // namespace
