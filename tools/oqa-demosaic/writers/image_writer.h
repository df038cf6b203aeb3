// Output writers. TIFF, PNG, PPM and FITS take RGB-interleaved images; the
// library-buffer writer (.raw files) dumps the samples in whatever layout the image has. Each
// writes through the open, empty file `descriptor` (readable too, for
// libtiff) and leaves it open. Images of 8 bits are written as such where
// the format has 8-bit samples.
#ifndef OQA_TOOLS_IMAGE_WRITER_H
#define OQA_TOOLS_IMAGE_WRITER_H

#include <optional>

#include "mosaic_image.h"
#include "output_type.h"

namespace oqa_tool {

struct Write_settings {
  // Nothing: the type's default_compression.
  std::optional<Compression> compression;
  // Threads that compress one file's pieces at once.
  unsigned threads = 1;
};

// RGB in strips of about 2 MiB, compressed each on its own thread; the
// shot's metadata and, for a developed picture, the sRGB colour space go
// into the EXIF directory.
void write_tiff(int descriptor, const Colour_image& image, const Compression_choice& compression,
                unsigned threads);
// RGB, the zlib stream compressed in bands on several threads; text chunks
// for the shot, an sRGB chunk for a developed picture.
void write_png(int descriptor, const Colour_image& image, const Compression_choice& compression,
               unsigned threads);
// P6, maxval 65535 (big-endian samples) or 255.
void write_ppm(int descriptor, const Colour_image& image);
// The samples as they lie in memory (16-bit little-endian), no header.
void write_library_buffer(int descriptor, const Colour_image& image);
// A cube of three planes R, G, B (NAXIS3 = 3), the input's cards carried
// over and the shot described in cards of its own.
void write_fits(int descriptor, const Colour_image& image);

// The layout the library must produce for `type`.
QN_COLOR_FORMAT format_for(Output_type type, QN_COLOR_FORMAT buffer_layout);

// Dispatches on `type`. All writers throw Image_io_error.
void write_image(Output_type type, int descriptor, const Colour_image& image,
                 const Write_settings& settings = {});

}  // namespace oqa_tool

#endif  // OQA_TOOLS_IMAGE_WRITER_H
