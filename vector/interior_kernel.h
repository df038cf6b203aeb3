// Baseline entry points of the three interior kernels. Each is defined in a
// separate build of interior_kernel.cpp and must only be called once the
// processor check for its level has passed.
#ifndef OQA_VECTOR_INTERIOR_KERNEL_H
#define OQA_VECTOR_INTERIOR_KERNEL_H

#include "interior_request.h"

namespace oqa_vector_sse {
void demosaic_interior(oqa_vector::Interior_request const& request);
}
namespace oqa_vector_avx2 {
void demosaic_interior(oqa_vector::Interior_request const& request);
}
namespace oqa_vector_avx512 {
void demosaic_interior(oqa_vector::Interior_request const& request);
}

#endif  // OQA_VECTOR_INTERIOR_KERNEL_H
