// Many threads writing to one log: every record arrives, once and whole.
#include <gtest/gtest.h>

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

constexpr int thread_count = 8;
constexpr int records_per_thread = 10000;

class Concurrent_writers : public testing::TestWithParam<char const*> {};

TEST_P(Concurrent_writers, LoseNoRecordAndTearNoLine) {
  std::string const format = GetParam();
  Scratch_directory const scratch;
  write_file(scratch / "logger.cfg", "output = out.log\nlevel = 7\nformat = " + format + "\n");
  Scoped_environment const config("OSTREVAN_OQA_LOGGER_CONFIG", (scratch / "logger.cfg").c_str());
  void* const log = oqa_get_log("M", "", "ostrevan_oqa_logger.cfg");
  ASSERT_NE(log, nullptr);

  std::vector<int> failures(thread_count, 0);
  std::vector<std::thread> threads;
  threads.reserve(thread_count);
  for (int thread = 0; thread < thread_count; ++thread) {
    threads.emplace_back([&failures, log, thread] {
      for (int record = 0; record < records_per_thread; ++record) {
        std::string const message =
            "thread " + std::to_string(thread) + " record " + std::to_string(record);
        // Mixed priorities: some records flush, most do not.
        int const priority = record % 100 == 0 ? 3 : 7;
        if (oqa_log(log, priority, "worker.cpp", record, "worker", message.c_str()) != 0) {
          ++failures[thread];
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  oqa_free_log("M", "");
  for (int thread = 0; thread < thread_count; ++thread) EXPECT_EQ(failures[thread], 0);

  std::vector<std::string> const lines = read_lines(scratch / "out.log");
  ASSERT_EQ(lines.size(), static_cast<std::size_t>(thread_count * records_per_thread));
  std::regex const message_pattern(R"(thread (\d+) record (\d+))");
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
  EXPECT_EQ(seen.size(), static_cast<std::size_t>(thread_count * records_per_thread));
}

INSTANTIATE_TEST_SUITE_P(Formats, Concurrent_writers, testing::Values("text", "json"));

}  // namespace
