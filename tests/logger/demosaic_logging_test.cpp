// The logger library as the demosaic library uses it: freed at process exit
// while other threads log, unloaded by every last terminate, and given one
// record per call with every field right.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "ostrevan_oqa_demosaic.h"
#include "ostrevan_oqa_logger.h"
#include "support/logger_test.h"

namespace {

using namespace oqa_logger_test;

constexpr char const* module = "OSTREVAN_OQA_DEMOSAIC";

struct Logger_library {
  void* handle = dlopen(LOGGER_LIBRARY_PATH, RTLD_LAZY);
  decltype(oqa_get_log)* get_log =
      reinterpret_cast<decltype(get_log)>(dlsym(handle, "oqa_get_log"));
  decltype(oqa_log)* write_log = reinterpret_cast<decltype(write_log)>(dlsym(handle, "oqa_log"));
  decltype(oqa_free_log)* free_log =
      reinterpret_cast<decltype(free_log)>(dlsym(handle, "oqa_free_log"));
};

// Defined when LeakSanitizer is linked in.
extern "C" __attribute__((weak)) void __lsan_do_leak_check();

// The demosaic library's holders are set up when it is loaded, before it
// opens the logger library, and free their log when the process exits,
// while other threads may still be logging.
Logger_library const* exiting_library = nullptr;
void free_at_exit() { exiting_library->free_log(module, ""); }

TEST(Logger_exit, WhileAnotherThreadLogsIsClean) {
  Scratch_folder const scratch;
  use_config(scratch, "output = out.log\nlevel = 7\n");
  for (int attempt = 0; attempt < 50; ++attempt) {
    pid_t const child = fork();
    if (child == 0) {
      std::atexit(free_at_exit);
      static Logger_library const library;
      exiting_library = &library;
      void* const log = library.get_log(module, "", "logger.cfg");
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
    EXPECT_EQ(status, 0) << "attempt " << attempt;
  }
  for (std::string const& line : read_lines(scratch / "out.log")) {
    ASSERT_TRUE(std::regex_match(line, text_record)) << line;
  }
}

struct Logged {
  int width;  // 1 is refused
  int code;
  std::string priority;
  std::string message;    // a regular expression
  char const* in_source;  // on the lines around the record's own
};
class Logged_calls : public testing::TestWithParam<Logged> {};

std::ptrdiff_t thread_count() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

// One call between an initialise and the terminate that unloads the logger
// library gives one record.
TEST_P(Logged_calls, GiveOneRecordWithEveryFieldRight) {
  std::ptrdiff_t const threads = thread_count();
  Scratch_folder const scratch;
  use_config(scratch, "output = demosaic.log\nlevel = 7\n");
  std::vector<unsigned short> input(64 * 48, 1000);
  std::vector<unsigned short> output(3 * 64 * 48, 0);
  qn_demosaic_module_initialize();
  EXPECT_EQ(qn_demosaic_transform_16_to_48(
                GetParam().width, 48, 0, 0, QN_CFA_PHASE_RED, QN_COLOR_FORMAT_BGR_INTERLEAVED,
                QN_COLOR_FILTER_TYPE_BAYER, 12, input.data(), output.data()),
            GetParam().code);
  qn_demosaic_module_terminate();
  // Really unloaded, leaving no thread and (under the sanitizers) no leak.
  EXPECT_EQ(dlopen(LOGGER_LIBRARY_PATH, RTLD_LAZY | RTLD_NOLOAD), nullptr);
  EXPECT_EQ(thread_count(), threads);

  std::vector<std::string> const lines = read_lines(scratch / "demosaic.log");
  ASSERT_EQ(lines.size(), 1U);
  std::smatch fields;
  ASSERT_TRUE(std::regex_match(
      lines[0], fields,
      std::regex(time_pattern + " \\[" + GetParam().priority + "\\] OSTREVAN_OQA_DEMOSAIC pid=" +
                 std::to_string(getpid()) + " tid=" + std::to_string(syscall(SYS_gettid)) +
                 " (.*/ostrevan_oqa_demosaic\\.cpp):(\\d+) demosaic_transform_impl: " +
                 GetParam().message)))
      << lines[0];
  // The line is the one of the log call (or the timer) that wrote the record.
  std::vector<std::string> const source = read_lines(fields[1]);
  std::size_t const line = std::stoul(fields[2]);
  ASSERT_TRUE(line >= 2 && line < source.size()) << lines[0];
  EXPECT_NE((source[line - 2] + source[line - 1] + source[line]).find(GetParam().in_source),
            std::string::npos);
}

// Every refusal goes through one log call, and the messages themselves are
// checked with the demosaic library's tests; here, that records arrive
// through the real logger from the right lines.
INSTANTIATE_TEST_SUITE_P(
    Calls, Logged_calls,
    testing::Values(Logged{1, QN_DEMOSAIC_INVALID_IMAGE_WIDTH, "2 crit",
                           R"(ERROR:  Illegal input image width \(1\) specified!)", "log->log("},
                    Logged{64, QN_DEMOSAIC_NO_ERROR, "7 debug",
                           R"(demosaic takes -?\d+\.000000 microseconds\.)",
                           "timer(\"demosaic\""}));

}  // namespace
