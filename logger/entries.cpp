// The library's three C entries. Nothing may escape them: every exception
// is caught here and turned into a null log or a non-zero result.
#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "config_search.h"
#include "descriptor_sink.h"
#include "log_registry.h"
#include "ostrevan_oqa_logger.h"

namespace {

// Plain pointers, flags and a constant-initialised mutex: nothing here frees
// anything, so neither unloading nor process exit tears anything down
// under a thread that is still logging. The registry exists only while a log
// is open, so a library closed with all its logs freed holds no memory.
constinit std::mutex registry_mutex;
constinit oqa_logger::Log_registry* registry = nullptr;
// Atomic: set without the lock, which a thread of a forked child's parent
// may have held when the child was made.
constinit std::atomic<bool> process_exiting{false};

// Once exit has begun, another library's teardown may free a log (the
// demosaic library's holders do) while its other threads still write to it.
// From then on the logs are left to the operating system: every record is
// already written, and the descriptors close with the process; only the
// exiting thread still writes, so that exit cuts no record short. The watch is
// a function-local static of the first open, so its destructor runs before
// the teardown of any module set up before it opened a log (and, like every
// destructor of this library, when the library is unloaded).
struct Exit_watch {
  ~Exit_watch() {
    process_exiting = true;
    oqa_logger::stop_other_writers();
  }
};

std::string or_empty(char const* text) { return text != nullptr ? text : ""; }

}  // namespace

extern "C" void* oqa_get_log(char const* module_name, char const* instance_name,
                             char const* config_file_name) {
  try {
    std::string const module = or_empty(module_name);
    std::string const instance = or_empty(instance_name);
    oqa_logger::Config_search const search =
        oqa_logger::config_search_from_environment(config_file_name);
    static Exit_watch const exit_watch;
    std::lock_guard const lock(registry_mutex);
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
    if (registry == nullptr || process_exiting) {
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
