// Stand-in for the logger library, opened by the demosaic library under the
// logger's file name: it only counts records so that the fuzzer can check
// how many of which priority every call produced.
#include <mutex>
#include <utility>

#include "counting_logger.h"

namespace {
std::mutex summary_mutex;
Oqa_fuzz_log_summary summary;
int log_object;  // its address is the opaque log handle
}  // namespace

extern "C" {

__attribute__((visibility("default"))) void* oqa_get_log(char const*, char const*, char const*) {
  return &log_object;
}

__attribute__((visibility("default"))) int oqa_log(void* log, int priority, char const*, int,
                                                   char const* function, char const* message) {
  std::lock_guard<std::mutex> const lock(summary_mutex);
  if (log != &log_object) {
    return 1;
  }
  if (priority == 2) {
    ++summary.error_records;
    summary.last_error_message = message;
  } else if (priority == 7) {
    ++summary.timing_records;
  } else {
    ++summary.other_records;
  }
  summary.last_function = function;
  return 0;
}

__attribute__((visibility("default"))) void oqa_free_log(char const*, char const*) {}

__attribute__((visibility("default"))) void oqa_fuzz_take_log_summary(Oqa_fuzz_log_summary* taken) {
  std::lock_guard<std::mutex> const lock(summary_mutex);
  *taken = std::exchange(summary, Oqa_fuzz_log_summary{});
}

}  // extern "C"
