// Client of the optional logger library. Without that library the object
// stays in place and log() quietly does nothing.
#ifndef OQA_DEMOSAIC_DIAGNOSTICS_OQA_LOG_OBJECT_H
#define OQA_DEMOSAIC_DIAGNOSTICS_OQA_LOG_OBJECT_H

#include <string>

// Priorities follow the logger library's scheme; these are the two in use.
enum OQA_LOG_PRIORITY : int {
  OQA_LOG_ERROR = 2,
  OQA_LOG_TIMING = 7,
};

// The logger library takes the priority as a plain int.
using Oqa_log_function = int (*)(void* log, int priority, char const* file, int line,
                                 char const* function, char const* message);

class Oqa_log_object {
 public:
  explicit Oqa_log_object(char const* module_name);
  ~Oqa_log_object();
  Oqa_log_object(Oqa_log_object const&) = delete;
  Oqa_log_object& operator=(Oqa_log_object const&) = delete;

  // Formats the message printf-style and hands it, unchanged and without any
  // prefix, to the logger library. True when the library accepted it.
  // Variadic arguments are not read when the object is not ready.
  bool log(OQA_LOG_PRIORITY priority, char const* file, int line, char const* function,
           char const* format, ...) const __attribute__((format(printf, 6, 7)));

  void* library_handle = nullptr;
  void* log_handle = nullptr;
  Oqa_log_function log_function = nullptr;
  bool ready = false;
  std::string module_name;
  std::string instance_name;
  std::string config_file_name;
};

#endif  // OQA_DEMOSAIC_DIAGNOSTICS_OQA_LOG_OBJECT_H
