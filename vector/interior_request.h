// One interior pass as the kernels see it: everything decided once per call
// by the baseline entry, so the kernels contain no argument checking.
#ifndef OQA_VECTOR_INTERIOR_REQUEST_H
#define OQA_VECTOR_INTERIOR_REQUEST_H

#include <cstddef>

#include "ostrevan_oqa_demosaic.h"

namespace oqa_vector {

struct Interior_request {
  const unsigned short* input;  // width * height samples
  unsigned short* output;       // 3 * width * height samples
  std::size_t width;            // at least 3
  std::size_t height;           // at least 3
  // Rows 1, 3, 5, ... carry red (else blue) filters beside their greens.
  bool odd_rows_are_red;
  // In rows 1, 3, 5, ... the red/blue filter sits on odd columns (else green does).
  bool odd_rows_coloured_on_odd_columns;
  QN_COLOR_FORMAT layout;
  // Non-temporal stores: worth it only when the output is far larger than
  // the caches, where they save reading every output line before writing it.
  bool streaming;
  // AVX-512 only: 256-bit vectors (with the AVX-512 instructions) instead of
  // 512-bit ones.
  bool narrow_vectors;
};

}  // namespace oqa_vector

#endif  // OQA_VECTOR_INTERIOR_REQUEST_H
