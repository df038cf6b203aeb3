// The process's live temporary outputs, and their removal when SIGINT,
// SIGTERM or SIGHUP ends the process. Creating, renaming and removing a
// temporary file all happen under one lock, which the clean-up takes for
// good: once it has run, no temporary file can appear or be renamed.
#ifndef OQA_TOOLS_TEMPORARY_FILES_H
#define OQA_TOOLS_TEMPORARY_FILES_H

#include <functional>
#include <string>

namespace oqa_tool {

// Creates `name` in the folder open as `folder` (never following a link,
// never reusing an existing file) and records it. Returns the descriptor, or
// -1 with errno set.
int create_temporary_file(int folder, const std::string& name);

// Runs `rename`, which moves the file away from `name`, and stops tracking
// the file when it returns true. Exceptions from `rename` pass through.
bool rename_temporary_file(int folder, const std::string& name,
                           const std::function<bool()>& rename);

// Unlinks the file and stops tracking it.
void remove_temporary_file(int folder, const std::string& name);

// Blocks the three signals in the calling thread, and so in every thread it
// starts afterwards, and starts a thread that waits for them: it removes the
// live temporary files and ends the process by the same signal (status
// 128+N in a shell). Signals ignored at start-up stay ignored (nohup). Call
// first in main, before any other thread exists. Throws std::system_error.
void remove_temporary_files_on_signals();

}  // namespace oqa_tool

#endif  // OQA_TOOLS_TEMPORARY_FILES_H
