// The library's three C entries. Nothing may escape them: every exception
// is caught here and turned into a null log or a non-zero result.
#include <memory>
#include <mutex>
#include <string>

#include "config_search.h"
#include "log_registry.h"
#include "ostrevan_oqa_logger.h"

namespace {

// Plain pointers and a constant-initialised mutex: nothing here needs a
// destructor, so a late oqa_free_log (from another library's teardown at
// process exit, after this library's own teardown) still finds a valid,
// empty state. The registry exists only while a log is open, so a library
// closed with all its logs freed holds no memory.
constinit std::mutex registry_mutex;
constinit oqa_logger::Log_registry* registry = nullptr;
constinit bool torn_down = false;

// Flushes and closes the logs nobody freed when the library is unloaded or
// the process exits.
struct Teardown {
  Teardown() = default;
  Teardown(Teardown const&) = delete;
  Teardown& operator=(Teardown const&) = delete;
  ~Teardown() {
    std::lock_guard const lock(registry_mutex);
    torn_down = true;
    delete registry;
    registry = nullptr;
  }
};
Teardown teardown;

std::string or_empty(char const* text) { return text != nullptr ? text : ""; }

}  // namespace

extern "C" void* oqa_get_log(char const* module_name, char const* instance_name,
                             char const* config_file_name) {
  try {
    std::string const module = or_empty(module_name);
    std::string const instance = or_empty(instance_name);
    oqa_logger::Config_search const search =
        oqa_logger::config_search_from_environment(config_file_name);
    std::lock_guard const lock(registry_mutex);
    if (torn_down) {
      return nullptr;
    }
    if (registry == nullptr) {
      registry = new oqa_logger::Log_registry;
    }
    try {
      return registry->open(module, instance, search);
    } catch (...) {
      if (registry->empty()) {
        delete registry;
        registry = nullptr;
      }
      throw;
    }
  } catch (...) {
    return nullptr;
  }
}

extern "C" int oqa_log(void* log, int priority, char const* file, int line, char const* function,
                       char const* message) {
  if (log == nullptr) {
    return -1;
  }
  return static_cast<oqa_logger::Log*>(log)->write(priority, file, line, function, message);
}

extern "C" void oqa_free_log(char const* module_name, char const* instance_name) {
  try {
    std::string const module = or_empty(module_name);
    std::string const instance = or_empty(instance_name);
    std::lock_guard const lock(registry_mutex);
    if (registry == nullptr) {
      return;
    }
    registry->close(module, instance);
    if (registry->empty()) {
      delete registry;
      registry = nullptr;
    }
  } catch (...) {  // NOLINT(bugprone-empty-catch): closing must never fail the caller
  }
}
