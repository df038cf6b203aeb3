// Headerless frames: width*height little-endian 16-bit samples, nothing else.
#ifndef OQA_TOOLS_HEADERLESS_READER_H
#define OQA_TOOLS_HEADERLESS_READER_H

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "file_bytes.h"
#include "mosaic_image.h"

namespace oqa_tool {

struct Frame_size {
  int width = 0;
  int height = 0;
};

// "4000x3000" to a size; nothing when the text is not two positive numbers
// joined by 'x'.
std::optional<Frame_size> parse_frame_size(std::string_view text);

// Throws Image_io_error unless the bytes hold exactly the frame.
Mosaic_image read_headerless(std::span<const std::uint8_t> bytes, Frame_size size);

// The same from a file; a regular file of the wrong size is refused unread.
Mosaic_image read_headerless(Input_file& file, Frame_size size);

}  // namespace oqa_tool

#endif  // OQA_TOOLS_HEADERLESS_READER_H
