// Interior pass: every pixel with a full 3x3 neighbourhood (rows 1..height-2,
// columns 1..width-2). The Bayer pattern repeats every two rows and columns,
// so the interior is walked as 2x2 cells starting at pixel (1,1): the class
// of (1,1) is computed once and picks compile-time traits that fix the
// averaging rules of all four cell positions. No per-pixel code tests a
// colour, phase, format or a bound that the template arguments decide.
#ifndef OQA_DEMOSAIC_ENGINE_INTERIOR_DEMOSAIC_H
#define OQA_DEMOSAIC_ENGINE_INTERIOR_DEMOSAIC_H

#include <cstddef>
#include <tuple>
#include <utility>

#include "engine/color_stores.h"
#include "engine/pixel_geometry.h"

// The averagers of one 2x2 cell: slot 3k + channel belongs to cell position k
// (0: odd row/odd column, 1: odd/even, 2: even/odd, 3: even/even) and
// channel 0 blue, 1 green, 2 red. Only ever used as a template argument.
template <typename PA0, typename PA1, typename PA2, typename PA3, typename PA4, typename PA5,
          typename PA6, typename PA7, typename PA8, typename PA9, typename PA10, typename PA11>
struct Scalar_demosaic_traits {
  using slots = std::tuple<PA0, PA1, PA2, PA3, PA4, PA5, PA6, PA7, PA8, PA9, PA10, PA11>;
  template <std::size_t Slot>
  using averager = std::tuple_element_t<Slot, slots>;
};

namespace interior_sets {
using Own = Pixel_averager<std::tuple<Demosaic_grid_4>>;
using Vertical = Pixel_averager<std::tuple<Demosaic_grid_1, Demosaic_grid_7>>;
using Horizontal = Pixel_averager<std::tuple<Demosaic_grid_3, Demosaic_grid_5>>;
// Left with right, then above with below.
using Cross =
    Pixel_averager<std::tuple<Demosaic_grid_3, Demosaic_grid_5, Demosaic_grid_1, Demosaic_grid_7>>;
// The two upper corners, then the two lower corners.
using Diagonal =
    Pixel_averager<std::tuple<Demosaic_grid_0, Demosaic_grid_2, Demosaic_grid_6, Demosaic_grid_8>>;

// Blue, green, red averagers of a pixel of each class.
#define OQA_RED_PIXEL Diagonal, Cross, Own
#define OQA_BLUE_PIXEL Own, Cross, Diagonal
#define OQA_GREEN_IN_RED_ROW_PIXEL Vertical, Own, Horizontal
#define OQA_GREEN_IN_BLUE_ROW_PIXEL Horizontal, Own, Vertical

using Cell_starting_red = Scalar_demosaic_traits<OQA_RED_PIXEL, OQA_GREEN_IN_RED_ROW_PIXEL,
                                                 OQA_GREEN_IN_BLUE_ROW_PIXEL, OQA_BLUE_PIXEL>;
using Cell_starting_blue = Scalar_demosaic_traits<OQA_BLUE_PIXEL, OQA_GREEN_IN_BLUE_ROW_PIXEL,
                                                  OQA_GREEN_IN_RED_ROW_PIXEL, OQA_RED_PIXEL>;
using Cell_starting_green_in_red_row =
    Scalar_demosaic_traits<OQA_GREEN_IN_RED_ROW_PIXEL, OQA_RED_PIXEL, OQA_BLUE_PIXEL,
                           OQA_GREEN_IN_BLUE_ROW_PIXEL>;
using Cell_starting_green_in_blue_row =
    Scalar_demosaic_traits<OQA_GREEN_IN_BLUE_ROW_PIXEL, OQA_BLUE_PIXEL, OQA_RED_PIXEL,
                           OQA_GREEN_IN_RED_ROW_PIXEL>;

#undef OQA_RED_PIXEL
#undef OQA_BLUE_PIXEL
#undef OQA_GREEN_IN_RED_ROW_PIXEL
#undef OQA_GREEN_IN_BLUE_ROW_PIXEL
}  // namespace interior_sets

