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
