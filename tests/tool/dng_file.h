// Writes small DNG files with libtiff: a CFA image with an active area, so
// that the camera raw reader can be checked against known samples.
#ifndef OQA_TESTS_TOOL_DNG_FILE_H
#define OQA_TESTS_TOOL_DNG_FILE_H

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace tool_test {

struct Dng_description {
  int raw_width = 0;
  int raw_height = 0;
  std::vector<std::uint16_t> samples;  // raw_width*raw_height, row-major
  // 2x2 colour codes (0 red, 1 green, 2 blue) at the raw image's origin.
  std::array<std::uint8_t, 4> cfa_pattern{0, 1, 1, 2};
  // top, left, bottom, right
  std::array<std::uint32_t, 4> active_area{0, 0, 0, 0};
  std::uint16_t black_level = 0;
  std::uint32_t white_level = 65535;
};

// Returns false if libtiff refuses.
bool write_dng(const std::string& path, const Dng_description& dng);

}  // namespace tool_test

#endif  // OQA_TESTS_TOOL_DNG_FILE_H
