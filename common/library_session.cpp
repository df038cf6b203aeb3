#include "library_session.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <sched.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstring>
#include <exception>
#include <filesystem>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>

#include "cpu_support.h"
#include "ostrevan_oqa_demosaic.h"

namespace oqa_session {

std::string library_folder() {
  // The address of an exported function may be a stub in the program that
  // calls it, so ask the loader for the library itself by its soname.
  void* const handle = dlopen(OQA_LIBRARY_SONAME, RTLD_LAZY | RTLD_NOLOAD);
  if (handle == nullptr) {
    return "/";
  }
  const link_map* map = nullptr;
  std::string folder = "/";
  if (dlinfo(handle, RTLD_DI_LINKMAP, &map) == 0 && map != nullptr && map->l_name != nullptr) {
    std::error_code error;
    const std::filesystem::path path = std::filesystem::canonical(map->l_name, error);
    if (!error && path.has_parent_path()) {
      folder = path.parent_path().string();
    }
  }
  dlclose(handle);
  return folder;
}

namespace {

[[noreturn]] void throw_errno(const char* what, int error) {
  throw std::runtime_error(std::string(what) + ": " + std::strerror(error));
}

// Enters `folder` (or, failing that, the root folder) for the calling thread,
// or for the whole process when the thread shares its working folder.
void enter(const std::string& folder) {
  if (::chdir(folder.c_str()) != 0 && ::chdir("/") != 0) {
    throw_errno("cannot leave the working folder to initialise the demosaic library", errno);
  }
}

// Some container sandboxes refuse unshare(). Then the whole process moves to
// the library's folder for the call and back; other threads that use relative
// paths meanwhile would see the library's folder, so this is only the fallback.
int initialise_with_the_process_in(const std::string& folder) {
  static std::mutex one_at_a_time;
  const std::lock_guard<std::mutex> lock(one_at_a_time);
  const int working_folder = ::open(".", O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (working_folder < 0) {
    throw_errno("cannot open the working folder", errno);
  }
  int result = -1;
  try {
    enter(folder);
    result = qn_demosaic_module_initialize();
  } catch (...) {
    static_cast<void>(::fchdir(working_folder));
    ::close(working_folder);
    throw;
  }
  const bool returned = ::fchdir(working_folder) == 0;
  const int error = errno;
  ::close(working_folder);
  if (!returned) {
    throw_errno("cannot return to the working folder", error);
  }
  return result;
}

}  // namespace

int initialise_library() {
  const std::string folder = library_folder();
  int result = -1;
  int refused = 0;
  std::exception_ptr failure;
  std::thread([&] {
    // CLONE_FS gives this thread its own working folder.
    if (::unshare(CLONE_FS) != 0) {
      refused = errno;
      return;
    }
    try {
      enter(folder);
      result = qn_demosaic_module_initialize();
    } catch (...) {
      failure = std::current_exception();
    }
  }).join();
  if (failure) {
    std::rethrow_exception(failure);
  }
  return refused != 0 ? initialise_with_the_process_in(folder) : result;
}

namespace {

template <typename Value, std::size_t count>
std::optional<Value> look_up(std::string_view name,
                             const std::pair<std::string_view, Value> (&table)[count]) {
  for (const auto& [known, value] : table) {
    bool same = known.size() == name.size();
    for (std::size_t i = 0; same && i < name.size(); ++i) {
      same = std::tolower(static_cast<unsigned char>(name[i])) ==
             std::tolower(static_cast<unsigned char>(known[i]));
    }
    if (same) {
      return value;
    }
  }
  return std::nullopt;
}

}  // namespace

std::optional<QN_COLOR_FILTER_ARRAY_PHASE> parse_pattern(std::string_view name) {
  constexpr std::pair<std::string_view, QN_COLOR_FILTER_ARRAY_PHASE> patterns[] = {
      {"RGGB", QN_CFA_PHASE_RED},
      {"BGGR", QN_CFA_PHASE_BLUE},
      {"GRBG", QN_CFA_PHASE_GREEN_IN_RED_ROW},
      {"GBRG", QN_CFA_PHASE_GREEN_IN_BLUE_ROW}};
  return look_up(name, patterns);
}

std::optional<QN_COLOR_FORMAT> parse_layout(std::string_view name) {
  constexpr std::pair<std::string_view, QN_COLOR_FORMAT> layouts[] = {
      {"bgr-planar", QN_COLOR_FORMAT_BGR_PLANAR},
      {"bgr", QN_COLOR_FORMAT_BGR_INTERLEAVED},
      {"rgb", QN_COLOR_FORMAT_RGB_INTERLEAVED}};
  return look_up(name, layouts);
}

std::optional<int> parse_level(std::string_view name) {
  if (name == "auto") {
    return automatic_level;
  }
  for (std::size_t level = 0; level < level_names.size(); ++level) {
    if (name == level_names[level]) {
      return static_cast<int>(level);
    }
  }
  return std::nullopt;
}

std::vector<int> usable_levels() {
  const std::string folder = library_folder();
  const oqa_vector::Processor_words words = oqa_vector::read_processor_words();
  std::vector<int> levels{0};
  for (int level = 1; level < static_cast<int>(level_names.size()); ++level) {
    const std::string companion = folder + "/libostrevan_oqa_demosaic_vector_" +
                                  std::string(level_names[static_cast<std::size_t>(level)]) + ".so";
    if (oqa_vector::processor_supports(static_cast<oqa_vector::Vector_level>(level), words) &&
        ::access(companion.c_str(), R_OK) == 0) {
      levels.push_back(level);
    }
  }
  return levels;
}

}  // namespace oqa_session
