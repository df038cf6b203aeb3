#include "logger_settings.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <system_error>

namespace oqa_logger {
namespace {

constexpr std::string_view blanks = " \t\r\f\v";
constexpr std::string_view hex_digits = "0123456789abcdef";
constexpr double bytes_per_megabyte = 1024.0 * 1024.0;
// Far beyond any sensible log file; keeps the byte count well inside 64 bits.
constexpr double largest_max_size_mb = 1024.0 * 1024.0;

std::string_view trim(std::string_view text) {
  std::size_t const first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) {
    return {};
  }
  std::size_t const last = text.find_last_not_of(blanks);
  return text.substr(first, last - first + 1);
}

// A `#` after a blank starts a comment; one inside a word (a path such as
// "logs/#1.log") does not.
std::string_view strip_trailing_comment(std::string_view value) {
  for (std::size_t index = 1; index < value.size(); ++index) {
    if (value[index] == '#' && blanks.find(value[index - 1]) != std::string_view::npos) {
      return trim(value.substr(0, index));
    }
  }
  return value;
}

template <typename Number>
bool parse_whole(std::string_view text, Number& number) {
  char const* const end = text.data() + text.size();
  auto const [stop, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && stop == end && !text.empty();
}

// A value as a problem repeats it: in quotes, with quotes, backslashes and
// control characters escaped and anything past quoted_value_limit bytes cut
// (marked by "..." after the closing quote), so that whatever the file
// holds, the value can neither leave its quotes nor fill the record.
std::string quoted(std::string_view text) {
  bool const cut = text.size() > quoted_value_limit;
  if (cut) {
    std::size_t end = quoted_value_limit;
    // Back to the start of a UTF-8 sequence the cut would split.
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xc0) == 0x80) {
      --end;
    }
    text = text.substr(0, end);
  }
  std::string result(1, '"');
  for (char const character : text) {
    auto const byte = static_cast<unsigned char>(character);
    if (byte == '"' || byte == '\\') {
      result.push_back('\\');
      result.push_back(character);
    } else if (byte < 0x20 || byte == 0x7f) {
      result.append("\\x");
      result.push_back(hex_digits[byte >> 4]);
      result.push_back(hex_digits[byte & 0xf]);
    } else {
      result.push_back(character);
    }
  }
  result.push_back('"');
  if (cut) {
    result.append("...");
  }
  return result;
}

class Settings_parser {
 public:
  explicit Settings_parser(std::string const& config_path) { settings_.config_path = config_path; }

  void parse_line(std::string_view raw_line, int line) {
    std::string_view const content = trim(raw_line);
    if (content.empty() || content.front() == '#') {
      return;
    }
    std::size_t const equals = content.find('=');
    if (equals == std::string_view::npos) {
      problem(line, "expected \"key = value\", found " + quoted(content) + "; ignored");
      return;
    }
    std::string_view const key = trim(content.substr(0, equals));
    std::string_view const value = strip_trailing_comment(trim(content.substr(equals + 1)));
    if (key == "output") {
      parse_output(value, line);
    } else if (key == "level") {
      parse_level(value, line);
    } else if (key == "format") {
      parse_format(value, line);
    } else if (key == "max_size_mb") {
      parse_max_size(value, line);
    } else if (key == "max_files") {
      parse_max_files(value, line);
    } else {
      problem(line, "unknown key " + quoted(key) + "; ignored");
    }
  }

  Logger_settings finish() {
    if (max_files_line_ != 0 && max_size_line_ == 0) {
      problem(max_files_line_, "max_files needs max_size_mb; no rotation");
    }
    if (max_size_line_ != 0 && settings_.output != Output_kind::file) {
      problem(max_size_line_, "rotation applies only to a file output; ignored");
      settings_.max_size_bytes = 0;
    }
    return std::move(settings_);
  }

 private:
  void problem(int line, std::string text) {
    settings_.problems.push_back({settings_.config_path, line, std::move(text)});
  }

