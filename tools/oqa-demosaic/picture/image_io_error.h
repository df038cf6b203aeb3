// The one error type of the readers and writers: its message says what is
// wrong with the file, and the caller adds the file name.
#ifndef OQA_TOOLS_IMAGE_IO_ERROR_H
#define OQA_TOOLS_IMAGE_IO_ERROR_H

#include <cstdint>
#include <stdexcept>
#include <string>

namespace oqa_tool {

class Image_io_error : public std::runtime_error {
 public:
  explicit Image_io_error(const std::string& message) : std::runtime_error(message) {}
};

// No reader recognises the content.
class Unrecognised_format_error : public Image_io_error {
 public:
  Unrecognised_format_error()
      : Image_io_error(
            "unrecognised file format (not PGM, 16-bit TIFF or a camera raw; headerless "
            "samples need --raw WIDTHxHEIGHT)") {}
};

// Throws unless width x height is at least 2x2 and within max_image_pixels.
void check_image_size(std::int64_t width, std::int64_t height);

}  // namespace oqa_tool

#endif  // OQA_TOOLS_IMAGE_IO_ERROR_H
