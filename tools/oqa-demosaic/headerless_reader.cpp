#include "headerless_reader.h"

#include <charconv>
#include <string>

#include "image_io_error.h"

namespace oqa_tool {

namespace {

std::optional<int> parse_positive(std::string_view text) {
  int value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (text.empty() || error != std::errc() || stop != end || value <= 0) {
    return std::nullopt;
  }
  return value;
}

}  // namespace

std::optional<Frame_size> parse_frame_size(std::string_view text) {
  const std::size_t cross = text.find_first_of("xX");
  if (cross == std::string_view::npos) {
    return std::nullopt;
  }
  const std::optional<int> width = parse_positive(text.substr(0, cross));
  const std::optional<int> height = parse_positive(text.substr(cross + 1));
  if (!width || !height) {
    return std::nullopt;
  }
  return Frame_size{*width, *height};
}

Mosaic_image read_headerless(std::span<const std::uint8_t> bytes, Frame_size size) {
  check_image_size(size.width, size.height);
  const auto pixel_count = static_cast<std::size_t>(size.width) * size.height;
  if (bytes.size() != 2 * pixel_count) {
    throw Image_io_error(std::string(bytes.size() < 2 * pixel_count ? "truncated" : "too long") +
                         " headerless frame: " + std::to_string(size.width) + "x" +
                         std::to_string(size.height) + " needs " + std::to_string(2 * pixel_count) +
                         " bytes, the file has " + std::to_string(bytes.size()));
  }
  Mosaic_image image;
  image.width = size.width;
  image.height = size.height;
  image.samples.resize(pixel_count);
  for (std::size_t i = 0; i < pixel_count; ++i) {
    image.samples[i] = static_cast<std::uint16_t>(bytes[2 * i] | bytes[2 * i + 1] << 8);
  }
  return image;
}

}  // namespace oqa_tool
