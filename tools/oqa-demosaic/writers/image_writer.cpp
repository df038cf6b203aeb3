#include "image_writer.h"

#include "image_io_error.h"

namespace oqa_tool {

QN_COLOR_FORMAT format_for(Output_type type, QN_COLOR_FORMAT buffer_layout) {
  return type == Output_type::library_buffer ? buffer_layout : QN_COLOR_FORMAT_RGB_INTERLEAVED;
}

void write_image(Output_type type, int descriptor, const Colour_image& image,
                 const Write_settings& settings) {
  if (type != Output_type::library_buffer && image.format != QN_COLOR_FORMAT_RGB_INTERLEAVED) {
    throw Image_io_error("internal error: image writers need RGB-interleaved samples");
  }
  const Compression_choice& compression =
      choice_of(settings.compression.value_or(default_compression(type)));
  switch (type) {
    case Output_type::tiff:
      write_tiff(descriptor, image, compression, settings.threads);
      return;
    case Output_type::png:
      write_png(descriptor, image, compression, settings.threads);
      return;
    case Output_type::ppm:
      write_ppm(descriptor, image);
      return;
    case Output_type::library_buffer:
      write_library_buffer(descriptor, image);
      return;
    case Output_type::fits:
      write_fits(descriptor, image);
      return;
  }
}

}  // namespace oqa_tool
