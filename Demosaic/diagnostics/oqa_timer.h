// Scoped timer: reports through the logger how long the enclosing scope took,
// once, when it is left (also by an exception).
#ifndef OQA_DEMOSAIC_DIAGNOSTICS_OQA_TIMER_H
#define OQA_DEMOSAIC_DIAGNOSTICS_OQA_TIMER_H

#include <cstdint>

#include "diagnostics/oqa_log_object.h"

class OQATimer {
 public:
  OQATimer(char const* name, Oqa_log_object const* logger, char const* file, int line,
           char const* function);
  ~OQATimer();
  OQATimer(OQATimer const&) = delete;
  OQATimer& operator=(OQATimer const&) = delete;

  // Whole microseconds in a signed nanosecond difference, truncated toward
  // zero, as the record prints them.
  static double whole_microseconds(std::int64_t elapsed_nanoseconds) {
    std::int64_t const microseconds = elapsed_nanoseconds / 1000;
    return static_cast<double>(microseconds);
  }

 private:
  char const* name;
  Oqa_log_object const* logger;
  char const* file;
  std::int32_t line;
  char const* function;
  std::int64_t start;  // nanoseconds since the system clock's epoch
};

#endif  // OQA_DEMOSAIC_DIAGNOSTICS_OQA_TIMER_H
