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

// Bytes of samples the frame needs.
std::uint64_t frame_bytes(Frame_size size) {
  check_image_size(size.width, size.height);
  return std::uint64_t{2} * static_cast<std::uint64_t>(size.width) *
         static_cast<std::uint64_t>(size.height);
}

void check_frame_bytes(Frame_size size, std::uint64_t present) {
  const std::uint64_t needed = frame_bytes(size);
  if (present != needed) {
    throw Image_io_error(std::string(present < needed ? "truncated" : "too long") +
                         " headerless frame: " + std::to_string(size.width) + "x" +
                         std::to_string(size.height) + " needs " + std::to_string(needed) +
                         " bytes, the file has " + std::to_string(present));
  }
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
  check_frame_bytes(size, bytes.size());
  const auto pixel_count = static_cast<std::size_t>(size.width) * size.height;
  Mosaic_image image;
  image.width = size.width;
  image.height = size.height;
  image.samples.resize(pixel_count);
  for (std::size_t i = 0; i < pixel_count; ++i) {
    image.samples[i] = static_cast<std::uint16_t>(bytes[2 * i] | bytes[2 * i + 1] << 8);
  }
  return image;
}

Mosaic_image read_headerless(Input_file& file, Frame_size size) {
  if (file.size()) {
    check_frame_bytes(size, *file.size());
  }
  return read_headerless(file.read_all(frame_bytes(size)), size);
}

}  // namespace oqa_tool
