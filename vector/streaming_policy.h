// When the interior kernels switch from regular to non-temporal stores.
#ifndef OQA_VECTOR_STREAMING_POLICY_H
#define OQA_VECTOR_STREAMING_POLICY_H

#include <cstddef>

#include "interior_request.h"

namespace oqa_vector {

// Crossovers measured with bench/demosaic (stores/...) on the project's
// machines (32 MiB last-level cache): below them the output stays in the
// caches and regular stores win; above them streaming saves reading every
// output line before writing it (1.8-2.3x faster interleaved at 4K).
// Interleaved output crossed over between 13 and 16 MiB; three planes are
// three write streams, which gain less and only from about 40 MiB.
// Not scaled by the cache size: on a 300 MiB-cache Xeon regular stores were
// 20-35% faster for one 4K frame at a time, but streaming gave 1.7x the
// throughput with 16 frames in flight, where the cache is shared.
constexpr std::size_t interleaved_streaming_threshold_bytes = std::size_t{16} << 20;
constexpr std::size_t planar_streaming_threshold_bytes = std::size_t{40} << 20;

inline bool use_streaming_stores(Output_layout layout, std::size_t output_bytes) {
  return output_bytes >= (layout == Output_layout::bgr_planar
                              ? planar_streaming_threshold_bytes
                              : interleaved_streaming_threshold_bytes);
}

}  // namespace oqa_vector

#endif  // OQA_VECTOR_STREAMING_POLICY_H
