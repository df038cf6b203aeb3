// In-memory images that travel between the readers, the library and the
// writers.
#ifndef OQA_TOOLS_MOSAIC_IMAGE_H
#define OQA_TOOLS_MOSAIC_IMAGE_H

#include <cstdint>
#include <optional>
#include <vector>

#include "ostrevan_oqa_demosaic.h"

namespace oqa_tool {

// One sample per pixel, row-major, stride = width: the library's input.
struct Mosaic_image {
  int width = 0;
  int height = 0;
  std::vector<std::uint16_t> samples;
  // Set by readers whose format records the pattern (camera raw); the
  // pattern of the pixel at (0, 0).
  std::optional<QN_COLOR_FILTER_ARRAY_PHASE> phase;
};

// Three samples per pixel in `format`'s layout: the library's output.
struct Colour_image {
  int width = 0;
  int height = 0;
  QN_COLOR_FORMAT format = QN_COLOR_FORMAT_RGB_INTERLEAVED;
  std::vector<std::uint16_t> samples;
};

// Largest image the tool accepts: keeps every sample index, and the byte
// size of a 48-bit output, well inside the library's int arguments.
inline constexpr std::int64_t max_image_pixels = std::int64_t{1} << 28;

}  // namespace oqa_tool

#endif  // OQA_TOOLS_MOSAIC_IMAGE_H