  void parse_output(std::string_view value, int line) {
    settings_.output_line = line;
    if (value == "stderr") {
      settings_.output = Output_kind::standard_error;
    } else if (value == "syslog") {
      settings_.output = Output_kind::syslog;
    } else if (value.empty()) {
      settings_.output = Output_kind::standard_error;
      problem(line,
              "empty value for output (expected stderr, syslog or a file path); using stderr");
    } else {
      settings_.output = Output_kind::file;
      settings_.output_path = resolve_output_path(value);
    }
  }

  // A relative output path belongs to the configuration file, not to
  // whatever the working directory happens to be.
  std::string resolve_output_path(std::string_view value) const {
    std::filesystem::path path(value);
    if (path.is_absolute() || settings_.config_path.empty()) {
      return path.lexically_normal().string();
    }
    std::error_code error;
    std::filesystem::path const config = std::filesystem::absolute(settings_.config_path, error);
    if (error) {
      return path.lexically_normal().string();
    }
    return (config.parent_path() / path).lexically_normal().string();
  }

  void parse_level(std::string_view value, int line) {
    int level = 0;
    if (parse_whole(value, level) && is_valid_priority(level)) {
      settings_.level = level;
      return;
    }
    if (std::optional<int> const named = priority_from_name(value)) {
      settings_.level = *named;
      return;
    }
    settings_.level = warning_priority;
    problem(line, "bad value " + quoted(value) +
                      " for level (expected 0 to 7 or a syslog severity name); using 4");
  }

  void parse_format(std::string_view value, int line) {
    if (value == "text") {
      settings_.format = Record_format::text;
    } else if (value == "json") {
      settings_.format = Record_format::json;
    } else {
      settings_.format = Record_format::text;
      problem(line,
              "bad value " + quoted(value) + " for format (expected text or json); using text");
    }
  }

  void parse_max_size(std::string_view value, int line) {
    double megabytes = 0.0;
    if (!parse_whole(value, megabytes) || !std::isfinite(megabytes) || megabytes <= 0.0 ||
        megabytes > largest_max_size_mb) {
      settings_.max_size_bytes = 0;
      max_size_line_ = 0;
      problem(line, "bad value " + quoted(value) +
                        " for max_size_mb (expected a positive number of megabytes); no rotation");
      return;
    }
    max_size_line_ = line;
    settings_.max_size_bytes = static_cast<std::uint64_t>(megabytes * bytes_per_megabyte);
    if (settings_.max_size_bytes < smallest_max_size_bytes) {
      settings_.max_size_bytes = smallest_max_size_bytes;
      std::string const smallest = std::to_string(smallest_max_size_bytes / 1024) + " KiB";
      problem(line, "max_size_mb " + quoted(value) + " is below the smallest file of " + smallest +
                        "; using " + smallest);
    }
  }

  void parse_max_files(std::string_view value, int line) {
    std::uint64_t files = 0;
    if (!parse_whole(value, files)) {
      settings_.max_files = default_max_files;
      problem(line, "bad value " + quoted(value) + " for max_files (expected 0 to " +
                        std::to_string(largest_max_files) + "); using " +
                        std::to_string(default_max_files));
      return;
    }
    max_files_line_ = line;
    settings_.max_files =
        static_cast<std::size_t>(std::min<std::uint64_t>(files, largest_max_files));
    if (files > largest_max_files) {
      std::string const largest = std::to_string(largest_max_files);
      problem(line, "max_files " + quoted(value) + " is above the largest of " + largest +
                        "; using " + largest);
    }
  }

  Logger_settings settings_;
  int max_size_line_ = 0;
  int max_files_line_ = 0;
};

}  // namespace

Logger_settings parse_settings(std::string_view text, std::string const& config_path) {
  Settings_parser parser(config_path);
  int line = 0;
  while (!text.empty()) {
    std::size_t const end = text.find('\n');
    parser.parse_line(text.substr(0, end), ++line);
    if (end == std::string_view::npos) {
      break;
    }
    text.remove_prefix(end + 1);
  }
  return parser.finish();
}

}  // namespace oqa_logger
