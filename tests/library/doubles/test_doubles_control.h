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

struct Logged_record {
  int priority;
  std::string file;
  int line;
  std::string function, message;
};

// One fake companion's calls (atomic: transforms run concurrently) and the
// behaviour the test chose for it.
struct Companion {
  std::atomic<int> initialized{0}, transforms{0}, terminated{0};
  int initialize_result = 0;
};

struct State {
  Companion companions[4];  // by level: 1 SSE, 2 AVX2, 3 AVX-512
  bool logger_open_fails = false;
  std::vector<Logged_record> records;
  // In call order: "open MODULE [INSTANCE] CONFIG" and "free MODULE
  // [INSTANCE]" from the logger, "terminate sse" ... from the companions.
  std::vector<std::string> events;
};

OQA_TEST_DOUBLES_API State& state();
OQA_TEST_DOUBLES_API void reset();  // forgets every call and chosen behaviour

}  // namespace test_doubles

#endif  // OQA_TESTS_LIBRARY_DOUBLES_TEST_DOUBLES_CONTROL_H
