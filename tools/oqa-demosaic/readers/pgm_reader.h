// Binary PGM (P5) with 8-bit or 16-bit samples; 16-bit samples are
// big-endian as netpbm defines. Sample values are kept as the file holds them.
#ifndef OQA_TOOLS_PGM_READER_H
#define OQA_TOOLS_PGM_READER_H

#include <cstdint>
#include <span>

#include "mosaic_image.h"

namespace oqa_tool {

// True when the bytes start like a P5 file.
bool looks_like_pgm(std::span<const std::uint8_t> bytes);

// Throws Image_io_error on a malformed header, a bad size or short data.
Mosaic_image read_pgm(std::span<const std::uint8_t> bytes);

}  // namespace oqa_tool

#endif  // OQA_TOOLS_PGM_READER_H
