// Shared state of the test doubles: the fake companions and the capture
// logger record into it, the tests set behaviour and read it back. It is one
// shared library, so every double and the test see the same instance.
#ifndef OQA_TESTS_LIBRARY_DOUBLES_TEST_DOUBLES_CONTROL_H
#define OQA_TESTS_LIBRARY_DOUBLES_TEST_DOUBLES_CONTROL_H

#include <atomic>
#include <string>
#include <vector>

#define OQA_TEST_DOUBLES_API __attribute__((visibility("default")))

namespace test_doubles {

// Atomic: concurrent transforms count at once.
struct Companion_counters {
  std::atomic<int> initialize{0};
  std::atomic<int> transform{0};
  std::atomic<int> terminate{0};
};

struct Logged_record {
  int priority = 0;
  std::string file;
  int line = 0;
  std::string function;
  std::string message;
};

// level: 1 SSE, 2 AVX2, 3 AVX-512.
OQA_TEST_DOUBLES_API Companion_counters& companion_counters(int level);
OQA_TEST_DOUBLES_API int& companion_initialize_result(int level);
OQA_TEST_DOUBLES_API bool& companion_transform_throws(int level);

OQA_TEST_DOUBLES_API std::vector<Logged_record>& logged_records();
OQA_TEST_DOUBLES_API bool& logger_open_fails();

// Every entry of every double appends one line, in call order: "open MODULE
// INSTANCE CONFIG", "log", "free MODULE INSTANCE", "initialize sse",
// "transform avx2", "terminate avx512", ...
OQA_TEST_DOUBLES_API std::vector<std::string>& events();

OQA_TEST_DOUBLES_API void reset();

}  // namespace test_doubles

#endif  // OQA_TESTS_LIBRARY_DOUBLES_TEST_DOUBLES_CONTROL_H
