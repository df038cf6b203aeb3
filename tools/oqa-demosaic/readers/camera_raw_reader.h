// Camera raw files (DNG and the other formats LibRaw decodes): the visible
// area's mosaic samples as the file holds them, the pattern at its
// top-left, and what the camera says about the picture (camera_data.h).
// Nothing of LibRaw's own processing is applied to the samples.
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

// Decodes in a child process (decoder_process.h), so that a crash, a hang or
// a runaway allocation inside LibRaw costs this file only. Throws
// Image_io_error when LibRaw does not recognise the file, when the data is
// truncated or corrupt, for sensors that are not Bayer (X-Trans, Foveon and
// other full-colour data, four-colour arrays), and when the decoder crashes or
// exceeds its time or memory.
Mosaic_image read_camera_raw(std::span<const std::uint8_t> bytes,
                             const Camera_raw_options& options);

// The decode itself, in this process: what the child runs, and what the
// fuzzer drives. A crash inside LibRaw here takes the caller with it.
Mosaic_image decode_camera_raw(std::span<const std::uint8_t> bytes,
                               const Camera_raw_options& options);

}  // namespace oqa_tool

#endif  // OQA_TOOLS_CAMERA_RAW_READER_H
