// Converts the inputs, several at once, and reports each failure on its own
// line without stopping the others.
#ifndef OQA_TOOLS_BATCH_RUNNER_H
#define OQA_TOOLS_BATCH_RUNNER_H

#include "tool_options.h"

namespace oqa_tool {

// Returns the process exit status: 0 when every file was converted. A batch
// of more than one file ends with a summary line.
int run_batch(const Tool_options& options);

}  // namespace oqa_tool

#endif  // OQA_TOOLS_BATCH_RUNNER_H
