// The command line, parsed with CLI11 into Tool_options.
#ifndef OQA_TOOLS_COMMAND_LINE_H
#define OQA_TOOLS_COMMAND_LINE_H

#include <optional>

#include "tool_options.h"

namespace oqa_tool {

// Returns the options, or nothing after printing help, the version or an
// error; `exit_status` then holds what the process should return.
std::optional<Tool_options> parse_command_line(int argc, char** argv, int& exit_status);

}  // namespace oqa_tool

#endif  // OQA_TOOLS_COMMAND_LINE_H
