// An independent, per-pixel model of the demosaic rules, written for
// obviousness rather than speed: every missing colour is the average of the
// in-image neighbours that carry that colour.
#ifndef OQA_TESTS_SUPPORT_BAYER_REFERENCE_MODEL_H
#define OQA_TESTS_SUPPORT_BAYER_REFERENCE_MODEL_H

#include <cstdint>
#include <vector>

namespace reference {

enum Colour { red = 0, green = 1, blue = 2 };

// Colour of the filter at (row, column) for a pattern whose origin has `phase`.
inline Colour filter_colour(long row, long column, long origin_x, long origin_y, int phase) {
  // Row by row, the 2x2 cell at the origin of each phase.
  static constexpr Colour cells[4][2][2] = {
      {{red, green}, {green, blue}},
      {{blue, green}, {green, red}},
      {{green, red}, {blue, green}},
      {{green, blue}, {red, green}},
  };
  auto const odd = [](long value) { return (value % 2 + 2) % 2; };
  return cells[phase][odd(row - origin_y)][odd(column - origin_x)];
}

inline std::uint32_t round_half_up(std::uint32_t a, std::uint32_t b) { return (a + b + 1) / 2; }

// (blue, green, red) of pixel (row, column).
inline void model_pixel(std::vector<std::uint16_t> const& mosaic, long width, long height,
                        long origin_x, long origin_y, int phase, long row, long column,
                        std::uint16_t bgr[3]) {
  auto const at = [&](long r, long c) -> std::uint32_t { return mosaic[r * width + c]; };
  auto const inside = [&](long r, long c) { return r >= 0 && r < height && c >= 0 && c < width; };
  Colour const own = filter_colour(row, column, origin_x, origin_y, phase);
  for (Colour wanted : {blue, green, red}) {
    std::uint32_t value = 0;
    if (wanted == own) {
      value = at(row, column);
    } else {
      // Neighbours of the wanted colour, as pairs that are averaged first:
      // left/right, above/below, upper corners, lower corners.
      long const pairs[4][2][2] = {
          {{0, -1}, {0, 1}}, {{-1, 0}, {1, 0}}, {{-1, -1}, {-1, 1}}, {{1, -1}, {1, 1}}};
      std::vector<std::uint32_t> samples;
      std::vector<std::uint32_t> pair_averages;
      for (auto const& pair : pairs) {
        std::vector<std::uint32_t> pair_samples;
        for (auto const& offset : pair) {
          long const r = row + offset[0];
          long const c = column + offset[1];
          if (inside(r, c) && filter_colour(r, c, origin_x, origin_y, phase) == wanted) {
            pair_samples.push_back(at(r, c));
          }
        }
        samples.insert(samples.end(), pair_samples.begin(), pair_samples.end());
        if (pair_samples.size() == 2) {
          pair_averages.push_back(round_half_up(pair_samples[0], pair_samples[1]));
        }
      }
      switch (samples.size()) {
        case 1:
          value = samples[0];
          break;
        case 2:
          value = round_half_up(samples[0], samples[1]);
          break;
        case 3:
          value = (samples[0] + samples[1] + samples[2]) / 3;
          break;
        case 4:
          value = round_half_up(pair_averages.at(0), pair_averages.at(1));
          break;
        default:
          value = 0xDEAD;  // never happens on a Bayer pattern
      }
    }
    bgr[wanted == blue ? 0 : wanted == green ? 1 : 2] = static_cast<std::uint16_t>(value);
  }
}

// The whole output in `format` (0 BGR planar, 1 BGR interleaved, 2 RGB interleaved).
inline std::vector<std::uint16_t> model_image(std::vector<std::uint16_t> const& mosaic, long width,
                                              long height, long origin_x, long origin_y, int phase,
                                              int format) {
  std::vector<std::uint16_t> output(static_cast<std::size_t>(3 * width * height));
  long const n = width * height;
  for (long row = 0; row < height; ++row) {
    for (long column = 0; column < width; ++column) {
      std::uint16_t bgr[3] = {0, 0, 0};
      model_pixel(mosaic, width, height, origin_x, origin_y, phase, row, column, bgr);
      long const i = row * width + column;
      if (format == 0) {
        output[i] = bgr[0];
        output[n + i] = bgr[1];
        output[2 * n + i] = bgr[2];
      } else {
        output[3 * i] = format == 1 ? bgr[0] : bgr[2];
        output[3 * i + 1] = bgr[1];
        output[3 * i + 2] = format == 1 ? bgr[2] : bgr[0];
      }
    }
  }
  return output;
}

}  // namespace reference

#endif  // OQA_TESTS_SUPPORT_BAYER_REFERENCE_MODEL_H
