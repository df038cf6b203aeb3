#include "engine/pixel_geometry.h"

const QN_COLOR_FILTER_ARRAY_PHASE row_0_col_1[4] = {QN_CFA_PHASE_GREEN_IN_RED_ROW,
                                                    QN_CFA_PHASE_GREEN_IN_BLUE_ROW,
                                                    QN_CFA_PHASE_RED, QN_CFA_PHASE_BLUE};
const QN_COLOR_FILTER_ARRAY_PHASE row_1_col_0[4] = {QN_CFA_PHASE_GREEN_IN_BLUE_ROW,
                                                    QN_CFA_PHASE_GREEN_IN_RED_ROW,
                                                    QN_CFA_PHASE_BLUE, QN_CFA_PHASE_RED};
const QN_COLOR_FILTER_ARRAY_PHASE row_1_col_1[4] = {QN_CFA_PHASE_BLUE, QN_CFA_PHASE_RED,
                                                    QN_CFA_PHASE_GREEN_IN_BLUE_ROW,
                                                    QN_CFA_PHASE_GREEN_IN_RED_ROW};

QN_COLOR_FILTER_ARRAY_PHASE determine_pixel_color(
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
