/* The public header compiles as strict C99, its enumerations int-sized. */
#include "ostrevan_oqa_demosaic.h"

int main(void) {
  QN_COLOR_FILTER_ARRAY_PHASE phase = QN_CFA_PHASE_GREEN_IN_BLUE_ROW;
  QN_COLOR_FORMAT format = QN_COLOR_FORMAT_RGB_INTERLEAVED;
  QN_DEMOSAIC_ERROR error = QN_DEMOSAIC_INVALID_IMAGE_HEIGHT;
  int (*transform)(int, int, int, int, QN_COLOR_FILTER_ARRAY_PHASE, QN_COLOR_FORMAT,
                   QN_COLOR_FILTER_TYPE, int, const unsigned short*, unsigned short*, int) =
      qn_demosaic_transform_test_16_to_48;
  int const sizes_ok =
      sizeof(phase) == sizeof(int) && sizeof(format) == sizeof(int) && sizeof(error) == sizeof(int);
  return sizes_ok && transform != 0 ? 0 : 1;
}
