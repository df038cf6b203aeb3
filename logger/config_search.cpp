#include "config_search.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <vector>

namespace oqa_logger {
namespace {

bool is_set(char const* value) { return value != nullptr && value[0] != '\0'; }

bool names_regular_file(std::filesystem::path const& path) {
  std::error_code error;
  return std::filesystem::is_regular_file(path, error);
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
  candidates.emplace_back(std::filesystem::path(search.working_directory) / search.file_name);
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
  std::string why;
  std::error_code error;
  std::filesystem::file_status const status = std::filesystem::status(path, error);
  std::ifstream file;
  if (error) {
    why = error.message();
  } else if (!std::filesystem::is_regular_file(status)) {
    why = "not a regular file";
  } else {
    file.open(path, std::ios::binary);
    if (!file) {
      why = std::strerror(errno);
    }
  }
  if (!why.empty()) {
    Logger_settings defaults;
    defaults.config_path = path;
    defaults.problems.push_back({path, 0, "cannot read configuration file: " + why});
    return defaults;
  }
  std::string const text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
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
