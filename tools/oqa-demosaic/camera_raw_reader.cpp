#include "camera_raw_reader.h"

#include <libraw/libraw.h>

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <string>

#include "bayer_pattern.h"
#include "image_io_error.h"

namespace oqa_tool {

namespace {

// LibRaw counts data errors instead of failing; a decode with any is refused.
void count_data_error(void* data, const char* /*file*/, const int /*offset*/) {
  ++*static_cast<int*>(data);
}

Filter_colour filter_colour(int libraw_colour) {
  // With three colours LibRaw numbers the second green 3.
  switch (libraw_colour) {
    case 0:
      return Filter_colour::red;
    case 2:
      return Filter_colour::blue;
    default:
      return Filter_colour::green;
  }
}

void refuse_non_bayer(LibRaw& raw) {
  const libraw_iparams_t& identity = raw.imgdata.idata;
  const std::string camera = std::string(identity.make) + " " + identity.model;
  if (identity.filters == 9) {
    throw Image_io_error("X-Trans sensor (" + camera + ") is not a Bayer mosaic");
  }
  if (identity.filters == 0 || identity.is_foveon != 0) {
    throw Image_io_error("no colour filter array (" + camera +
                         "): full-colour or monochrome data is not a Bayer mosaic");
  }
  if (identity.filters < 1000) {
    throw Image_io_error("colour filter pattern of " + camera + " is not a 2x2 Bayer pattern");
  }
  if (identity.colors != 3) {
    throw Image_io_error("four-colour filter array (" + camera + ") is not an RGB Bayer mosaic");
  }
  if (raw.is_fuji_rotated() != 0) {
    throw Image_io_error("rotated sensor layout (" + camera + ") is not supported");
  }
}

// The phase at the visible area's top-left; every row of LibRaw's 8-row
// pattern description must repeat that 2x2 cell.
QN_COLOR_FILTER_ARRAY_PHASE visible_phase(LibRaw& raw) {
  const std::array<Filter_colour, 4> cell{
      filter_colour(raw.COLOR(0, 0)), filter_colour(raw.COLOR(0, 1)),
      filter_colour(raw.COLOR(1, 0)), filter_colour(raw.COLOR(1, 1))};
  const std::optional<QN_COLOR_FILTER_ARRAY_PHASE> phase = phase_of_cell(cell);
  bool periodic = phase.has_value();
  for (int row = 0; periodic && row < 8; ++row) {
    for (int column = 0; column < 2; ++column) {
      periodic =
          periodic &&
          filter_colour(raw.COLOR(row, column)) ==
              cell[(static_cast<std::size_t>(row) & 1U) * 2 + static_cast<std::size_t>(column)];
    }
  }
  if (!periodic) {
    throw Image_io_error("colour filter pattern is not a 2x2 Bayer pattern");
  }
  return *phase;
}

// Black level of one visible pixel: the common level, the per-colour level
// and the repeating black pattern, as LibRaw records them.
unsigned black_level(const libraw_colordata_t& colour, int libraw_colour, int row, int column) {
  unsigned black = colour.black;
  if (libraw_colour >= 0 && libraw_colour < 4) {
    black += colour.cblack[libraw_colour];
  }
  const unsigned rows = colour.cblack[4];
  const unsigned columns = colour.cblack[5];
  if (rows > 0 && columns > 0 && 6 + rows * columns <= LIBRAW_CBLACK_SIZE) {
    black += colour.cblack[6 + (static_cast<unsigned>(row) % rows) * columns +
                           static_cast<unsigned>(column) % columns];
  }
  return black;
}

void normalize(LibRaw& raw, Mosaic_image& image) {
  const libraw_colordata_t& colour = raw.imgdata.color;
  const unsigned white = colour.maximum;
  for (int row = 0; row < image.height; ++row) {
    for (int column = 0; column < image.width; ++column) {
      const unsigned black = black_level(colour, raw.COLOR(row, column), row, column);
      if (white <= black) {
        throw Image_io_error("cannot normalize: white level " + std::to_string(white) +
                             " is not above black level " + std::to_string(black));
      }
      std::uint16_t& sample = image.samples[static_cast<std::size_t>(row) * image.width + column];
      const std::uint64_t above = sample > black ? sample - black : 0;
      const std::uint64_t range = white - black;
      const std::uint64_t scaled = (above * 65535 + range / 2) / range;
      sample = static_cast<std::uint16_t>(scaled > 65535 ? 65535 : scaled);
    }
  }
}

}  // namespace

Mosaic_image read_camera_raw(std::span<const std::uint8_t> bytes,
                             const Camera_raw_options& options) {
  // LibRaw's object is large; keep it off the stack.
  auto raw = std::make_unique<LibRaw>(LIBRAW_OPTIONS_NONE);
  int data_errors = 0;
  raw->set_dataerror_handler(&count_data_error, &data_errors);
  // LibRaw reads the buffer only; its interface lacks the const.
  int result = raw->open_buffer(const_cast<std::uint8_t*>(bytes.data()), bytes.size());
  if (result != LIBRAW_SUCCESS) {
    // Too short to identify counts as unrecognised, not as a damaged raw.
    if (result == LIBRAW_FILE_UNSUPPORTED || result == LIBRAW_IO_ERROR) {
      throw Unrecognised_format_error();
    }
    throw Image_io_error(std::string("corrupt camera raw: ") + LibRaw::strerror(result));
  }
  refuse_non_bayer(*raw);
  result = raw->unpack();
  if (result != LIBRAW_SUCCESS) {
    throw Image_io_error(std::string("corrupt camera raw data: ") + LibRaw::strerror(result));
  }
  if (data_errors > 0 || raw->error_count() > 0) {
    throw Image_io_error("truncated or corrupt camera raw data");
  }
  const libraw_rawdata_t& data = raw->imgdata.rawdata;
  if (data.raw_image == nullptr) {
    throw Image_io_error("camera raw holds no Bayer mosaic (full-colour or floating-point data)");
  }
  const libraw_image_sizes_t& sizes = data.sizes;
  check_image_size(sizes.width, sizes.height);
  if (sizes.top_margin + sizes.height > sizes.raw_height ||
      sizes.left_margin + sizes.width > sizes.raw_width ||
      sizes.raw_pitch < 2U * (sizes.left_margin + sizes.width)) {
    throw Image_io_error("corrupt camera raw: visible area lies outside the sensor data");
  }

  Mosaic_image image;
  image.width = sizes.width;
  image.height = sizes.height;
  image.phase = visible_phase(*raw);
  image.samples.resize(static_cast<std::size_t>(image.width) * image.height);
  const std::size_t pitch = sizes.raw_pitch / 2;  // bytes to samples
  for (int row = 0; row < image.height; ++row) {
    const std::uint16_t* source =
        data.raw_image + (row + sizes.top_margin) * pitch + sizes.left_margin;
    std::copy(source, source + image.width,
              image.samples.begin() + static_cast<std::ptrdiff_t>(row) * image.width);
  }
  if (options.normalize) {
    normalize(*raw, image);
  }
  return image;
}

}  // namespace oqa_tool
