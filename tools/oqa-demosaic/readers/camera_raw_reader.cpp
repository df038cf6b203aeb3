#include "camera_raw_reader.h"

#include <libraw/libraw.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "bayer_pattern.h"
#include "camera_raw_data.h"
#include "decoder_process.h"
#include "image_io_error.h"

namespace oqa_tool {

namespace {

// No raw coding LibRaw reads packs a sensor's samples below a bit each; an
// eighth of a bit leaves room for flat frames. A sensor that would need
// less, or a decode that took less, is not in the file.
constexpr std::uint64_t max_pixels_per_byte = 64;

// Above the largest visible area, room for the masked margins around it.
constexpr std::uint64_t max_sensor_pixels = 2 * max_image_pixels;

// A decode of any real file ends in seconds; two minutes allow for a busy
// machine running many jobs.
constexpr std::chrono::minutes decoder_time_limit{2};

// LibRaw's raw buffer and our copy of the visible area take 2 bytes a pixel
// each; the rest is decoder working room and the child's own heap.
std::uint64_t decoder_memory_budget(std::size_t file_bytes) {
  const std::uint64_t pixels = std::min(file_bytes * max_pixels_per_byte, max_sensor_pixels);
  return (std::uint64_t{256} << 20) + 8 * pixels;
}

// LibRaw's memory stream, counting the bytes the decoder takes: a decode
// that stops early without an error shows as one that took too few.
class Counting_stream : public LibRaw_buffer_datastream {
 public:
  // LibRaw reads the buffer only; its interface lacks the const.
  explicit Counting_stream(std::span<const std::uint8_t> bytes)
      : LibRaw_buffer_datastream(const_cast<std::uint8_t*>(bytes.data()), bytes.size()) {}

  std::uint64_t taken() const { return taken_; }
  void restart_count() { taken_ = 0; }

  int read(void* buffer, size_t size, size_t count) override {
    const INT64 start = tell();
    const int result = LibRaw_buffer_datastream::read(buffer, size, count);
    count_from(start);
    return result;
  }
  int get_char() override {
    const int character = LibRaw_buffer_datastream::get_char();
    taken_ += character >= 0 ? 1 : 0;
    return character;
  }
  char* gets(char* text, int size) override {
    const INT64 start = tell();
    char* const result = LibRaw_buffer_datastream::gets(text, size);
    count_from(start);
    return result;
  }
  int scanf_one(const char* format, void* value) override {
    const INT64 start = tell();
    const int result = LibRaw_buffer_datastream::scanf_one(format, value);
    count_from(start);
    return result;
  }
  // libjpeg takes the rest of the stream directly.
  int jpeg_src(void* decompressor) override {
    taken_ += static_cast<std::uint64_t>(std::max<INT64>(size() - tell(), 0));
    return LibRaw_buffer_datastream::jpeg_src(decompressor);
  }

 private:
  void count_from(INT64 start) {
    const INT64 end = tell();
    taken_ += end > start ? static_cast<std::uint64_t>(end - start) : 0;
  }

