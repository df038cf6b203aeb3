// How a companion writes the frame of one call: regular or non-temporal
// stores, and for the AVX-512 companion 256- or 512-bit vectors. Chosen per
// call from the companion's level and the frame's output size and layout.
#ifndef OQA_VECTOR_STORE_PLAN_H
#define OQA_VECTOR_STORE_PLAN_H

#include <cstddef>

#include "cpu_support.h"
#include "interior_request.h"

namespace oqa_vector {

struct Store_plan {
  bool streaming;
  bool narrow_vectors;
};

// Crossovers measured with demosaic_bench --plans on the project's machines
// (AMD EPYC, 32 MiB of last-level cache per core complex, shared with other
// guests):
// - Non-temporal stores win once the output no longer stays in the caches
//   from one frame to the next: interleaved from 1920x1080 (12 MiB, by
//   1.3-1.4x) on; regular stores win at 1280x720 (5.5 MiB, by 1.2-1.5x).
// - Planar output is six write streams per pair of rows. Streamed in 16- or
//   32-byte pieces they overflow the write-combining buffers (SSE: 6x slower
//   at 1920x1080), so only the AVX-512 companion, whose stores fill whole
//   lines, streams planar output, from 2560x1440 (21 MiB) on.
// - With regular stores the AVX-512 companion is faster with 256-bit
//   vectors once the output leaves the second-level cache (by 15-30% at
//   1280x720 and 1920x1080) and slower below; streamed, both widths tie.
// The processor's own report of its cache size is no guide: virtual
// machines may report the whole socket's.
constexpr std::size_t interleaved_streaming_threshold_bytes = std::size_t{8} << 20;
constexpr std::size_t planar_streaming_threshold_bytes = std::size_t{16} << 20;
constexpr std::size_t narrow_vectors_threshold_bytes = std::size_t{4} << 20;

inline Store_plan plan_stores(Vector_level level, QN_COLOR_FORMAT layout,
                              std::size_t output_bytes) {
  // Streamed, the AVX-512 companion keeps its full width, whose stores fill whole lines.
  bool const avx512 = level == Vector_level::avx512;
  bool const streaming = layout == QN_COLOR_FORMAT_BGR_PLANAR
                             ? avx512 && output_bytes >= planar_streaming_threshold_bytes
                             : output_bytes >= interleaved_streaming_threshold_bytes;
  bool const narrow = avx512 && !streaming && output_bytes >= narrow_vectors_threshold_bytes;
  return {streaming, narrow};
}

}  // namespace oqa_vector

#endif  // OQA_VECTOR_STORE_PLAN_H
