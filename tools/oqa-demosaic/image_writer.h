// Output writers. TIFF, PNG and PPM take RGB-interleaved images; the raw
// writer dumps the samples in whatever layout the image has. Each writes
// through the open, empty file `descriptor` (readable too, for libtiff) and
// leaves it open.
#ifndef OQA_TOOLS_IMAGE_WRITER_H
#define OQA_TOOLS_IMAGE_WRITER_H

#include "mosaic_image.h"
#include "output_type.h"

namespace oqa_tool {

// 16-bit RGB, deflate-compressed.
void write_tiff(int descriptor, const Colour_image& image);
// 16-bit RGB.
void write_png(int descriptor, const Colour_image& image);
// P6, maxval 65535, big-endian samples.
void write_ppm(int descriptor, const Colour_image& image);
// The samples as they lie in memory (little-endian), no header.
void write_raw(int descriptor, const Colour_image& image);

// The layout the library must produce for `type`.
QN_COLOR_FORMAT format_for(Output_type type, QN_COLOR_FORMAT raw_layout);

// Dispatches on `type`. All writers throw Image_io_error.
void write_image(Output_type type, int descriptor, const Colour_image& image);

}  // namespace oqa_tool

#endif  // OQA_TOOLS_IMAGE_WRITER_H
