// Output writers. TIFF, PNG and PPM take RGB-interleaved images; the raw
// writer dumps the samples in whatever layout the image has.
#ifndef OQA_TOOLS_IMAGE_WRITER_H
#define OQA_TOOLS_IMAGE_WRITER_H

#include <string>

#include "mosaic_image.h"
#include "output_type.h"

namespace oqa_tool {

// 16-bit RGB, deflate-compressed.
void write_tiff(const std::string& path, const Colour_image& image);
// 16-bit RGB.
void write_png(const std::string& path, const Colour_image& image);
// P6, maxval 65535, big-endian samples.
void write_ppm(const std::string& path, const Colour_image& image);
// The samples as they lie in memory (little-endian), no header.
void write_raw(const std::string& path, const Colour_image& image);

// The layout the library must produce for `type`.
QN_COLOR_FORMAT format_for(Output_type type, QN_COLOR_FORMAT raw_layout);

// Dispatches on `type`. All writers throw Image_io_error.
void write_image(Output_type type, const std::string& path, const Colour_image& image);

}  // namespace oqa_tool

#endif  // OQA_TOOLS_IMAGE_WRITER_H
