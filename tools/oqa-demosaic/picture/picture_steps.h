// What happens to the library's output before it is written, in this
// order, each step separate and each optional: the camera's crop (taken in
// the sensor's layout), its orientation, then developing. Without a
// camera, or with none of them asked for, the samples stay the library's.
#ifndef OQA_TOOLS_PICTURE_STEPS_H
#define OQA_TOOLS_PICTURE_STEPS_H

#include <optional>
#include <string_view>

#include "mosaic_image.h"

namespace oqa_tool {

enum class White_balance { camera, daylight, none };

// "camera", "daylight", "none".
std::optional<White_balance> parse_white_balance(std::string_view name);

struct Picture_options {
  bool crop = true;
  bool orient = true;
  bool develop = false;
  White_balance white_balance = White_balance::camera;
  int depth = 16;  // of a developed picture: 8 or 16
  unsigned threads = 1;
};

// Applies the steps to an RGB-interleaved image. Throws Image_io_error when
// the camera's levels cannot be developed.
void finish_picture(Colour_image& image, const std::optional<Camera_data>& camera,
                    const Picture_options& options);

// The crop, then LibRaw's flip (camera_data.h): a new image unless both
// leave it as it is.
void arrange(Colour_image& image, const Crop& crop, int flip, unsigned threads);

// Black and white levels, white balance, the camera-to-sRGB matrix and the
// sRGB transfer curve, to `depth` bits; in place.
void develop(Colour_image& image, const Camera_data& camera, White_balance white_balance, int depth,
             unsigned threads);

}  // namespace oqa_tool

#endif  // OQA_TOOLS_PICTURE_STEPS_H
