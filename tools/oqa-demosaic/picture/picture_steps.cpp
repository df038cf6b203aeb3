#include "picture_steps.h"

#include <algorithm>
#include <cstring>

#include "parallel_work.h"

namespace oqa_tool {

std::optional<White_balance> parse_white_balance(std::string_view name) {
  for (const auto& [balance, text] :
       {std::pair{White_balance::camera, "camera"}, std::pair{White_balance::daylight, "daylight"},
        std::pair{White_balance::none, "none"}}) {
    if (name == text) {
      return balance;
    }
  }
  return std::nullopt;
}

void arrange(Colour_image& image, const Crop& crop, int flip, unsigned threads) {
  const Crop area = crop.width > 0 ? crop : Crop{0, 0, image.width, image.height};
  const bool transpose = (flip & 4) != 0;
  if (flip == 0 && area.width == image.width && area.height == image.height) {
    return;
  }
  Colour_image result;
  result.width = transpose ? area.height : area.width;
  result.height = transpose ? area.width : area.height;
  result.format = image.format;
  result.bits = image.bits;
  result.srgb = image.srgb;
  result.notes = std::move(image.notes);
  result.samples.resize(static_cast<std::size_t>(area.width) * area.height * 3);
  // Output pixel (row, column) is the area's (source_row, source_column):
  // swapped when transposed, then counted from the far side when flipped.
  const std::ptrdiff_t stride = static_cast<std::ptrdiff_t>(image.width) * 3;
  const std::uint16_t* origin = image.samples.data() + area.top * stride + area.left * 3;
  std::ptrdiff_t row_step = transpose ? 3 : stride;
  std::ptrdiff_t column_step = transpose ? stride : 3;
  const std::uint16_t* first = origin;
  if ((flip & 2) != 0) {  // source rows from the bottom
    first += (area.height - 1) * stride;
    (transpose ? column_step : row_step) *= -1;
  }
  if ((flip & 1) != 0) {  // source columns from the right
    first += (area.width - 1) * 3;
    (transpose ? row_step : column_step) *= -1;
  }
  for_each_band(result.height, threads, [&](int first_row, int end_row) {
    for (int row = first_row; row < end_row; ++row) {
      const std::uint16_t* source = first + row * row_step;
      std::uint16_t* out = result.samples.data() + static_cast<std::size_t>(row) * result.width * 3;
      if (column_step == 3) {
        std::memcpy(out, source, static_cast<std::size_t>(result.width) * 3 * sizeof *out);
        continue;
      }
      for (int column = 0; column < result.width; ++column, source += column_step, out += 3) {
        out[0] = source[0];
        out[1] = source[1];
        out[2] = source[2];
      }
    }
  });
  image = std::move(result);
}

void finish_picture(Colour_image& image, const std::optional<Camera_data>& camera,
                    const Picture_options& options) {
  if (!camera) {
    return;
  }
  arrange(image, options.crop ? camera->crop : Crop{}, options.orient ? camera->flip : 0,
          options.threads);
  if (options.develop) {
    develop(image, *camera, options.white_balance, options.depth, options.threads);
  }
}

}  // namespace oqa_tool
