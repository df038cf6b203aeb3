#include "test_doubles_control.h"

namespace test_doubles {

State& state() {
  // Never destroyed: a library still initialised when the process exits
  // closes its log after this library's static objects are gone.
  static State* const shared = new State;
  return *shared;
}

void reset() {
  State& s = state();
  for (Companion& companion : s.companions) {
    companion.initialized = companion.transforms = companion.terminated = 0;
    companion.initialize_result = 0;
  }
  s.logger_open_fails = false;
  s.records.clear();
  s.events.clear();
}

}  // namespace test_doubles
