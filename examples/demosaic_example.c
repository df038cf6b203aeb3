/* Demosaics a synthetic frame through the public C interface and prints a
 * few pixels and the time taken. */
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

#include "ostrevan_oqa_demosaic.h"

enum { WIDTH = 1920, HEIGHT = 1080 };

static double seconds_now(void) {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return (double)now.tv_sec + (double)now.tv_nsec * 1e-9;
}

int main(void) {
  unsigned short* mosaic = malloc(sizeof(unsigned short) * WIDTH * HEIGHT);
  unsigned short* image = malloc(sizeof(unsigned short) * 3 * WIDTH * HEIGHT);
  if (mosaic == NULL || image == NULL) {
    fprintf(stderr, "out of memory\n");
    free(mosaic);
    free(image);
    return 1;
  }
  /* An RGGB mosaic of a smooth scene: red rises to the right, blue
   * downwards, green is constant. */
  for (int row = 0; row < HEIGHT; ++row) {
    for (int column = 0; column < WIDTH; ++column) {
      int const odd_row = row & 1;
      int const odd_column = column & 1;
      unsigned short sample = 30000;
      if (!odd_row && !odd_column) sample = (unsigned short)(column * 65535 / (WIDTH - 1));
      if (odd_row && odd_column) sample = (unsigned short)(row * 65535 / (HEIGHT - 1));
      mosaic[row * WIDTH + column] = sample;
    }
  }

  qn_demosaic_module_initialize();
  double const start = seconds_now();
  int const result = qn_demosaic_transform_16_to_48(WIDTH, HEIGHT, 0, 0, QN_CFA_PHASE_RED,
                                                    QN_COLOR_FORMAT_RGB_INTERLEAVED,
                                                    QN_COLOR_FILTER_TYPE_BAYER, 16, mosaic, image);
  double const elapsed = seconds_now() - start;
  qn_demosaic_module_terminate();
  if (result != QN_DEMOSAIC_NO_ERROR) {
    fprintf(stderr, "demosaic failed with result %d\n", result);
    free(mosaic);
    free(image);
    return 1;
  }

  printf("Demosaiced a %dx%d RGGB frame in %.3f ms (%.0f Mpixel/s).\n", WIDTH, HEIGHT,
         elapsed * 1e3, WIDTH * HEIGHT / elapsed * 1e-6);
  int const rows[] = {0, 1, HEIGHT / 2, HEIGHT - 1};
  int const columns[] = {0, 1, WIDTH / 2, WIDTH - 1};
  for (int i = 0; i < 4; ++i) {
    unsigned short const* pixel = image + 3 * (rows[i] * WIDTH + columns[i]);
    printf("pixel (row %4d, column %4d): R %5u G %5u B %5u\n", rows[i], columns[i], pixel[0],
           pixel[1], pixel[2]);
  }
  free(mosaic);
  free(image);
  return 0;
}
