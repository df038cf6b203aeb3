// How a companion writes the frame of one call: regular or non-temporal
// stores, and for the AVX-512 companion 256- or 512-bit vectors. Chosen per
// call from the frame's output size and layout.
#ifndef OQA_VECTOR_STORE_PLAN_H
#define OQA_VECTOR_STORE_PLAN_H

#include <cstddef>

#include "interior_request.h"

namespace oqa_vector {

struct Store_plan {
  bool streaming;
  bool narrow_vectors;
};

// Crossovers measured with bench/demosaic --plans on the project's machines
// (32 MiB of last-level cache per core complex): below them the output
// stays in the caches and regular stores win (1.7x at 1920x1080); above
// them streaming saves reading every output line before writing it (1.2x
// at 3840x2160). Three planes are three write streams, which gain less and
// only from a larger size. The processor's own report of its cache size is
// no guide: virtual machines report the whole socket's (508 MiB there).
// 256-bit vectors lost to 512-bit ones at every size and format there
// (by 10-40%), so the AVX-512 companion keeps its full width; the plan
// carries the choice so that --plans can measure it on other processors.
constexpr std::size_t interleaved_streaming_threshold_bytes = std::size_t{16} << 20;
constexpr std::size_t planar_streaming_threshold_bytes = std::size_t{40} << 20;

inline Store_plan plan_stores(QN_COLOR_FORMAT layout, std::size_t output_bytes) {
  bool const streaming = output_bytes >= (layout == QN_COLOR_FORMAT_BGR_PLANAR
                                              ? planar_streaming_threshold_bytes
                                              : interleaved_streaming_threshold_bytes);
  return {streaming, false};
}

}  // namespace oqa_vector

#endif  // OQA_VECTOR_STORE_PLAN_H
