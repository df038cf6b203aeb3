// Which instruction-set levels this process can run: the processor has the
// instructions and the companion is installed. The library falls back to
// scalar code for the others, so only these are worth timing.
#ifndef OQA_TOOLS_PROCESSOR_LEVELS_H
#define OQA_TOOLS_PROCESSOR_LEVELS_H

#include <vector>

#include "demosaic_call.h"

namespace oqa_tool {

bool processor_offers(Level level);

// scalar first, then each vector level the processor offers.
std::vector<Level> offered_levels();

}  // namespace oqa_tool

#endif  // OQA_TOOLS_PROCESSOR_LEVELS_H
