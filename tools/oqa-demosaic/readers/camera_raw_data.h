// What LibRaw reports about a picture beside its samples, in the terms of
// the visible area. Runs in the decoder's child process.
#ifndef OQA_TOOLS_CAMERA_RAW_DATA_H
#define OQA_TOOLS_CAMERA_RAW_DATA_H

#include <libraw/libraw.h>

#include <cstdint>
#include <span>

#include "camera_data.h"

namespace oqa_tool {

// Black level of one visible pixel: the common level, the per-colour level
// and the repeating black pattern, as LibRaw records them.
unsigned black_level(const libraw_colordata_t& colour, int libraw_colour, int row, int column);

// Levels, white balance, colour matrix, flip and crop. `bytes` is the file:
// DNG's DefaultCrop is read from it, LibRaw does not report it.
Camera_data camera_data_of(LibRaw& raw, std::span<const std::uint8_t> bytes);

Shot_metadata shot_metadata_of(const LibRaw& raw);

}  // namespace oqa_tool

#endif  // OQA_TOOLS_CAMERA_RAW_DATA_H
