/*
 * Bayer demosaic: raw 16-bit sensor frames to 48-bit colour images.
 *
 * Call qn_demosaic_module_initialize() once, transform any number of frames
 * (from any number of threads, each with its own output buffer), then call
 * qn_demosaic_module_terminate() once. Initialise and terminate are
 * reference-counted, so independent users in one process can each make their
 * own balanced pair of calls.
 *
 * This header compiles as C99 and as C++.
 */
#ifndef OSTREVAN_OQA_DEMOSAIC_H
#define OSTREVAN_OQA_DEMOSAIC_H

#if defined(__GNUC__)
#define QN_DEMOSAIC_EXPORT __attribute__((visibility("default")))
#else
#define QN_DEMOSAIC_EXPORT
#endif

/* C++ gets a fixed underlying type, so that any int a caller passes is a
 * valid value of the enumeration and can be checked; C enums are ints. */
#ifdef __cplusplus
#define QN_DEMOSAIC_ENUM_BASE : int
#else
#define QN_DEMOSAIC_ENUM_BASE
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Colour of the filter at the pattern's origin; also the colour class of any
 * single pixel. */
typedef enum QN_COLOR_FILTER_ARRAY_PHASE QN_DEMOSAIC_ENUM_BASE {
  QN_CFA_PHASE_RED = 0,              /* R G / G B */
  QN_CFA_PHASE_BLUE = 1,             /* B G / G R */
  QN_CFA_PHASE_GREEN_IN_RED_ROW = 2, /* G R / B G */
  QN_CFA_PHASE_GREEN_IN_BLUE_ROW = 3 /* G B / R G */
} QN_COLOR_FILTER_ARRAY_PHASE;

/* Layout of the output buffer (3 * width * height samples). */
typedef enum QN_COLOR_FORMAT QN_DEMOSAIC_ENUM_BASE {
  /* Blue plane, then green plane, then red plane; each width*height,
   * row-major. */
  QN_COLOR_FORMAT_BGR_PLANAR = 0,
  /* One blue, green, red triple per pixel, row-major. */
  QN_COLOR_FORMAT_BGR_INTERLEAVED = 1,
  /* One red, green, blue triple per pixel, row-major. */
  QN_COLOR_FORMAT_RGB_INTERLEAVED = 2
} QN_COLOR_FORMAT;

typedef enum QN_COLOR_FILTER_TYPE QN_DEMOSAIC_ENUM_BASE {
  QN_COLOR_FILTER_TYPE_BAYER = 0
} QN_COLOR_FILTER_TYPE;

/* Result codes. Values 2, 9, 11 and 12 are reserved and never returned. */
typedef enum QN_DEMOSAIC_ERROR QN_DEMOSAIC_ENUM_BASE {
  QN_DEMOSAIC_NO_ERROR = 0,
  QN_DEMOSAIC_MODULE_NOT_INITIALIZED = 1,
  QN_DEMOSAIC_NULL_INPUT_BUFFER = 3,
  QN_DEMOSAIC_NULL_OUTPUT_BUFFER = 4,
  QN_DEMOSAIC_SAME_INPUT_AND_OUTPUT_BUFFER = 5,
  QN_DEMOSAIC_INVALID_COLOR_FILTER_ARRAY_PHASE = 6,
  QN_DEMOSAIC_UNKNOWN_COLOR_FILTER_TYPE = 7,
  QN_DEMOSAIC_UNSUPPORTED_BIT_DEPTH = 8,
  QN_DEMOSAIC_INVALID_OUTPUT_COLOR_FORMAT = 10,
  QN_DEMOSAIC_INVALID_IMAGE_WIDTH = 13,
  QN_DEMOSAIC_INVALID_IMAGE_HEIGHT = 14
} QN_DEMOSAIC_ERROR;

/* Loads the logger and the vector companion libraries on the first call and
 * chooses the fastest instruction-set level this processor supports.
 * The companions (libostrevan_oqa_demosaic_vector_sse.so, _avx2.so and
 * _avx512.so) are looked up in the working directory first, then on the
 * loader's search path: a library of one of those names in the working
 * directory at that moment is loaded and its code runs in the calling
 * process. Call it from a directory nobody else can write to, such as the
 * one the library is installed in, and change back afterwards.
 * Returns QN_DEMOSAIC_NO_ERROR. */
QN_DEMOSAIC_EXPORT int qn_demosaic_module_initialize(void);

/* Balances one qn_demosaic_module_initialize(); the last one unloads
 * everything. Must not run while a transform is in progress. Returns
 * QN_DEMOSAIC_NO_ERROR. */
QN_DEMOSAIC_EXPORT int qn_demosaic_module_terminate(void);

/* Demosaics one frame.
 *   input_buffer:  width*height samples, row-major, stride = width. Only read.
 *   output_buffer: 3*width*height samples in color_format's layout; every one
 *                  is written on success, nothing is written on failure.
 *   origin_x/y:    where the image lies on the pattern; only their parities
 *                  matter (pixel (r, c) has colour `phase` where r - origin_y
 *                  and c - origin_x are both even).
 *   bit_depth:     checked (must be <= 16) but never applied: samples are
 *                  taken as full 16-bit values.
 * Returns a QN_DEMOSAIC_ERROR value. */
QN_DEMOSAIC_EXPORT int qn_demosaic_transform_16_to_48(
    int width, int height, int origin_x, int origin_y, QN_COLOR_FILTER_ARRAY_PHASE phase,
    QN_COLOR_FORMAT color_format, QN_COLOR_FILTER_TYPE color_filter_type, int bit_depth,
    const unsigned short* input_buffer, unsigned short* output_buffer);

/* As qn_demosaic_transform_16_to_48, with the instruction-set level chosen by
 * the caller: 0 scalar, 1 SSE, 2 AVX2, 3 AVX-512; any other value runs the
 * scalar code. A level whose companion library is not usable (it was not
 * found, lacks an entry, or declined at initialise, for instance because the
 * processor lacks its instructions) also runs the scalar code, so the output
 * is the same at every level. */
QN_DEMOSAIC_EXPORT int qn_demosaic_transform_test_16_to_48(
    int width, int height, int origin_x, int origin_y, QN_COLOR_FILTER_ARRAY_PHASE phase,
    QN_COLOR_FORMAT color_format, QN_COLOR_FILTER_TYPE color_filter_type, int bit_depth,
    const unsigned short* input_buffer, unsigned short* output_buffer, int instruction_set_level);

#ifdef __cplusplus
}
#endif

#endif /* OSTREVAN_OQA_DEMOSAIC_H */
