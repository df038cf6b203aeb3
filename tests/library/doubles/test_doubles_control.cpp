#include "test_doubles_control.h"

namespace test_doubles {
namespace {
Companion_counters counters[4];
int initialize_results[4];
bool transform_throws[4];
std::vector<Logged_record> records;
std::vector<std::string> event_lines;
bool open_fails = false;
}  // namespace

Companion_counters& companion_counters(int level) { return counters[level]; }
int& companion_initialize_result(int level) { return initialize_results[level]; }
bool& companion_transform_throws(int level) { return transform_throws[level]; }
std::vector<Logged_record>& logged_records() { return records; }
bool& logger_open_fails() { return open_fails; }
std::vector<std::string>& events() { return event_lines; }

void reset() {
  for (int level = 0; level < 4; ++level) {
    counters[level].initialize = 0;
    counters[level].transform = 0;
    counters[level].terminate = 0;
    initialize_results[level] = 0;
    transform_throws[level] = false;
  }
  records.clear();
  event_lines.clear();
  open_fails = false;
}

}  // namespace test_doubles
