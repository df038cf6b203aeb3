// A logger library that records every call into the shared test state.
#include <mutex>
#include <string>

#include "test_doubles_control.h"

namespace {
std::mutex record_mutex;
int log_object;  // its address is the opaque log handle
}  // namespace

extern "C" {

OQA_TEST_DOUBLES_API void* oqa_get_log(char const* module_name, char const* instance_name,
                                       char const* config_file_name) {
  std::lock_guard<std::mutex> const lock(record_mutex);
  test_doubles::state().events.push_back(std::string("open ") + module_name + " [" + instance_name +
                                         "] " + config_file_name);
  return test_doubles::state().logger_open_fails ? nullptr : &log_object;
}

OQA_TEST_DOUBLES_API int oqa_log(void* log, int priority, char const* file, int line,
                                 char const* function, char const* message) {
  std::lock_guard<std::mutex> const lock(record_mutex);
  if (log != &log_object) return 1;
  test_doubles::state().records.push_back({priority, file, line, function, message});
  return 0;
}

OQA_TEST_DOUBLES_API void oqa_free_log(char const* module_name, char const* instance_name) {
  std::lock_guard<std::mutex> const lock(record_mutex);
  test_doubles::state().events.push_back(std::string("free ") + module_name + " [" + instance_name +
                                         "]");
}

}  // extern "C"
