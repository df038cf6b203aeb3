// Whole-file reading: every reader parses from memory, so that the format is
// recognised by content and the fuzzers can feed the readers directly.
#ifndef OQA_TOOLS_FILE_BYTES_H
#define OQA_TOOLS_FILE_BYTES_H

#include <cstdint>
#include <optional>
#include <string>

#include "image_memory.h"

namespace oqa_tool {

// Most bytes read from one input: the largest frame the tool handles
// (max_image_pixels 16-bit samples, 512 MiB) twice over, which leaves room
// for headers, previews and padding.
inline constexpr std::uint64_t max_input_bytes = std::uint64_t{1} << 30;

// Closes the descriptor on every way out.
class File_descriptor {
 public:
  explicit File_descriptor(int fd) : fd_(fd) {}
  File_descriptor(const File_descriptor&) = delete;
  File_descriptor& operator=(const File_descriptor&) = delete;
  ~File_descriptor();
  int get() const { return fd_; }

 private:
  int fd_;
};

// An input opened for reading. A regular file is measured before anything is
// read, so that one too long for its format is refused unread.
class Input_file {
 public:
  // Throws Image_io_error ("cannot open: No such file...", a folder).
  explicit Input_file(const std::string& path);

  // The size of a regular file; nothing for pipes and devices.
  const std::optional<std::uint64_t>& size() const { return size_; }

  // The whole content. Throws Image_io_error when the file holds more than
  // max_bytes: a regular file by its size, before reading; a pipe as soon as
  // more arrives.
  Bytes read_all(std::uint64_t max_bytes);

 private:
  File_descriptor file_;
  std::optional<std::uint64_t> size_;
};

// Input_file(path).read_all(max_input_bytes).
Bytes read_file_bytes(const std::string& path);

}  // namespace oqa_tool

#endif  // OQA_TOOLS_FILE_BYTES_H
