// What the stand-in logger library saw, read back by the fuzzers.
#ifndef OQA_FUZZ_SUPPORT_COUNTING_LOGGER_H
#define OQA_FUZZ_SUPPORT_COUNTING_LOGGER_H

#include <string>

struct Oqa_fuzz_log_summary {
  int error_records = 0;   // priority 2
  int timing_records = 0;  // priority 7
  int other_records = 0;
  std::string last_error_message;
  std::string last_function;
};

// Hands over the records since the previous call and forgets them.
using Oqa_fuzz_take_log_summary = void (*)(Oqa_fuzz_log_summary* taken);
constexpr char const* oqa_fuzz_take_log_summary_name = "oqa_fuzz_take_log_summary";

#endif  // OQA_FUZZ_SUPPORT_COUNTING_LOGGER_H
