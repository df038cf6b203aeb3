#include "processor_levels.h"

#include <algorithm>

#include "library_session.h"

namespace oqa_tool {

bool processor_offers(Level level) {
  if (level == Level::automatic) {
    return true;
  }
  const std::vector<int> usable = oqa_session::usable_levels();
  return std::find(usable.begin(), usable.end(), static_cast<int>(level)) != usable.end();
}

std::vector<Level> offered_levels() {
  std::vector<Level> levels;
  for (const int level : oqa_session::usable_levels()) {
    levels.push_back(static_cast<Level>(level));
  }
  return levels;
}

}  // namespace oqa_tool
