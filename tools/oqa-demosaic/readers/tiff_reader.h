// Single-channel 16-bit TIFF (strips or tiles, any compression libtiff
// decodes). Camera raw files built on TIFF go to the camera raw reader.
#ifndef OQA_TOOLS_TIFF_READER_H
#define OQA_TOOLS_TIFF_READER_H

#include <cstdint>
#include <span>

#include "mosaic_image.h"
#include "tiff_memory.h"

namespace oqa_tool {

// True when the first image is a plain one-sample 16-bit image and not a DNG.
bool is_single_channel_16_bit(const Memory_tiff& tiff);

// Throws Image_io_error for other layouts, corrupt or truncated data.
Mosaic_image read_tiff(std::span<const std::uint8_t> bytes);

}  // namespace oqa_tool

#endif  // OQA_TOOLS_TIFF_READER_H
