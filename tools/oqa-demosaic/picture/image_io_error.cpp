#include "image_io_error.h"

#include <cstdio>

#include "mosaic_image.h"

namespace oqa_tool {

void check_image_size(std::int64_t width, std::int64_t height) {
  // snprintf rather than string concatenation: GCC 12 warns falsely (-Wrestrict)
  // on the latter here.
  char message[160];
  if (width < 2 || height < 2) {
    std::snprintf(message, sizeof message, "image is %lldx%lld, at least 2x2 is needed",
                  static_cast<long long>(width), static_cast<long long>(height));
    throw Image_io_error(message);
  }
  if (width > max_image_pixels || height > max_image_pixels || width * height > max_image_pixels) {
    std::snprintf(message, sizeof message,
                  "image is %lldx%lld, larger than the %lld pixels this tool handles",
                  static_cast<long long>(width), static_cast<long long>(height),
                  static_cast<long long>(max_image_pixels));
    throw Image_io_error(message);
  }
}

}  // namespace oqa_tool
