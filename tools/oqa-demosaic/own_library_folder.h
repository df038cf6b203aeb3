// The library looks for its companion libraries in the working folder before
// the loader's path, so a library of such a name in whatever folder the tool
// is run from would run inside it. The tool therefore initialises the
// library from its own library folder instead: ../lib beside the executable,
// as its run path says, or "/", where no ordinary user can plant one, when
// that cannot be entered.
#ifndef OQA_TOOLS_OWN_LIBRARY_FOLDER_H
#define OQA_TOOLS_OWN_LIBRARY_FOLDER_H

#include <functional>

namespace oqa_tool {

// Runs `initialise` there, then returns to the working folder before any
// user path is touched. Throws Image_io_error when the working folder cannot
// be kept or returned to.
void initialise_in_own_library_folder(const std::function<void()>& initialise);

}  // namespace oqa_tool

#endif  // OQA_TOOLS_OWN_LIBRARY_FOLDER_H
