// Border pass: every pixel in the first or last row or column. Part of such a
// pixel's 3x3 neighbourhood lies outside the image, so each missing colour
// averages only the in-image neighbours of that colour (one to three
// samples). It reads only the input, so it does not depend on which engine
// filled the interior.
#ifndef OQA_DEMOSAIC_ENGINE_BORDER_DEMOSAIC_H
#define OQA_DEMOSAIC_ENGINE_BORDER_DEMOSAIC_H

#include <cstddef>
#include <tuple>
#include <utility>

#include "engine/color_stores.h"
#include "engine/pixel_geometry.h"

// Neighbour sets of one border position, grouped by the colour class of the
// pixel (red, blue, green in a red row, green in a blue row) and within a
// class ordered red, green, blue. Only ever used as a template argument.
template <typename S0, typename S1, typename S2, typename S3, typename S4, typename S5, typename S6,
          typename S7, typename S8, typename S9, typename S10, typename S11>
struct ColorPixelAveragingPrimitives {
  using slots = std::tuple<S0, S1, S2, S3, S4, S5, S6, S7, S8, S9, S10, S11>;
  template <std::size_t Slot>
  using averager = Pixel_averager<std::tuple_element_t<Slot, slots>>;
};

namespace border_sets {
using namespace demosaic_grid_names;  // NOLINT(google-build-using-namespace)
template <typename... P>
using S = std::tuple<P...>;

using Left_column = ColorPixelAveragingPrimitives<   //
    S<G4>, S<G1, G7, G5>, S<G2, G8>,                 // red pixel
    S<G2, G8>, S<G1, G7, G5>, S<G4>,                 // blue pixel
    S<G5>, S<G4>, S<G1, G7>,                         // green pixel, red row
    S<G1, G7>, S<G4>, S<G5>>;                        // green pixel, blue row
using Right_column = ColorPixelAveragingPrimitives<  //
    S<G4>, S<G1, G7, G3>, S<G0, G6>,                 //
    S<G0, G6>, S<G1, G7, G3>, S<G4>,                 //
    S<G3>, S<G4>, S<G1, G7>,                         //
    S<G1, G7>, S<G4>, S<G3>>;
using Top_row = ColorPixelAveragingPrimitives<  //
    S<G4>, S<G7, G3, G5>, S<G6, G8>,            //
    S<G6, G8>, S<G7, G3, G5>, S<G4>,            //
    S<G3, G5>, S<G4>, S<G7>,                    //
    S<G7>, S<G4>, S<G3, G5>>;
using Bottom_row = ColorPixelAveragingPrimitives<  //
    S<G4>, S<G1, G3, G5>, S<G0, G2>,               //
    S<G0, G2>, S<G1, G3, G5>, S<G4>,               //
    S<G3, G5>, S<G4>, S<G1>,                       //
    S<G1>, S<G4>, S<G3, G5>>;
using Top_right_corner = ColorPixelAveragingPrimitives<  //
    S<G4>, S<G3, G7>, S<G6>,                             //
    S<G6>, S<G3, G7>, S<G4>,                             //
    S<G3>, S<G4>, S<G7>,                                 //
    S<G7>, S<G4>, S<G3>>;
using Bottom_left_corner = ColorPixelAveragingPrimitives<  //
    S<G4>, S<G1, G5>, S<G2>,                               //
    S<G2>, S<G1, G5>, S<G4>,                               //
    S<G5>, S<G4>, S<G1>,                                   //
    S<G1>, S<G4>, S<G5>>;
using Bottom_right_corner = ColorPixelAveragingPrimitives<  //
    S<G4>, S<G1, G3>, S<G0>,                                //
    S<G0>, S<G1, G3>, S<G4>,                                //
    S<G3>, S<G4>, S<G1>,                                    //
    S<G1>, S<G4>, S<G3>>;
}  // namespace border_sets

template <typename Primitives, std::size_t Class, typename Store>
inline void store_class_values(Dimensional_array_overlay<unsigned short> const& input,
                               unsigned long row, unsigned long column, Store& store) {
  unsigned short const red =
      typename Primitives::template averager<3 * Class>{}(input, row, column);
  unsigned short const green =
      typename Primitives::template averager<3 * Class + 1>{}(input, row, column);
  unsigned short const blue =
      typename Primitives::template averager<3 * Class + 2>{}(input, row, column);
  store.store_pixel(blue, green, red);
}

