#include "diagnostics/oqa_timer.h"

#include <chrono>

namespace {
// The wall clock, not a monotonic one: the record reports calendar time spent.
std::int64_t system_clock_nanoseconds() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}
}  // namespace

OQATimer::OQATimer(char const* name_argument, Oqa_log_object const* logger_argument,
                   char const* file_argument, int line_argument, char const* function_argument)
    : name(name_argument),
      logger(logger_argument),
      file(file_argument),
      line(line_argument),
      function(function_argument),
      start(system_clock_nanoseconds()) {}

OQATimer::~OQATimer() {
  std::int64_t const elapsed = system_clock_nanoseconds() - start;
  try {
    logger->log(OQA_LOG_TIMING, file, line, function, "%s takes %f microseconds.", name,
                whole_microseconds(elapsed));
  } catch (...) {  // NOLINT(bugprone-empty-catch): a destructor must not throw
  }
}
