// Record priorities are syslog severities: 0 is the most severe, 7 the least.
#pragma once

#include <array>
#include <optional>
#include <string_view>

namespace oqa_logger {

inline constexpr int most_severe_priority = 0;
inline constexpr int least_severe_priority = 7;
inline constexpr int warning_priority = 4;

// Syslog's own keywords, so that records read the same in a file and in the
// system log.
inline constexpr std::array<std::string_view, 8> priority_names = {
    "emerg", "alert", "crit", "err", "warning", "notice", "info", "debug"};

constexpr bool is_valid_priority(int priority) {
  return priority >= most_severe_priority && priority <= least_severe_priority;
}

constexpr std::string_view priority_name(int priority) {
  return priority_names[static_cast<std::size_t>(priority)];
}

constexpr std::optional<int> priority_from_name(std::string_view name) {
  for (std::size_t index = 0; index < priority_names.size(); ++index) {
    if (priority_names[index] == name) {
      return static_cast<int>(index);
    }
  }
  return std::nullopt;
}

}  // namespace oqa_logger
