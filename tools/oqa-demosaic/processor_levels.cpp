#include "processor_levels.h"

namespace oqa_tool {

// The same instruction sets the library requires of each companion.
bool processor_offers(Level level) {
  __builtin_cpu_init();
  switch (level) {
    case Level::sse:
      return __builtin_cpu_supports("sse2") && __builtin_cpu_supports("sse4.1");
    case Level::avx2:
      return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
    case Level::avx512:
      return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
             __builtin_cpu_supports("avx512bw");
    case Level::automatic:
    case Level::scalar:
      break;
  }
  return true;
}

std::vector<Level> offered_levels() {
  std::vector<Level> levels;
  for (const Level level : {Level::scalar, Level::sse, Level::avx2, Level::avx512}) {
    if (processor_offers(level)) {
      levels.push_back(level);
    }
  }
  return levels;
}

}  // namespace oqa_tool
