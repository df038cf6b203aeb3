// The logger library as the demosaic library uses it: opened by name on
// every first initialise, closed on every last terminate, and freed from the
// demosaic library's teardown when the process exits.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <string>
#include <thread>

#include "support/record_patterns.h"
#include "support/scratch.h"

namespace {

using namespace oqa_logger_test;

constexpr char const* module = "OSTREVAN_OQA_DEMOSAIC";
constexpr char const* config_name = "ostrevan_oqa_logger.cfg";

struct Logger_library {
  void* handle = dlopen(LOGGER_LIBRARY_PATH, RTLD_LAZY);
  void* (*get_log)(char const*, char const*,
                   char const*) = reinterpret_cast<decltype(get_log)>(dlsym(handle, "oqa_get_log"));
  int (*write_log)(void*, int, char const*, int, char const*,
                   char const*) = reinterpret_cast<decltype(write_log)>(dlsym(handle, "oqa_log"));
  void (*free_log)(char const*,
                   char const*) = reinterpret_cast<decltype(free_log)>(dlsym(handle,
                                                                             "oqa_free_log"));
  bool loaded() const { return get_log != nullptr && write_log != nullptr && free_log != nullptr; }
};

std::size_t thread_count() {
  std::size_t count = 0;
  for ([[maybe_unused]] auto const& entry :
       std::filesystem::directory_iterator("/proc/self/task")) {
    ++count;
  }
  return count;
}

class Reload : public testing::Test {
 protected:
  Scratch_directory const scratch_;
  Scoped_environment const config_{"OSTREVAN_OQA_LOGGER_CONFIG", (scratch_ / "logger.cfg").c_str()};
  Reload() { write_file(scratch_ / "logger.cfg", "output = out.log\nlevel = 7\n"); }
};

// Each close must really unload the library, leaving no thread and (under
// the sanitizers) no leak behind.
TEST_F(Reload, EveryCloseUnloadsTheLibrary) {
  std::size_t const threads_before = thread_count();
  constexpr int cycles = 20;
  for (int cycle = 0; cycle < cycles; ++cycle) {
    Logger_library const library;
    ASSERT_TRUE(library.loaded()) << dlerror();
    void* const log = library.get_log(module, "", config_name);
    ASSERT_NE(log, nullptr);
    EXPECT_EQ(library.write_log(log, 7, "f", cycle, "fn", "cycle"), 0);
    library.free_log(module, "");
    ASSERT_EQ(dlclose(library.handle), 0);
    EXPECT_EQ(dlopen(LOGGER_LIBRARY_PATH, RTLD_LAZY | RTLD_NOLOAD), nullptr)
        << "still loaded after cycle " << cycle;
    EXPECT_EQ(thread_count(), threads_before);
  }
  EXPECT_EQ(read_lines(scratch_ / "out.log").size(), static_cast<std::size_t>(cycles));
}

// Defined when LeakSanitizer is linked in.
extern "C" __attribute__((weak)) void __lsan_do_leak_check();

// The demosaic library's holders are set up when it is loaded, before it
// opens the logger library, and free their log when the process exits,
// while other threads may still be logging.
Logger_library const* exiting_library = nullptr;
void free_at_exit() { exiting_library->free_log(module, ""); }

TEST_F(Reload, ExitWhileAnotherThreadLogsIsClean) {
  constexpr int runs = 50;
  for (int run = 0; run < runs; ++run) {
    pid_t const child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      std::atexit(free_at_exit);
      static Logger_library const library;
      exiting_library = &library;
      void* const log = library.get_log(module, "", config_name);
      // LeakSanitizer's check at exit cannot read the dynamic TLS of a thread
      // still running in a dlopen'd library; a check now takes its place.
      if (__lsan_do_leak_check != nullptr) __lsan_do_leak_check();
      static std::atomic<int> written{0};
      std::thread([log] {
        for (;;) {
          exiting_library->write_log(log, 7, "f.cpp", 1, "fn", "looping");
          ++written;
        }
      }).detach();
      while (written < 100) std::this_thread::yield();
      std::exit(0);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "run " << run << ": " << status;
  }
  for (std::string const& line : read_lines(scratch_ / "out.log")) {
    ASSERT_TRUE(std::regex_match(line, text_record)) << line;
  }
}

}  // namespace