// The three input rows around the row being walked, and the column of the
// pixel being assigned. The averagers read their samples straight from the
// rows; the row walk's restrict-qualified pointers let the compiler keep a
// sample in a register across the stores and share it between the two
// pixels of a turn.
class Row_neighbourhood {
 public:
  void start(unsigned short const* above, unsigned short const* centre,
             unsigned short const* below) {
    rows_[0] = above;
    rows_[1] = centre;
    rows_[2] = below;
  }

  void move_to(unsigned long column) { column_ = column; }

  // The averagers' view: the centre is (1, 1).
  std::uint32_t operator()(unsigned long row, unsigned long column) const {
    return rows_[row][column_ + column - 1];
  }

 private:
  unsigned short const* rows_[3] = {};
  unsigned long column_ = 0;
};

// Computes and stores one pixel at one of the four cell positions. The
// (row, column) arguments address only the input: start_row() hands over
// the rows around `row`, each method moves to its column, and the output
// position is the store's own, kept in step by the traversal.
template <typename Traits, typename Store>
struct Assign_demosaic_pixel_values {
  Store store;
  Dimensional_array_overlay<unsigned short> input;
  Row_neighbourhood window;

  void start_row(unsigned short const* above, unsigned short const* centre,
                 unsigned short const* below) {
    window.start(above, centre, below);
  }

  [[gnu::always_inline]] void assign_row_1_odd(unsigned long /*row*/, unsigned long column) {
    assign<0>(column);
  }
  [[gnu::always_inline]] void assign_row_1_even(unsigned long /*row*/, unsigned long column) {
    assign<1>(column);
  }
  [[gnu::always_inline]] void assign_row_2_odd(unsigned long /*row*/, unsigned long column) {
    assign<2>(column);
  }
  [[gnu::always_inline]] void assign_row_2_even(unsigned long /*row*/, unsigned long column) {
    assign<3>(column);
  }

 private:
  // Always inlined: the traversal's loop is only fast with the whole pixel
  // in it, and left to its own weighing the compiler kept the pixel out of
  // line in the traversals for an odd width, which then ran at half speed
  // (demosaic_bench: scalar 1919x1079 beside 1920x1080).
  template <std::size_t Position>
  [[gnu::always_inline]] void assign(unsigned long column) {
    window.move_to(column);
    unsigned short const blue = typename Traits::template averager<3 * Position>{}(window, 1, 1);
    unsigned short const green =
        typename Traits::template averager<3 * Position + 1>{}(window, 1, 1);
    unsigned short const red = typename Traits::template averager<3 * Position + 2>{}(window, 1, 1);
    store.store_pixel(blue, green, red);
  }
};

// One interior row, the first or the second of its cells, through a copy of
// the assigner whose store and rows the compiler can keep in registers; the
// advanced store is handed back. Out of line so that the restrict-qualified
// rows hold: no store of the walk changes a sample it reads, which the
// compiler could not prove on its own and would read every sample again.
template <bool width_is_even, bool first_of_cell, typename Assign>
[[gnu::noinline]] void demosaic_interior_row(Assign& assign, unsigned short const* __restrict above,
                                             unsigned short const* __restrict centre,
                                             unsigned short const* __restrict below,
                                             unsigned long row, unsigned long last_column) {
  Assign walker = assign;
  walker.start_row(above, centre, below);
#pragma GCC unroll 2
  for (unsigned long column = 1; column < last_column; column += 2) {
    if constexpr (first_of_cell) {
      walker.assign_row_1_odd(row, column);
    } else {
      walker.assign_row_2_odd(row, column);
    }
    if (width_is_even || column + 1 < last_column) {
      if constexpr (first_of_cell) {
        walker.assign_row_1_even(row, column + 1);
      } else {
        walker.assign_row_2_even(row, column + 1);
      }
    }
  }
  walker.store.skip(2);
  assign.store = walker.store;
}

