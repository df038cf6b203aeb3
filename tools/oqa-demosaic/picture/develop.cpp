// --develop: the demosaiced camera samples to an sRGB picture, pixel by
// pixel, as a raw converter's simplest path does it:
//   1. each channel c: (sample - black[c]) / (white - black[c]), so that the
//      black level is 0 and the white level 1;
//   2. times the white balance multiplier of c, the multipliers scaled so
//      that the smallest is 1; then clipped to 1, so that whatever the
//      sensor saturated is white;
//   3. the camera-to-sRGB matrix, clipped to 0..1;
//   4. the sRGB transfer curve, rounded to 8 or 16 bits.
#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <vector>

#include "image_io_error.h"
#include "parallel_work.h"
#include "picture_steps.h"

namespace oqa_tool {

namespace {

using Triple = std::array<float, 3>;

bool all_positive(const Triple& values) {
  return std::all_of(values.begin(), values.end(), [](float value) { return value > 0; });
}

// The multipliers asked for; where the file lacks them, the next best:
// as shot, then daylight, then none.
Triple multipliers(const Camera_data& camera, White_balance white_balance) {
  Triple chosen{1, 1, 1};
  if (white_balance == White_balance::camera && all_positive(camera.as_shot)) {
    chosen = camera.as_shot;
  } else if (white_balance != White_balance::none && all_positive(camera.daylight)) {
    chosen = camera.daylight;
  }
  const float smallest = *std::min_element(chosen.begin(), chosen.end());
  for (float& multiplier : chosen) {
    multiplier /= smallest;
  }
  return chosen;
}

// The camera's matrix, or none where it records none (all zeros).
std::array<Triple, 3> colour_matrix(const Camera_data& camera) {
  std::array<Triple, 3> matrix = camera.camera_to_srgb;
  const bool recorded = std::any_of(matrix.begin(), matrix.end(), [](const Triple& row) {
    return std::any_of(row.begin(), row.end(), [](float weight) { return weight != 0; });
  });
  if (!recorded) {
    matrix = {Triple{1, 0, 0}, Triple{0, 1, 0}, Triple{0, 0, 1}};
  }
  return matrix;
}

// The sRGB curve at `steps` + 1 points over 0..1, scaled to the output's
// largest code; read with linear interpolation. The points hold the codes
// plus one half, so that cutting off the fraction rounds.
class Transfer_curve {
 public:
  explicit Transfer_curve(float largest_code) : points_(steps + 2) {
    for (int i = 0; i <= steps; ++i) {
      const double linear = static_cast<double>(i) / steps;
      const double encoded =
          linear <= 0.0031308 ? 12.92 * linear : 1.055 * std::pow(linear, 1 / 2.4) - 0.055;
      points_[i] = static_cast<float>(encoded * largest_code + 0.5);
    }
    points_[steps + 1] = points_[steps];  // the interpolation at 1 reads one past
  }

  // `linear` within 0..1.
  std::uint16_t operator()(float linear) const {
    const float position = linear * steps;
    const int index = static_cast<int>(position);
    const float fraction = position - static_cast<float>(index);
    const float code = points_[index] + fraction * (points_[index + 1] - points_[index]);
    return static_cast<std::uint16_t>(code);
  }

 private:
  static constexpr int steps = 1 << 16;
  std::vector<float> points_;
};

}  // namespace

void develop(Colour_image& image, const Camera_data& camera, White_balance white_balance, int depth,
             unsigned threads) {
  const Triple balance = multipliers(camera, white_balance);
  Triple scale{};
  for (std::size_t c = 0; c < 3; ++c) {
    if (camera.white < camera.black[c] + 1) {
      throw Image_io_error("cannot develop: white level " + std::to_string(camera.white) +
                           " is not above black level " + std::to_string(camera.black[c]));
    }
    scale[c] = balance[c] / (camera.white - camera.black[c]);
  }
  const std::array<Triple, 3> matrix = colour_matrix(camera);
  const Transfer_curve curve(depth > 8 ? 65535.0F : 255.0F);
  const std::size_t row_samples = static_cast<std::size_t>(image.width) * 3;
  for_each_band(image.height, threads, [&](int first, int end) {
    std::uint16_t* sample = image.samples.data() + static_cast<std::size_t>(first) * row_samples;
    std::uint16_t* const stop = image.samples.data() + static_cast<std::size_t>(end) * row_samples;
    for (; sample < stop; sample += 3) {
      Triple balanced;
      for (std::size_t c = 0; c < 3; ++c) {
        balanced[c] =
            std::clamp((static_cast<float>(sample[c]) - camera.black[c]) * scale[c], 0.0F, 1.0F);
      }
      for (std::size_t c = 0; c < 3; ++c) {
        const Triple& row = matrix[c];
        const float linear = row[0] * balanced[0] + row[1] * balanced[1] + row[2] * balanced[2];
        sample[c] = curve(std::clamp(linear, 0.0F, 1.0F));
      }
    }
  });
  image.bits = depth > 8 ? 16 : 8;
  image.srgb = true;
}

}  // namespace oqa_tool