  std::uint64_t taken_ = 0;
};

std::string size_text(unsigned width, unsigned height) {
  return std::to_string(width) + "x" + std::to_string(height);
}

// Refuses, before LibRaw allocates for it, a sensor the file cannot hold.
std::uint64_t check_sensor_size(const libraw_image_sizes_t& sizes, std::size_t file_bytes) {
  const std::uint64_t pixels = std::uint64_t{sizes.raw_width} * sizes.raw_height;
  if (pixels > max_sensor_pixels) {
    throw Image_io_error("sensor is " + size_text(sizes.raw_width, sizes.raw_height) +
                         ", larger than this tool handles");
  }
  if (pixels > file_bytes * max_pixels_per_byte) {
    throw Image_io_error("corrupt camera raw: a " + size_text(sizes.raw_width, sizes.raw_height) +
                         " sensor cannot come from a file of " + std::to_string(file_bytes) +
                         " bytes");
  }
  return pixels;
}

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

void refuse_non_bayer(LibRaw& decoder) {
  const libraw_iparams_t& identity = decoder.imgdata.idata;
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
  if (decoder.is_fuji_rotated() != 0) {
    throw Image_io_error("rotated sensor layout (" + camera + ") is not supported");
  }
}

// The phase at the visible area's top-left; every row of LibRaw's 8-row
// pattern description must repeat that 2x2 cell.
QN_COLOR_FILTER_ARRAY_PHASE visible_phase(LibRaw& decoder) {
  const std::array<Filter_colour, 4> cell{
      filter_colour(decoder.COLOR(0, 0)), filter_colour(decoder.COLOR(0, 1)),
      filter_colour(decoder.COLOR(1, 0)), filter_colour(decoder.COLOR(1, 1))};
  const std::optional<QN_COLOR_FILTER_ARRAY_PHASE> phase = phase_of_cell(cell);
  bool periodic = phase.has_value();
  for (int row = 0; periodic && row < 8; ++row) {
    for (int column = 0; column < 2; ++column) {
      periodic =
          periodic &&
          filter_colour(decoder.COLOR(row, column)) ==
              cell[(static_cast<std::size_t>(row) & 1U) * 2 + static_cast<std::size_t>(column)];
    }
  }
  if (!periodic) {
    throw Image_io_error("colour filter pattern is not a 2x2 Bayer pattern");
  }
  return *phase;
}

[[noreturn]] void throw_libraw_error(const char* what, int result) {
  if (result == LIBRAW_UNSUFFICIENT_MEMORY) {
    throw std::bad_alloc();
  }
  throw Image_io_error(what + std::string(LibRaw::strerror(result)));
}

void normalize(LibRaw& decoder, Mosaic_image& image) {
  const libraw_colordata_t& colour = decoder.imgdata.color;
  const unsigned white = colour.maximum;
  for (int row = 0; row < image.height; ++row) {
    for (int column = 0; column < image.width; ++column) {
      const unsigned black = black_level(colour, decoder.COLOR(row, column), row, column);
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

Mosaic_image decode_camera_raw(std::span<const std::uint8_t> bytes,
                               const Camera_raw_options& options) {
  Counting_stream stream(bytes);  // outlives the LibRaw object that reads it
  // LibRaw's object is large; keep it off the stack.
  auto decoder = std::make_unique<LibRaw>(LIBRAW_OPIONS_NO_MEMERR_CALLBACK);
  int data_errors = 0;
  decoder->set_dataerror_handler(&count_data_error, &data_errors);
  int result = decoder->open_datastream(&stream);
  if (result != LIBRAW_SUCCESS) {
    // Too short to identify counts as unrecognised, not as a damaged raw.
    if (result == LIBRAW_FILE_UNSUPPORTED || result == LIBRAW_IO_ERROR) {
      throw Unrecognised_format_error();
    }
    throw_libraw_error("corrupt camera raw: ", result);
  }
  refuse_non_bayer(*decoder);
  const std::uint64_t sensor_pixels = check_sensor_size(decoder->imgdata.sizes, bytes.size());
  stream.restart_count();
  result = decoder->unpack();
  if (result != LIBRAW_SUCCESS) {
    throw_libraw_error("corrupt camera raw data: ", result);
  }
  if (data_errors > 0 || decoder->error_count() > 0) {
    throw Image_io_error("truncated or corrupt camera raw data");
  }
  if (stream.taken() * max_pixels_per_byte < sensor_pixels) {
    throw Image_io_error("truncated or corrupt camera raw data: the decoder took " +
                         std::to_string(stream.taken()) + " bytes for " +
                         std::to_string(sensor_pixels) + " samples");
  }
  const libraw_rawdata_t& data = decoder->imgdata.rawdata;
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
  image.phase = visible_phase(*decoder);
  image.samples.resize(static_cast<std::size_t>(image.width) * image.height);
  const std::size_t pitch = sizes.raw_pitch / 2;  // bytes to samples
  for (int row = 0; row < image.height; ++row) {
    const std::uint16_t* source =
        data.raw_image + (row + sizes.top_margin) * pitch + sizes.left_margin;
    std::copy(source, source + image.width,
              image.samples.begin() + static_cast<std::ptrdiff_t>(row) * image.width);
  }
  image.camera = camera_data_of(*decoder, bytes);
  image.notes.shot = shot_metadata_of(*decoder);
  if (options.normalize) {
    normalize(*decoder, image);
    image.camera->black = {};
    image.camera->white = 65535;
  }
  return image;
}

Mosaic_image read_camera_raw(std::span<const std::uint8_t> bytes,
                             const Camera_raw_options& options) {
  const Decoder_limits limits{decoder_time_limit, decoder_memory_budget(bytes.size())};
  return run_decoder_process("camera raw decoder", limits,
                             [&] { return decode_camera_raw(bytes, options); });
}

}  // namespace oqa_tool
