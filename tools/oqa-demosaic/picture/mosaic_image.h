// In-memory images that travel between the readers, the library, the
// picture steps and the writers.
#ifndef OQA_TOOLS_MOSAIC_IMAGE_H
#define OQA_TOOLS_MOSAIC_IMAGE_H

#include <cstdint>
#include <optional>

#include "camera_data.h"
#include "image_memory.h"
#include "ostrevan_oqa_demosaic.h"

namespace oqa_tool {

// One sample per pixel, row-major, stride = width: the library's input.
struct Mosaic_image {
  int width = 0;
  int height = 0;
  Samples samples;
  // Set by readers whose format records the pattern (camera raw, FITS); the
  // pattern of the pixel at (0, 0).
  std::optional<QN_COLOR_FILTER_ARRAY_PHASE> phase;
  // Camera raw only: what developing, orienting and cropping need.
  std::optional<Camera_data> camera;
  Picture_notes notes;
};

// Three samples per pixel in `format`'s layout: the library's output, then
// the picture steps'.
struct Colour_image {
  int width = 0;
  int height = 0;
  QN_COLOR_FORMAT format = QN_COLOR_FORMAT_RGB_INTERLEAVED;
  Samples samples;
  // 8 after --develop --depth 8: the samples then run from 0 to 255.
  int bits = 16;
  // Developed: sRGB primaries and transfer curve, which the writers record.
  bool srgb = false;
  Picture_notes notes;
};

// Largest image the tool accepts: keeps every sample index, and the byte
// size of a 48-bit output, well inside the library's int arguments.
inline constexpr std::int64_t max_image_pixels = std::int64_t{1} << 28;

}  // namespace oqa_tool

#endif  // OQA_TOOLS_MOSAIC_IMAGE_H
