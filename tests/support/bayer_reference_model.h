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
  static constexpr Colour cells[4][2][2] = {{{red, green}, {green, blue}},
                                            {{blue, green}, {green, red}},
                                            {{green, red}, {blue, green}},
                                            {{green, blue}, {red, green}}};
  auto const odd = [](long value) { return (value % 2 + 2) % 2; };
  return cells[phase][odd(row - origin_y)][odd(column - origin_x)];
}

// `wanted` colour of pixel (row, column).
inline std::uint16_t model_sample(std::vector<std::uint16_t> const& mosaic, long width, long height,
                                  long origin_x, long origin_y, int phase, long row, long column,
                                  Colour wanted) {
  auto const has = [&](long r, long c) {
    return r >= 0 && r < height && c >= 0 && c < width &&
           filter_colour(r, c, origin_x, origin_y, phase) == wanted;
  };
  if (has(row, column)) return mosaic[row * width + column];
  // Neighbours as the pairs that are averaged first: left/right, above/below,
  // upper corners, lower corners.
  static constexpr long pairs[4][4] = {
      {0, -1, 0, 1}, {-1, 0, 1, 0}, {-1, -1, -1, 1}, {1, -1, 1, 1}};
  auto const at = [&](long r, long c) { return has(r, c) ? mosaic[r * width + c] : 0U; };
  std::uint32_t sum = 0;
  std::uint32_t pair_averages[4] = {};
  int count = 0;
  int full_pairs = 0;
  for (auto const& p : pairs) {
    int const pair_count = has(row + p[0], column + p[1]) + has(row + p[2], column + p[3]);
    std::uint32_t const pair_sum = at(row + p[0], column + p[1]) + at(row + p[2], column + p[3]);
    sum += pair_sum;
    count += pair_count;
    if (pair_count == 2) pair_averages[full_pairs++] = (pair_sum + 1) / 2;
  }
  // One is copied, two round halves up, three truncate, four average pairwise.
  std::uint32_t const value = count == 1   ? sum
                              : count == 2 ? (sum + 1) / 2
                              : count == 3 ? sum / 3
                                           : (pair_averages[0] + pair_averages[1] + 1) / 2;
  return static_cast<std::uint16_t>(value);
}

// The whole output in `format` (0 BGR planar, 1 BGR interleaved, 2 RGB interleaved).
inline std::vector<std::uint16_t> model_image(std::vector<std::uint16_t> const& mosaic, long width,
                                              long height, long origin_x, long origin_y, int phase,
                                              int format) {
  long const n = width * height;
  std::vector<std::uint16_t> output(static_cast<std::size_t>(3 * n));
  static constexpr Colour orders[2][3] = {{blue, green, red}, {red, green, blue}};
  for (long i = 0; i < n; ++i) {
    for (long slot = 0; slot < 3; ++slot) {
      output[format == 0 ? slot * n + i : 3 * i + slot] =
          model_sample(mosaic, width, height, origin_x, origin_y, phase, i / width, i % width,
                       orders[format == 2][slot]);
    }
  }
  return output;
}

}  // namespace reference

#endif  // OQA_TESTS_SUPPORT_BAYER_REFERENCE_MODEL_H
