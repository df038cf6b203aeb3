// Writes small DNG and TIFF files with libtiff, so that the readers can be
// checked against known samples, and rewrites single tag entries of them for
// the crafted damage a hostile file carries.
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

// A tiff_width x tiff_height image, tiles of 16x16 or strips of 4 rows, from
// samples_per_pixel * tiff_width * tiff_height samples.
inline constexpr int tiff_width = 45;
inline constexpr int tiff_height = 27;
struct Tiff_layout {
  const char* mode;  // "wl" little-endian, "wb" big-endian
  std::uint16_t compression;
  bool tiled;
  std::uint16_t samples_per_pixel = 1;
  std::uint16_t bits = 16;
};

// Returns false if libtiff refuses.
bool write_tiff(const std::string& path, const Tiff_layout& layout,
                const std::vector<std::uint16_t>& samples);

enum class Tiff_field { count, value };

// Sets the count or the value (SHORT or LONG, held in the entry) of `tag` in
// the first directory of a little-endian TIFF. Returns false if it is absent.
bool rewrite_tiff_entry(std::vector<std::uint8_t>& bytes, std::uint16_t tag, Tiff_field field,
                        std::uint32_t number);

}  // namespace tool_test

#endif  // OQA_TESTS_TOOL_DNG_FILE_H