// Computes border pixel (row, column) from its class and writes it through
// the store, addressed by its own row and column.
template <typename Primitives, typename Store>
void compute_color_pixel_values(Dimensional_array_overlay<unsigned short> const& input,
                                unsigned long row, unsigned long column,
                                QN_COLOR_FILTER_ARRAY_PHASE phase, unsigned long width,
                                std::pair<unsigned long, unsigned long> const& origin,
                                Store& store) {
  QN_COLOR_FILTER_ARRAY_PHASE const pixel_class = determine_pixel_color(row, column, origin, phase);
  store.seek(row * width + column);
  switch (pixel_class) {
    case QN_CFA_PHASE_RED:
      store_class_values<Primitives, 0>(input, row, column, store);
      break;
    case QN_CFA_PHASE_BLUE:
      store_class_values<Primitives, 1>(input, row, column, store);
      break;
    case QN_CFA_PHASE_GREEN_IN_RED_ROW:
      store_class_values<Primitives, 2>(input, row, column, store);
      break;
    case QN_CFA_PHASE_GREEN_IN_BLUE_ROW:
      store_class_values<Primitives, 3>(input, row, column, store);
      break;
  }
}

// The top-left corner, computed in place from its class: a red or blue corner
// pixel averages its right and lower neighbours for green and copies its
// diagonal neighbour; a green one copies its right and lower neighbours.
template <typename Store>
void store_top_left_corner(Dimensional_array_overlay<unsigned short> const& input,
                           QN_COLOR_FILTER_ARRAY_PHASE pixel_class, Store& store) {
  unsigned short const own = input(0, 0);
  unsigned short const right = input(0, 1);
  unsigned short const below = input(1, 0);
  unsigned short const diagonal = input(1, 1);
  auto const green_of_right_and_below =
      static_cast<unsigned short>((static_cast<unsigned>(right) + below + 1) >> 1);
  store.seek(0);
  switch (pixel_class) {
    case QN_CFA_PHASE_RED:
      store.store_pixel(diagonal, green_of_right_and_below, own);
      break;
    case QN_CFA_PHASE_BLUE:
      store.store_pixel(own, green_of_right_and_below, diagonal);
      break;
    case QN_CFA_PHASE_GREEN_IN_RED_ROW:
      store.store_pixel(below, own, right);
      break;
    case QN_CFA_PHASE_GREEN_IN_BLUE_ROW:
      store.store_pixel(right, own, below);
      break;
  }
}

// Fills the one-pixel border of a width x height image (both at least 2) in
// format F. Writes no pixel with 1 <= row <= height-2 and 1 <= column <= width-2.
// Flattened: left to itself the compiler called the averagers and the
// per-pixel step out of line, a call per border pixel and colour.
template <QN_COLOR_FORMAT F>
[[gnu::flatten]] void demosaic_transform_edges_scalar_impl(int width, int height, int origin_x,
                                                           int origin_y,
                                                           QN_COLOR_FILTER_ARRAY_PHASE phase,
                                                           const unsigned short* input_buffer,
                                                           unsigned short* output_buffer) {
  using Store = Store_for_format_t<F>;
  auto const columns = static_cast<unsigned long>(static_cast<long>(width));
  auto const rows = static_cast<unsigned long>(static_cast<long>(height));
  Dimensional_array_overlay<unsigned short> const input{input_buffer, rows, columns};
  std::pair<unsigned long, unsigned long> const origin = origin_pair(origin_x, origin_y);
  Store store(output_buffer, rows * columns);
  unsigned long const last_row = rows - 1;
  unsigned long const last_column = columns - 1;

  for (unsigned long row = 1; row < last_row; ++row) {
    compute_color_pixel_values<border_sets::Left_column>(input, row, 0, phase, columns, origin,
                                                         store);
  }
  for (unsigned long row = 1; row < last_row; ++row) {
    compute_color_pixel_values<border_sets::Right_column>(input, row, last_column, phase, columns,
                                                          origin, store);
  }
  for (unsigned long column = 1; column < last_column; ++column) {
    compute_color_pixel_values<border_sets::Top_row>(input, 0, column, phase, columns, origin,
                                                     store);
  }
  for (unsigned long column = 1; column < last_column; ++column) {
    compute_color_pixel_values<border_sets::Bottom_row>(input, last_row, column, phase, columns,
                                                        origin, store);
  }
  store_top_left_corner(input, determine_pixel_color(0, 0, origin, phase), store);
  compute_color_pixel_values<border_sets::Top_right_corner>(input, 0, last_column, phase, columns,
                                                            origin, store);
  compute_color_pixel_values<border_sets::Bottom_left_corner>(input, last_row, 0, phase, columns,
                                                              origin, store);
  compute_color_pixel_values<border_sets::Bottom_right_corner>(input, last_row, last_column, phase,
                                                               columns, origin, store);
}

#endif  // OQA_DEMOSAIC_ENGINE_BORDER_DEMOSAIC_H
