#include "input_reader.h"

#include <optional>
#include <string>

#include "file_bytes.h"
#include "fits_io.h"
#include "image_io_error.h"
#include "pgm_reader.h"
#include "tiff_memory.h"
#include "tiff_reader.h"

namespace oqa_tool {

Mosaic_image read_mosaic(std::span<const std::uint8_t> bytes, const Read_options& options) {
  if (options.headerless) {
    return read_headerless(bytes, *options.headerless);
  }
  if (bytes.empty()) {
    throw Image_io_error("empty file");
  }
  if (looks_like_pgm(bytes)) {
    return read_pgm(bytes);
  }
  if (looks_like_fits(bytes)) {
    return read_fits(bytes);
  }
  if (looks_like_tiff(bytes)) {
    std::optional<bool> plain;
    std::string tiff_problem;
    try {
      plain = is_single_channel_16_bit(Memory_tiff(bytes));
    } catch (const Image_io_error& error) {
      tiff_problem = error.what();  // LibRaw may still read a TIFF-like raw
    }
    if (plain.value_or(false)) {
      return read_tiff(bytes);
    }
    try {
      return read_camera_raw(bytes, options.camera_raw);
    } catch (const Unrecognised_format_error&) {
      // Neither a plain mosaic TIFF nor a raw LibRaw recognises: let the TIFF
      // reader say what it objects to.
      return read_tiff(bytes);
    } catch (const Image_io_error&) {
      if (!plain) {
        throw Image_io_error(tiff_problem);  // libtiff's view of a broken TIFF is clearer
      }
      throw;
    }
  }
  return read_camera_raw(bytes, options.camera_raw);
}

Mosaic_image read_mosaic_file(const std::string& path, const Read_options& options) {
  Input_file file(path);
  if (options.headerless) {
    return read_headerless(file, *options.headerless);
  }
  return read_mosaic(file.read_all(max_input_bytes), options);
}

}  // namespace oqa_tool
