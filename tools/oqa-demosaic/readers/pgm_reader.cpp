#include "pgm_reader.h"

#include <cctype>
#include <string>

#include "image_io_error.h"

namespace oqa_tool {

namespace {

bool is_space(std::uint8_t byte) { return std::isspace(byte) != 0; }

// Walks the header: decimal fields separated by white space and comments.
class Header_parser {
 public:
  explicit Header_parser(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

  std::int64_t next_number(const char* field) {
    skip_space_and_comments();
    if (position_ >= bytes_.size() || std::isdigit(bytes_[position_]) == 0) {
      throw Image_io_error(std::string("not a valid PGM file: ") + field + " missing");
    }
    std::int64_t value = 0;
    while (position_ < bytes_.size() && std::isdigit(bytes_[position_]) != 0) {
      value = value * 10 + (bytes_[position_] - '0');
      if (value > max_image_pixels) {
        throw Image_io_error(std::string("not a valid PGM file: ") + field + " too large");
      }
      ++position_;
    }
    return value;
  }

  // Exactly one white-space byte separates the maxval from the samples.
  std::size_t data_start() {
    if (position_ >= bytes_.size() || !is_space(bytes_[position_])) {
      throw Image_io_error("not a valid PGM file: header not terminated");
    }
    return position_ + 1;
  }

  void skip(std::size_t count) { position_ += count; }

 private:
  void skip_space_and_comments() {
    while (position_ < bytes_.size()) {
      if (bytes_[position_] == '#') {
        while (position_ < bytes_.size() && bytes_[position_] != '\n' &&
               bytes_[position_] != '\r') {
          ++position_;
        }
      } else if (is_space(bytes_[position_])) {
        ++position_;
      } else {
        return;
      }
    }
  }

  std::span<const std::uint8_t> bytes_;
  std::size_t position_ = 0;
};

}  // namespace

bool looks_like_pgm(std::span<const std::uint8_t> bytes) {
  return bytes.size() >= 3 && bytes[0] == 'P' && bytes[1] == '5' && is_space(bytes[2]);
}

Mosaic_image read_pgm(std::span<const std::uint8_t> bytes) {
  if (!looks_like_pgm(bytes)) {
    throw Image_io_error("not a binary PGM (P5) file");
  }
  Header_parser header(bytes);
  header.skip(2);
  const std::int64_t width = header.next_number("width");
  const std::int64_t height = header.next_number("height");
  const std::int64_t maxval = header.next_number("maxval");
  const std::size_t start = header.data_start();
  if (maxval < 1 || maxval > 65535) {
    throw Image_io_error("not a valid PGM file: maxval " + std::to_string(maxval) +
                         " outside 1..65535");
  }
  check_image_size(width, height);

  const std::size_t bytes_per_sample = maxval > 255 ? 2 : 1;
  const auto pixel_count = static_cast<std::size_t>(width * height);
  if (bytes.size() - start < pixel_count * bytes_per_sample) {
    throw Image_io_error("truncated PGM file: " + std::to_string(pixel_count * bytes_per_sample) +
                         " bytes of samples expected, " + std::to_string(bytes.size() - start) +
                         " present");
  }
  Mosaic_image image;
  image.width = static_cast<int>(width);
  image.height = static_cast<int>(height);
  image.samples.resize(pixel_count);
  const std::uint8_t* data = bytes.data() + start;
  if (bytes_per_sample == 2) {
    for (std::size_t i = 0; i < pixel_count; ++i) {
      image.samples[i] = static_cast<std::uint16_t>(data[2 * i] << 8 | data[2 * i + 1]);
    }
  } else {
    for (std::size_t i = 0; i < pixel_count; ++i) {
      image.samples[i] = data[i];
    }
  }
  return image;
}

}  // namespace oqa_tool