// Walks the interior cell by cell in raster order. A true flag promises the
// matching parity (every odd interior row/column has a partner inside the
// interior), which drops the test for an unpaired last row/column.
template <bool height_is_even, bool width_is_even, typename Assign>
void demosaic_all_but_the_edges_impl(Dimensional_array_overlay<unsigned short> const& input,
                                     unsigned short* output_buffer, unsigned long last_row,
                                     unsigned long last_column) {
  Assign assign{{output_buffer, (last_row + 1) * (last_column + 1)}, input, {}};
  assign.store.seek(last_column + 2);
  if (last_row < 2) {
    return;
  }
  auto const input_row = [&input](unsigned long row) { return input.data + row * input.columns; };
  for (unsigned long row = 1; row < last_row; row += 2) {
    demosaic_interior_row<width_is_even, true>(assign, input_row(row - 1), input_row(row),
                                               input_row(row + 1), row, last_column);
    if (!height_is_even && row + 1 == last_row) {
      break;
    }
    demosaic_interior_row<width_is_even, false>(assign, input_row(row), input_row(row + 1),
                                                input_row(row + 2), row + 1, last_column);
  }
}

// Picks the traversal for the parities of the image size.
template <typename Traits, typename Store>
void demosaic_interior_impl(Dimensional_array_overlay<unsigned short> const& input,
                            unsigned short* output_buffer, unsigned long height,
                            unsigned long width) {
  using Assign = Assign_demosaic_pixel_values<Traits, Store>;
  bool const height_is_even = height % 2 == 0;
  bool const width_is_even = width % 2 == 0;
  if (height_is_even) {
    if (width_is_even) {
      demosaic_all_but_the_edges_impl<true, true, Assign>(input, output_buffer, height - 1,
                                                          width - 1);
    } else {
      demosaic_all_but_the_edges_impl<true, false, Assign>(input, output_buffer, height - 1,
                                                           width - 1);
    }
  } else if (width_is_even) {
    demosaic_all_but_the_edges_impl<false, true, Assign>(input, output_buffer, height - 1,
                                                         width - 1);
  } else {
    demosaic_all_but_the_edges_impl<false, false, Assign>(input, output_buffer, height - 1,
                                                          width - 1);
  }
}

// Scalar interior of a width x height image (both at least 2) in format F.
template <QN_COLOR_FORMAT F>
void demosaic_interior_using_color_phase(int width, int height, int origin_x, int origin_y,
                                         const unsigned short* input_buffer,
                                         unsigned short* output_buffer,
                                         QN_COLOR_FILTER_ARRAY_PHASE phase) {
  using Store = Store_for_format_t<F>;
  auto const columns = static_cast<unsigned long>(static_cast<long>(width));
  auto const rows = static_cast<unsigned long>(static_cast<long>(height));
  Dimensional_array_overlay<unsigned short> const input{input_buffer, rows, columns};
  std::pair<unsigned long, unsigned long> const origin = origin_pair(origin_x, origin_y);
  switch (determine_pixel_color(1, 1, origin, phase)) {
    case QN_CFA_PHASE_RED:
      demosaic_interior_impl<interior_sets::Cell_starting_red, Store>(input, output_buffer, rows,
                                                                      columns);
      break;
    case QN_CFA_PHASE_BLUE:
      demosaic_interior_impl<interior_sets::Cell_starting_blue, Store>(input, output_buffer, rows,
                                                                       columns);
      break;
    case QN_CFA_PHASE_GREEN_IN_RED_ROW:
      demosaic_interior_impl<interior_sets::Cell_starting_green_in_red_row, Store>(
          input, output_buffer, rows, columns);
      break;
    case QN_CFA_PHASE_GREEN_IN_BLUE_ROW:
      demosaic_interior_impl<interior_sets::Cell_starting_green_in_blue_row, Store>(
          input, output_buffer, rows, columns);
      break;
  }
}

#endif  // OQA_DEMOSAIC_ENGINE_INTERIOR_DEMOSAIC_H
