// What a whole record line looks like, for checking files the logger wrote.
#pragma once

#include <regex>
#include <string>

namespace oqa_logger_test {

// ISO 8601 local time with microseconds and the offset from UTC.
inline std::string const time_pattern = R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}[+-]\d\d:\d\d)";

// A text record: time, [priority name], source, pid, tid, file:line function: message.
inline std::regex const text_record(time_pattern +
                                    R"( \[([0-7]) ([a-z]+)\] (\S+) pid=(\d+) tid=(\d+) )"
                                    R"((.*):(-?\d+) (\S*): (.*))");

inline bool is_local_time(std::string const& text) {
  return std::regex_match(text, std::regex(time_pattern));
}

}  // namespace oqa_logger_test
