// Where a log's configuration file is found, and reading it.
#pragma once

#include <optional>
#include <string>

#include "logger_settings.h"

namespace oqa_logger {

inline constexpr char const* config_environment_variable = "OSTREVAN_OQA_LOGGER_CONFIG";

// The places searched, in order. Null or empty strings are skipped. The
// working directory is not one of them: a folder of downloaded files could
// then choose where the log is written.
struct Config_search {
  char const* explicit_path = nullptr;  // the environment variable's value
  std::string file_name;                // as the module named it
  char const* xdg_config_home = nullptr;
  char const* home = nullptr;
  std::string system_directory = "/etc/ostrevan";
};

// The search this process asks for, read from its environment.
Config_search config_search_from_environment(char const* file_name);

// The explicit path whenever one is given (a missing file there is reported
// when it is read, not passed over); otherwise the first regular file named
// file_name in $XDG_CONFIG_HOME/ostrevan (or $HOME/.config/ostrevan), then
// in the system directory.
std::optional<std::string> find_config_file(Config_search const& search);

// The settings from the file at path; a file that cannot be read (missing,
// not a regular file, larger than any real configuration) gives the
// defaults and one problem saying why.
Logger_settings read_settings_file(std::string const& path);

// Finds and reads the configuration; no file at all gives the defaults.
Logger_settings load_settings(Config_search const& search);

}  // namespace oqa_logger
