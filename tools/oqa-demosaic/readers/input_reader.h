// Recognises an input by its content and hands it to the matching reader.
#ifndef OQA_TOOLS_INPUT_READER_H
#define OQA_TOOLS_INPUT_READER_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "camera_raw_reader.h"
#include "headerless_reader.h"
#include "mosaic_image.h"

namespace oqa_tool {

struct Read_options {
  // Set: every input is a headerless frame of this size.
  std::optional<Frame_size> headerless;
  Camera_raw_options camera_raw;
};

// PGM, FITS, then single-channel 16-bit TIFF, then whatever LibRaw decodes.
// Throws Image_io_error.
Mosaic_image read_mosaic(std::span<const std::uint8_t> bytes, const Read_options& options);

// Reads the file, at most max_input_bytes of it (a headerless frame's size
// is checked first, before reading), then read_mosaic.
Mosaic_image read_mosaic_file(const std::string& path, const Read_options& options);

}  // namespace oqa_tool

#endif  // OQA_TOOLS_INPUT_READER_H
