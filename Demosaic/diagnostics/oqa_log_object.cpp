#include "diagnostics/oqa_log_object.h"

#include <dlfcn.h>

#include <cstdarg>
#include <cstdio>

namespace {
using Oqa_get_log_function = void* (*)(char const* module_name, char const* instance_name,
                                       char const* config_file_name);
using Oqa_free_log_function = void (*)(char const* module_name, char const* instance_name);

constexpr char const* logger_library_file = "libostrevan_oqa_logger.so";
constexpr char const* logger_config_file = "ostrevan_oqa_logger.cfg";
}  // namespace

Oqa_log_object::Oqa_log_object(char const* module_name_argument)
    : module_name(module_name_argument), config_file_name(logger_config_file) {
  library_handle = dlopen(logger_library_file, RTLD_LAZY);
  if (library_handle == nullptr) {
    return;
  }
  auto const get_log = reinterpret_cast<Oqa_get_log_function>(dlsym(library_handle, "oqa_get_log"));
  if (get_log == nullptr) {
    return;
  }
  log_handle = get_log(module_name.c_str(), instance_name.c_str(), config_file_name.c_str());
  if (log_handle == nullptr) {
    return;
  }
  log_function = reinterpret_cast<Oqa_log_function>(dlsym(library_handle, "oqa_log"));
  if (log_function == nullptr) {
    return;
  }
  ready = true;
}

Oqa_log_object::~Oqa_log_object() {
  if (library_handle == nullptr) {
    return;
  }
  try {
    auto const free_log =
        reinterpret_cast<Oqa_free_log_function>(dlsym(library_handle, "oqa_free_log"));
    if (free_log != nullptr) {
      free_log(module_name.c_str(), instance_name.c_str());
    }
    dlclose(library_handle);
  } catch (...) {  // NOLINT(bugprone-empty-catch): a destructor must not throw
  }
}

bool Oqa_log_object::log(OQA_LOG_PRIORITY priority, char const* file, int line,
                         char const* function, char const* format, ...) const {
  if (!ready) {
    return false;
  }
  // Formatted once into a buffer on the stack, which holds every message
  // the library writes; a longer one is formatted again into a string of
  // exactly its length, so a message of any length is passed whole.
  char buffer[256];
  va_list arguments;
  va_start(arguments, format);
  // The analyser misses va_start on x86-64's array-typed va_list.
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized)
  int const length = std::vsnprintf(buffer, sizeof buffer, format, arguments);
  va_end(arguments);
  if (length < 0) {
    return false;
  }
  std::string long_message;
  char const* message = buffer;
  if (static_cast<std::size_t>(length) >= sizeof buffer) {
    long_message.resize(static_cast<std::size_t>(length));
    va_start(arguments, format);
    std::vsnprintf(long_message.data(), long_message.size() + 1, format, arguments);
    va_end(arguments);
    message = long_message.c_str();
  }
  return log_function(log_handle, static_cast<int>(priority), file, line, function, message) == 0;
}
