#include <string>
#include <vector>

#include "image_writer.h"
#include "stdio_file.h"

namespace oqa_tool {

void write_ppm(int descriptor, const Colour_image& image) {
  Stdio_file file(descriptor);
  const bool wide = image.bits > 8;
  const std::string header = "P6\n" + std::to_string(image.width) + " " +
                             std::to_string(image.height) + (wide ? "\n65535\n" : "\n255\n");
  file.write(header.data(), header.size());
  // One row at a time; 16-bit samples big-endian as netpbm defines.
  const std::size_t row_samples = static_cast<std::size_t>(image.width) * 3;
  const std::size_t sample_bytes = wide ? 2 : 1;
  std::vector<std::uint8_t> row(row_samples * sample_bytes);
  for (int y = 0; y < image.height; ++y) {
    const std::uint16_t* source = image.samples.data() + y * row_samples;
    for (std::size_t i = 0; i < row_samples; ++i) {
      if (wide) {
        row[2 * i] = static_cast<std::uint8_t>(source[i] >> 8);
        row[2 * i + 1] = static_cast<std::uint8_t>(source[i] & 0xFF);
      } else {
        row[i] = static_cast<std::uint8_t>(source[i]);
      }
    }
    file.write(row.data(), row.size());
  }
  file.close();
}

}  // namespace oqa_tool
