// The demosaic library opens and closes the logger library on every full
// initialise/terminate cycle: each close must really unload it, leaving no
// thread and (under the sanitizers) no leak behind.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "support/scratch.h"

namespace {

using namespace oqa_logger_test;

using Get_log = void* (*)(char const*, char const*, char const*);
using Write_log = int (*)(void*, int, char const*, int, char const*, char const*);
using Free_log = void (*)(char const*, char const*);

std::size_t thread_count() {
  std::size_t count = 0;
  for ([[maybe_unused]] auto const& entry :
       std::filesystem::directory_iterator("/proc/self/task")) {
    ++count;
  }
  return count;
}

class Reload : public testing::TestWithParam<bool> {};

TEST_P(Reload, EveryCloseUnloadsTheLibrary) {
  bool const free_before_close = GetParam();
  Scratch_directory const scratch;
  write_file(scratch / "logger.cfg", "output = out.log\nlevel = 7\n");
  Scoped_environment const config("OSTREVAN_OQA_LOGGER_CONFIG", (scratch / "logger.cfg").c_str());
  std::size_t const threads_before = thread_count();
  constexpr int cycles = 20;
  for (int cycle = 0; cycle < cycles; ++cycle) {
    void* const library = dlopen(LOGGER_LIBRARY_PATH, RTLD_LAZY);
    ASSERT_NE(library, nullptr) << dlerror();
    auto const get_log = reinterpret_cast<Get_log>(dlsym(library, "oqa_get_log"));
    auto const write_log = reinterpret_cast<Write_log>(dlsym(library, "oqa_log"));
    auto const free_log = reinterpret_cast<Free_log>(dlsym(library, "oqa_free_log"));
    ASSERT_TRUE(get_log != nullptr && write_log != nullptr && free_log != nullptr);
    void* const log = get_log("OSTREVAN_OQA_DEMOSAIC", "", "ostrevan_oqa_logger.cfg");
    ASSERT_NE(log, nullptr);
    EXPECT_EQ(write_log(log, 7, "f", cycle, "fn", "cycle"), 0);
    if (free_before_close) free_log("OSTREVAN_OQA_DEMOSAIC", "");
    ASSERT_EQ(dlclose(library), 0);
    EXPECT_EQ(dlopen(LOGGER_LIBRARY_PATH, RTLD_LAZY | RTLD_NOLOAD), nullptr)
        << "still loaded after cycle " << cycle;
    EXPECT_EQ(thread_count(), threads_before);
  }
  // A log left open is flushed when its library goes away.
  EXPECT_EQ(read_lines(scratch / "out.log").size(), static_cast<std::size_t>(cycles));
}

INSTANTIATE_TEST_SUITE_P(FreedOrNot, Reload, testing::Bool());

}  // namespace
