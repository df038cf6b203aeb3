// --demo: the library at work on a built-in chart, at every level the
// processor offers, with a byte-for-byte comparison between levels.
#ifndef OQA_TOOLS_DEMO_RUNNER_H
#define OQA_TOOLS_DEMO_RUNNER_H

#include "tool_options.h"

namespace oqa_tool {

// Returns the process exit status: non-zero if the levels disagree or the
// result cannot be written.
int run_demo(const Tool_options& options);

}  // namespace oqa_tool

#endif  // OQA_TOOLS_DEMO_RUNNER_H
