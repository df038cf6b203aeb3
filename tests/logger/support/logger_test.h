// Scratch folders, files and configurations for the logger tests, and what a
// record line looks like. ctest runs each test in its own process.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace oqa_logger_test {

// A fresh folder, removed with everything in it.
struct Scratch_directory {
  Scratch_directory() {
    std::string pattern = (std::filesystem::temp_directory_path() / "oqa_logger_XXXXXX").string();
    if (mkdtemp(pattern.data()) != nullptr) path = pattern;
  }
  ~Scratch_directory() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
  Scratch_directory(Scratch_directory const&) = delete;
  Scratch_directory& operator=(Scratch_directory const&) = delete;
  std::string operator/(std::string const& name) const { return (path / name).string(); }

  std::filesystem::path path;
};

inline void write_file(std::string const& path, std::string const& text) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << text;
}

inline std::string read_file(std::string const& path) {
  std::stringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

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
inline std::string use_config(Scratch_directory const& scratch, std::string const& text,
                              std::string const& name = "logger.cfg") {
  std::string path = scratch / name;
  write_file(path, text);
  setenv("OSTREVAN_OQA_LOGGER_CONFIG", path.c_str(), 1);
  return path;
}

// ISO 8601 local time with microseconds and the offset from UTC.
inline std::string const time_pattern = R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}[+-]\d\d:\d\d)";

// A text record: time, [priority name], source, pid, tid, file:line function: message.
inline std::regex const text_record(time_pattern +
                                    R"( \[([0-7]) ([a-z]+)\] (\S+) pid=(\d+) tid=(\d+) )"
                                    R"((.*):(-?\d+) (\S*): (.*))");

}  // namespace oqa_logger_test
