// One open log: its level, its record format and the spdlog logger that
// writes to its sink.
#pragma once

#include <spdlog/logger.h>

#include <string>

#include "log_output.h"
#include "logger_settings.h"
#include "record_format.h"

namespace oqa_logger {

class Log {
 public:
  Log(std::string const& module, std::string const& instance, int level, Opened_output output);
  Log(Log const&) = delete;
  Log& operator=(Log const&) = delete;

  // 0 when accepted (also when dropped by the level), -1 for a priority
  // outside 0..7. Null strings are written as empty ones.
  int write(int priority, char const* file, int line, char const* function,
            char const* message) noexcept;

  // Reports a configuration problem whatever the level, since it explains
  // why the log may not behave as configured.
  void report(Config_problem const& problem) noexcept;

 private:
  void write_record(int priority, char const* file, int line, char const* function,
                    char const* message) noexcept;

  int level_;
  Record_formatter formatter_;
  spdlog::logger logger_;
};

}  // namespace oqa_logger
