#include "demosaic_call.h"

#include "image_io_error.h"
#include "library_session.h"

namespace oqa_tool {

std::optional<Level> parse_level(std::string_view name) {
  for (const Level level :
       {Level::automatic, Level::scalar, Level::sse, Level::avx2, Level::avx512}) {
    if (name == level_name(level)) {
      return level;
    }
  }
  return std::nullopt;
}

std::string level_name(Level level) {
  switch (level) {
    case Level::automatic:
      return "auto";
    case Level::scalar:
      return "scalar";
    case Level::sse:
      return "sse";
    case Level::avx2:
      return "avx2";
    case Level::avx512:
      return "avx512";
  }
  return "?";
}

void demosaic(const Mosaic_image& input, const Demosaic_request& request, Colour_image& output) {
  output.width = input.width;
  output.height = input.height;
  output.format = request.format;
  output.samples.resize(input.samples.size() * 3);
  // The library takes full 16-bit samples; the depth is only checked.
  constexpr int bit_depth = 16;
  const int result =
      request.level == Level::automatic
          ? qn_demosaic_transform_16_to_48(input.width, input.height, request.origin_x,
                                           request.origin_y, request.phase, request.format,
                                           QN_COLOR_FILTER_TYPE_BAYER, bit_depth,
                                           input.samples.data(), output.samples.data())
          : qn_demosaic_transform_test_16_to_48(
                input.width, input.height, request.origin_x, request.origin_y, request.phase,
                request.format, QN_COLOR_FILTER_TYPE_BAYER, bit_depth, input.samples.data(),
                output.samples.data(), static_cast<int>(request.level));
  if (result != QN_DEMOSAIC_NO_ERROR) {
    throw Image_io_error("the demosaic library refused the image (result code " +
                         std::to_string(result) + ")");
  }
}

Library_session::Library_session() { oqa_session::initialise_library(); }

Library_session::~Library_session() { qn_demosaic_module_terminate(); }

}  // namespace oqa_tool
