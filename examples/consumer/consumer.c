/* Smallest use of the installed library from C: demosaic a 3x3 RGGB frame
 * and compare it with the values worked out by hand, then show that a bad
 * call is refused without touching the output. Exit status 0 on success. */
#include <stdio.h>
#include <string.h>

#include "ostrevan_oqa_demosaic.h"

int main(void) {
  static const unsigned short mosaic[9] = {0, 3, 1, 4, 9, 7, 2, 6, 5};
  /* (blue, green, red) of every pixel, row by row. */
  static const unsigned short expected[27] = {9, 4, 0, 9, 3, 1, 9, 5, 1, 9, 4, 1, 9, 6,
                                              3, 9, 7, 3, 9, 5, 2, 9, 6, 4, 9, 7, 5};
  unsigned short image[27];
  int failures = 0;

  if (qn_demosaic_module_initialize() != QN_DEMOSAIC_NO_ERROR) {
    fprintf(stderr, "initialise failed\n");
    return 1;
  }
  int result =
      qn_demosaic_transform_16_to_48(3, 3, 0, 0, QN_CFA_PHASE_RED, QN_COLOR_FORMAT_BGR_INTERLEAVED,
                                     QN_COLOR_FILTER_TYPE_BAYER, 16, mosaic, image);
  if (result != QN_DEMOSAIC_NO_ERROR || memcmp(image, expected, sizeof image) != 0) {
    fprintf(stderr, "3x3 frame: result %d or wrong samples\n", result);
    ++failures;
  }

  memset(image, 0x5A, sizeof image);
  result =
      qn_demosaic_transform_16_to_48(1, 3, 0, 0, QN_CFA_PHASE_RED, QN_COLOR_FORMAT_BGR_INTERLEAVED,
                                     QN_COLOR_FILTER_TYPE_BAYER, 16, mosaic, image);
  if (result != QN_DEMOSAIC_INVALID_IMAGE_WIDTH || image[0] != 0x5A5A || image[26] != 0x5A5A) {
    fprintf(stderr, "width 1: result %d, or the output was written\n", result);
    ++failures;
  }
  qn_demosaic_module_terminate();

  printf("C consumer: %s\n", failures == 0 ? "ok" : "FAILED");
  return failures == 0 ? 0 : 1;
}
