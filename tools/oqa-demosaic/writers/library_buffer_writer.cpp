#include <bit>

#include "image_writer.h"
#include "stdio_file.h"

namespace oqa_tool {

// The documented byte order is little-endian; this tool is built for x86-64.
static_assert(std::endian::native == std::endian::little);

void write_library_buffer(int descriptor, const Colour_image& image) {
  Stdio_file file(descriptor);
  file.write(image.samples.data(), image.samples.size() * sizeof(std::uint16_t));
  file.close();
}

}  // namespace oqa_tool
