// Colour-filter geometry and neighbourhood averaging shared by the border and
// interior passes. Every missing colour sample is one of these averages, so
// the rounding here decides the output bit for bit.
#ifndef OQA_DEMOSAIC_ENGINE_PIXEL_GEOMETRY_H
#define OQA_DEMOSAIC_ENGINE_PIXEL_GEOMETRY_H

#include <cstddef>
#include <cstdint>
#include <tuple>
#include <utility>

#include "ostrevan_oqa_demosaic.h"

// Class of the pixel at a fixed offset from a pixel of a given class, indexed
// by that class.
extern "C++" QN_DEMOSAIC_EXPORT const QN_COLOR_FILTER_ARRAY_PHASE row_0_col_1[4];
extern "C++" QN_DEMOSAIC_EXPORT const QN_COLOR_FILTER_ARRAY_PHASE row_1_col_0[4];
extern "C++" QN_DEMOSAIC_EXPORT const QN_COLOR_FILTER_ARRAY_PHASE row_1_col_1[4];

// Colour class of pixel (row, column); `origin` is (origin_x, origin_y), each
// widened with its sign. Only the parities of the offsets matter. Defined
// here so that the border pass, which asks it for every border pixel, can
// inline it instead of calling through the library's PLT; `used` keeps the
// exported copy that callers outside the library link to.
[[gnu::used]] QN_DEMOSAIC_EXPORT inline QN_COLOR_FILTER_ARRAY_PHASE determine_pixel_color(
    unsigned long row, unsigned long column, std::pair<unsigned long, unsigned long> const& origin,
    QN_COLOR_FILTER_ARRAY_PHASE phase) {
  // Unsigned wrap-around keeps the parity of a negative difference.
  bool const odd_row = ((row - origin.second) & 1UL) != 0;
  bool const odd_column = ((column - origin.first) & 1UL) != 0;
  if (!odd_row) {
    return odd_column ? row_0_col_1[phase] : phase;
  }
  return odd_column ? row_1_col_1[phase] : row_1_col_0[phase];
}

// The origin pair determine_pixel_color expects: (origin_x, origin_y), each
// widened with its sign, so unsigned differences keep their parity.
inline std::pair<unsigned long, unsigned long> origin_pair(int origin_x, int origin_y) {
  return {static_cast<unsigned long>(static_cast<long>(origin_x)),
          static_cast<unsigned long>(static_cast<long>(origin_y))};
}

// The nine positions of a 3x3 neighbourhood, row by row; 4 is the centre.
template <int RowOffset, int ColumnOffset>
struct Demosaic_grid_position {
  static constexpr long row_offset = RowOffset;
  static constexpr long column_offset = ColumnOffset;
};
struct Demosaic_grid_0 : Demosaic_grid_position<-1, -1> {};
struct Demosaic_grid_1 : Demosaic_grid_position<-1, 0> {};
struct Demosaic_grid_2 : Demosaic_grid_position<-1, 1> {};
struct Demosaic_grid_3 : Demosaic_grid_position<0, -1> {};
struct Demosaic_grid_4 : Demosaic_grid_position<0, 0> {};
struct Demosaic_grid_5 : Demosaic_grid_position<0, 1> {};
struct Demosaic_grid_6 : Demosaic_grid_position<1, -1> {};
struct Demosaic_grid_7 : Demosaic_grid_position<1, 0> {};
struct Demosaic_grid_8 : Demosaic_grid_position<1, 1> {};

// Short names for writing neighbour sets; bring them in with a using-directive
// inside a namespace or function of your own.
namespace demosaic_grid_names {
using G0 = Demosaic_grid_0;
using G1 = Demosaic_grid_1;
using G2 = Demosaic_grid_2;
using G3 = Demosaic_grid_3;
using G4 = Demosaic_grid_4;
using G5 = Demosaic_grid_5;
using G6 = Demosaic_grid_6;
using G7 = Demosaic_grid_7;
using G8 = Demosaic_grid_8;
}  // namespace demosaic_grid_names

// Non-owning row-major view of a caller's buffer; the row stride is `columns`.
// Indices are never checked: callers only name neighbours inside the image.
template <typename T>
struct Dimensional_array_overlay {
  T const* data;
  std::size_t rows;
  std::size_t columns;

  T operator()(std::size_t row, std::size_t column) const { return data[row * columns + column]; }
};

// Sample at neighbourhood position P of the centre (row, column), widened to
// 32 bits. `Samples` is the image view or any other view with the same call
// operator, such as the interior pass's sliding neighbourhood.
template <typename P, typename Samples>
inline std::uint32_t neighbour_sample(Samples const& input, unsigned long row,
                                      unsigned long column) {
  return input(row + P::row_offset, column + P::column_offset);
}

template <typename Positions, std::size_t N = std::tuple_size_v<Positions>>
struct Pixel_averager_impl;

// One sample: copied.
template <typename P0>
struct Pixel_averager_impl<std::tuple<P0>, 1> {
  template <typename Samples = Dimensional_array_overlay<unsigned short>>
  unsigned short operator()(Samples const& input, unsigned long row, unsigned long column) const {
    return static_cast<unsigned short>(neighbour_sample<P0>(input, row, column));
  }
};

// Two samples: halves round up.
template <typename P0, typename P1>
struct Pixel_averager_impl<std::tuple<P0, P1>, 2> {
  template <typename Samples = Dimensional_array_overlay<unsigned short>>
  unsigned short operator()(Samples const& input, unsigned long row, unsigned long column) const {
    return static_cast<unsigned short>(
        (neighbour_sample<P0>(input, row, column) + neighbour_sample<P1>(input, row, column) + 1) >>
        1);
  }
};

// Three samples: truncated, not rounded.
template <typename P0, typename P1, typename P2>
struct Pixel_averager_impl<std::tuple<P0, P1, P2>, 3> {
  template <typename Samples = Dimensional_array_overlay<unsigned short>>
  unsigned short operator()(Samples const& input, unsigned long row, unsigned long column) const {
    return static_cast<unsigned short>((neighbour_sample<P0>(input, row, column) +
                                        neighbour_sample<P1>(input, row, column) +
                                        neighbour_sample<P2>(input, row, column)) /
                                       3);
  }
};

// Four samples: the first and the last two are averaged as pairs, then the
// two pair averages, each step rounding halves up. With the pair sums s and
// t that is ((s + 1) / 2 + (t + 1) / 2 + 1) / 2, which equals
// ((s + 1 rounded down to even) + t + 3) / 4 (checked for every pair of sums
// up to 2 * 65535): one shift instead of three, and four instructions
// beside the sums, where the scalar interior is bound by instruction count.
template <typename P0, typename P1, typename P2, typename P3>
struct Pixel_averager_impl<std::tuple<P0, P1, P2, P3>, 4> {
  template <typename Samples = Dimensional_array_overlay<unsigned short>>
  unsigned short operator()(Samples const& input, unsigned long row, unsigned long column) const {
    std::uint32_t const first =
        neighbour_sample<P0>(input, row, column) + neighbour_sample<P1>(input, row, column);
    std::uint32_t const second =
        neighbour_sample<P2>(input, row, column) + neighbour_sample<P3>(input, row, column);
    return static_cast<unsigned short>((((first + 1) & ~1U) + second + 3) >> 2);
  }
};

template <typename Positions>
struct Pixel_averager : Pixel_averager_impl<Positions> {};

#endif  // OQA_DEMOSAIC_ENGINE_PIXEL_GEOMETRY_H
