// Camera raw files (DNG and the other formats LibRaw decodes): the visible
// area's mosaic samples as the file holds them, and the pattern at its
// top-left. Nothing of LibRaw's own processing is applied.
#ifndef OQA_TOOLS_CAMERA_RAW_READER_H
#define OQA_TOOLS_CAMERA_RAW_READER_H

#include <cstdint>
#include <span>

#include "mosaic_image.h"

namespace oqa_tool {

struct Camera_raw_options {
  // Subtract the black level(s) and stretch the white level to 65535.
  bool normalize = false;
};

// Throws Image_io_error when LibRaw does not recognise the file, when the
// data is truncated or corrupt, and for sensors that are not Bayer (X-Trans,
// Foveon and other full-colour data, four-colour arrays).
Mosaic_image read_camera_raw(std::span<const std::uint8_t> bytes,
                             const Camera_raw_options& options);

}  // namespace oqa_tool

#endif  // OQA_TOOLS_CAMERA_RAW_READER_H
