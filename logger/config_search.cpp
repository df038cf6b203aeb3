#include "config_search.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <vector>

namespace oqa_logger {
namespace {

// Far more than five keys with comments need; bounds what a file can make
// this library allocate.
constexpr std::size_t largest_config_bytes = 64 * 1024;

bool is_set(char const* value) { return value != nullptr && value[0] != '\0'; }

bool names_regular_file(std::filesystem::path const& path) {
  std::error_code error;
  return std::filesystem::is_regular_file(path, error);
}

// The whole file into text; an empty result, or why not.
std::string read_whole_file(std::string const& path, std::string& text) {
  // O_NONBLOCK: a FIFO in the file's place is refused below, not waited on.
  int const descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (descriptor < 0) {
    return std::strerror(errno);
  }
  struct stat status {};
  bool const regular = ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
  int error = 0;
  std::size_t length = 0;
  if (regular) {
    // One byte past the limit tells a file that is too large.
    text.resize(largest_config_bytes + 1);
    while (length < text.size()) {
      ssize_t const count = ::read(descriptor, text.data() + length, text.size() - length);
      if (count > 0) {
        length += static_cast<std::size_t>(count);
      } else if (count == 0 || errno != EINTR) {
        error = count < 0 ? errno : 0;
        break;
      }
    }
    text.resize(length);
  }
  ::close(descriptor);
  if (!regular) {
    return "not a regular file";
  }
  if (error != 0) {
    return std::strerror(error);
  }
  if (length > largest_config_bytes) {
    return "larger than " + std::to_string(largest_config_bytes / 1024) + " KiB";
  }
  return {};
}

}  // namespace

Config_search config_search_from_environment(char const* file_name) {
  Config_search search;
  search.explicit_path = std::getenv(config_environment_variable);
  search.file_name = file_name != nullptr ? file_name : "";
  search.xdg_config_home = std::getenv("XDG_CONFIG_HOME");
  search.home = std::getenv("HOME");
  return search;
}

std::optional<std::string> find_config_file(Config_search const& search) {
  if (is_set(search.explicit_path)) {
    return std::string(search.explicit_path);
  }
  if (search.file_name.empty()) {
    return std::nullopt;
  }
  std::vector<std::filesystem::path> candidates;
  // A relative XDG_CONFIG_HOME is invalid by the base-directory rules and is
  // ignored in favour of the home directory's default.
  if (is_set(search.xdg_config_home) && search.xdg_config_home[0] == '/') {
    candidates.emplace_back(std::filesystem::path(search.xdg_config_home) / "ostrevan" /
                            search.file_name);
  } else if (is_set(search.home)) {
    candidates.emplace_back(std::filesystem::path(search.home) / ".config" / "ostrevan" /
                            search.file_name);
  }
  if (!search.system_directory.empty()) {
    candidates.emplace_back(std::filesystem::path(search.system_directory) / search.file_name);
  }
  for (std::filesystem::path const& candidate : candidates) {
    if (names_regular_file(candidate)) {
      return candidate.string();
    }
  }
  return std::nullopt;
}

Logger_settings read_settings_file(std::string const& path) {
  std::string text;
  std::string const why = read_whole_file(path, text);
  if (!why.empty()) {
    Logger_settings defaults;
    defaults.config_path = path;
    defaults.problems.push_back({path, 0, "cannot read configuration file: " + why});
    return defaults;
  }
  return parse_settings(text, path);
}

Logger_settings load_settings(Config_search const& search) {
  std::optional<std::string> const path = find_config_file(search);
  if (!path) {
    return {};
  }
  return read_settings_file(*path);
}

}  // namespace oqa_logger
