// What a file records about its picture beside the samples. The structures
// are plain bytes on purpose: they come back from the decoder's child
// process as such, and make_safe turns whatever arrives into values every
// later step can use without checking again.
#ifndef OQA_TOOLS_CAMERA_DATA_H
#define OQA_TOOLS_CAMERA_DATA_H

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace oqa_tool {

// A rectangle of the visible area; width 0: none.
struct Crop {
  int left = 0;
  int top = 0;
  int width = 0;
  int height = 0;
};

// Per output channel R, G, B where there are three.
struct Camera_data {
  // Mean black level of the channel's sites, and the common white level.
  std::array<float, 3> black{};
  float white = 0;
  // White balance multipliers; zeros: not recorded.
  std::array<float, 3> as_shot{};
  std::array<float, 3> daylight{};
  // Linear sRGB from white-balanced camera RGB; rows sRGB R, G, B.
  std::array<std::array<float, 3>, 3> camera_to_srgb{};
  // LibRaw's flip: 4 swaps rows and columns, then 2 turns the rows upside
  // down and 1 mirrors the columns.
  int flip = 0;
  Crop crop;
};

// The shot as the camera describes it; empty texts and zeros: not recorded.
struct Shot_metadata {
  char make[64] = {};
  char model[64] = {};
  char date_time[20] = {};  // "YYYY:MM:DD HH:MM:SS", as EXIF writes it
  float exposure_seconds = 0;
  float f_number = 0;
  float iso = 0;
  float focal_length_mm = 0;
};

// One FITS header record: 80 printable characters.
using Header_card = std::array<char, 80>;
// Most cards carried over: 5 MiB of them, far beyond any real header.
inline constexpr std::size_t max_fits_cards = 1 << 16;

// What travels from the input to the output beside the samples.
struct Picture_notes {
  std::optional<Shot_metadata> shot;
  // A FITS input's own cards (not those describing its layout), to carry
  // over into a FITS output.
  std::vector<Header_card> fits_cards;
};

// `text` cut to `max_length` characters, each outside printable ASCII
// replaced by '?', trailing spaces dropped: safe in any output's header.
std::string printable(std::string_view text, std::size_t max_length);

// Clamps every number into a usable range (non-finite ones to zero), the
// flip to its three bits and the crop into a width x height visible area.
void make_safe(Camera_data& camera, int width, int height);
// Terminates and cleans the texts, drops non-finite and negative numbers.
void make_safe(Shot_metadata& shot);
// Replaces characters outside printable ASCII by '?'.
void make_safe(Header_card& card);

}  // namespace oqa_tool

#endif  // OQA_TOOLS_CAMERA_DATA_H
