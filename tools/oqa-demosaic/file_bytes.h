// Whole-file reading: every reader parses from memory, so that the format is
// recognised by content and the fuzzers can feed the readers directly.
#ifndef OQA_TOOLS_FILE_BYTES_H
#define OQA_TOOLS_FILE_BYTES_H

#include <cstdint>
#include <string>
#include <vector>

namespace oqa_tool {

// Throws Image_io_error ("no such file", "permission denied", ...).
std::vector<std::uint8_t> read_file_bytes(const std::string& path);

}  // namespace oqa_tool

#endif  // OQA_TOOLS_FILE_BYTES_H
