// What a configuration file asks of one log, and the problems found reading it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "priority.h"

namespace oqa_logger {

enum class Output_kind { standard_error, syslog, file };
inline constexpr std::size_t default_max_files = 3;
// Rotation bounds, so that renaming files stays rare: a file holds at least
// 64 KiB of records, and a rotation renames at most 1000 files.
inline constexpr std::uint64_t smallest_max_size_bytes = 64 * 1024;
inline constexpr std::size_t largest_max_files = 1000;
// The most of a configuration value that a problem repeats.
inline constexpr std::size_t quoted_value_limit = 64;

enum class Record_format { text, json };

// One problem in a configuration file; line 0 means the file as a whole.
struct Config_problem {
  std::string file;
  int line = 0;
  std::string text;
};

struct Logger_settings {
  Output_kind output = Output_kind::standard_error;
  // For a file output: the path, made absolute against the configuration
  // file's folder when it was given relative.
  std::string output_path;
  int output_line = 0;
  int level = warning_priority;
  Record_format format = Record_format::text;
  // 0: the file grows without rotation.
  std::uint64_t max_size_bytes = 0;
  std::size_t max_files = default_max_files;
  // The file these settings came from; empty when none was found.
  std::string config_path;
  std::vector<Config_problem> problems;
};

// Parses `key = value` lines; every bad line leaves the defaults for its key
// and adds one problem naming config_path and the line. A rotation setting
// beyond its bounds is clamped, with a problem saying so.
Logger_settings parse_settings(std::string_view text, std::string const& config_path);

}  // namespace oqa_logger
