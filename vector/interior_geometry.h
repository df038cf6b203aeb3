// Turns the arguments of a transform into the kernel's row description:
// which rows are red rows and where their red/blue pixels sit. Baseline code,
// shared by the companion entries and the tests.
#ifndef OQA_VECTOR_INTERIOR_GEOMETRY_H
#define OQA_VECTOR_INTERIOR_GEOMETRY_H

#include <cstddef>

#include "engine/pixel_geometry.h"
#include "interior_request.h"
#include "ostrevan_oqa_demosaic.h"

namespace oqa_vector {

// Width and height at least 3, phase and format valid. Regular stores.
inline Interior_request describe_interior(int width, int height, int origin_x, int origin_y,
                                          QN_COLOR_FILTER_ARRAY_PHASE phase,
                                          QN_COLOR_FORMAT color_format,
                                          const unsigned short* input_buffer,
                                          unsigned short* output_buffer) {
  // The class of pixel (1,1) fixes every odd row: it is a red row when
  // (1,1) is red or green in a red row, and its red/blue pixels sit on odd
  // columns when (1,1) itself is red or blue.
  QN_COLOR_FILTER_ARRAY_PHASE const first =
      determine_pixel_color(1, 1, origin_pair(origin_x, origin_y), phase);

  Interior_request request{};
  request.input = input_buffer;
  request.output = output_buffer;
  request.width = static_cast<std::size_t>(width);
  request.height = static_cast<std::size_t>(height);
  request.odd_rows_are_red = first == QN_CFA_PHASE_RED || first == QN_CFA_PHASE_GREEN_IN_RED_ROW;
  request.odd_rows_coloured_on_odd_columns =
      first == QN_CFA_PHASE_RED || first == QN_CFA_PHASE_BLUE;
  request.layout = color_format;
  request.streaming = false;
  request.narrow_vectors = false;
  return request;
}

}  // namespace oqa_vector

#endif  // OQA_VECTOR_INTERIOR_GEOMETRY_H
