// Configurations for the logger tests, and what a record line looks like.
// ctest runs each test in its own process.
#pragma once

#include <regex>
#include <string>
#include <vector>

#include "scratch_folder.h"

namespace oqa_logger_test {

using namespace test_files;

inline std::vector<std::string> split_lines(std::string const& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

inline std::vector<std::string> read_lines(std::string const& path) {
  return split_lines(read_file(path));
}

// Writes a configuration file and names it in the environment, so that files
// on the test machine (XDG, /etc) play no part. Returns its path.
inline std::string use_config(Scratch_folder const& scratch, std::string const& text,
                              std::string const& name = "logger.cfg") {
  write_file(scratch / name, text);
  setenv("OSTREVAN_OQA_LOGGER_CONFIG", (scratch / name).c_str(), 1);
  return scratch / name;
}

// ISO 8601 local time with microseconds and the offset from UTC.
inline std::string const time_pattern = R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}[+-]\d\d:\d\d)";

// A text record: time, [priority name], source, pid, tid, file:line function: message.
inline std::regex const text_record(time_pattern +
                                    R"( \[([0-7]) ([a-z]+)\] (\S+) pid=(\d+) tid=(\d+) )"
                                    R"((.*):(-?\d+) (\S*): (.*))");

}  // namespace oqa_logger_test
