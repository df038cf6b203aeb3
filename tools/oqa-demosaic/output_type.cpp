#include "output_type.h"

#include <algorithm>
#include <cctype>
#include <filesystem>

namespace oqa_tool {

namespace {
std::string lower(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return result;
}
}  // namespace

std::optional<Output_type> parse_output_type(std::string_view name) {
  const std::string key = lower(name);
  if (key == "tiff" || key == "tif") {
    return Output_type::tiff;
  }
  if (key == "png") {
    return Output_type::png;
  }
  if (key == "ppm") {
    return Output_type::ppm;
  }
  if (key == "raw") {
    return Output_type::raw;
  }
  return std::nullopt;
}

std::optional<Output_type> output_type_of_path(const std::string& path) {
  const std::string extension = std::filesystem::path(path).extension().string();
  if (extension.size() < 2) {
    return std::nullopt;
  }
  return parse_output_type(std::string_view(extension).substr(1));
}

std::string extension_of(Output_type type) {
  switch (type) {
    case Output_type::png:
      return ".png";
    case Output_type::ppm:
      return ".ppm";
    case Output_type::raw:
      return ".raw";
    case Output_type::tiff:
      break;
  }
  return ".tiff";
}

std::optional<QN_COLOR_FORMAT> parse_layout(std::string_view name) {
  const std::string key = lower(name);
  if (key == "bgr-planar") {
    return QN_COLOR_FORMAT_BGR_PLANAR;
  }
  if (key == "bgr") {
    return QN_COLOR_FORMAT_BGR_INTERLEAVED;
  }
  if (key == "rgb") {
    return QN_COLOR_FORMAT_RGB_INTERLEAVED;
  }
  return std::nullopt;
}

}  // namespace oqa_tool
