// Builds the interior kernel for the one Highway target selected by
// OQA_VECTOR_LEVEL and gives it a baseline entry point.
#include "vector_level_config.h"

// clang-format off
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "interior_kernel-inl.h"
#include "hwy/foreach_target.h"
// clang-format on

#include "hwy/highway.h"
#include "interior_kernel-inl.h"

#if HWY_ONCE
#include "interior_kernel.h"

namespace OQA_KERNEL_NAMESPACE {

// Baseline code: a direct call into the one target's namespace, no dispatch.
void demosaic_interior(oqa_vector::Interior_request const& request) {
  OQA_KERNEL_TARGET_NAMESPACE::demosaic_interior(request);
}

}  // namespace OQA_KERNEL_NAMESPACE
#endif  // HWY_ONCE
