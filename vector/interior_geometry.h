// Turns the arguments of a transform into the kernel's row description:
// which rows are red rows and where their red/blue pixels sit. Baseline code,
// shared by the companion entries and the tests.
#ifndef OQA_VECTOR_INTERIOR_GEOMETRY_H
#define OQA_VECTOR_INTERIOR_GEOMETRY_H

#include <cstddef>

#include "interior_request.h"
#include "ostrevan_oqa_demosaic.h"

namespace oqa_vector {

// Width and height at least 3, phase and format valid. Regular stores.
inline Interior_request describe_interior(int width, int height, int origin_x, int origin_y,
                                          QN_COLOR_FILTER_ARRAY_PHASE phase,
                                          QN_COLOR_FORMAT color_format,
                                          const unsigned short* input_buffer,
                                          unsigned short* output_buffer) {
  // The pattern row that holds the origin is a red row for phases 0 and 2;
  // its red/blue filter is in the origin's column for phases 0 and 1. The
  // next pattern row swaps both. Only parities of the offsets matter
  // (unsigned arithmetic keeps them for negative origins).
  bool const origin_row_is_red =
      phase == QN_CFA_PHASE_RED || phase == QN_CFA_PHASE_GREEN_IN_RED_ROW;
  bool const origin_row_coloured_column_odd = phase >= QN_CFA_PHASE_GREEN_IN_RED_ROW;
  bool const row_1_shifted = ((1U - static_cast<unsigned>(origin_y)) & 1U) != 0;
  bool const column_1_odd = ((1U - static_cast<unsigned>(origin_x)) & 1U) != 0;

  Interior_request request{};
  request.input = input_buffer;
  request.output = output_buffer;
  request.width = static_cast<std::size_t>(width);
  request.height = static_cast<std::size_t>(height);
  request.odd_rows_are_red = origin_row_is_red != row_1_shifted;
  request.odd_rows_coloured_on_odd_columns =
      column_1_odd == (origin_row_coloured_column_odd != row_1_shifted);
  request.layout = static_cast<Output_layout>(color_format);
  request.streaming = false;
  return request;
}

}  // namespace oqa_vector

#endif  // OQA_VECTOR_INTERIOR_GEOMETRY_H
