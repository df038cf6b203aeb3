// The three C entries of one companion library (level OQA_VECTOR_LEVEL).
// This file is baseline code: loading the library and calling the
// initialise entry execute no instruction beyond x86-64's base set, and the
// kernel is reached only through the transform entry.
#include <cstddef>

#include "cpu_support.h"
#include "interior_geometry.h"
#include "interior_kernel.h"
#include "ostrevan_oqa_demosaic.h"
#include "store_plan.h"
#include "vector_level_config.h"

#define OQA_CONCAT3_(a, b, c) a##b##c
#define OQA_CONCAT3(a, b, c) OQA_CONCAT3_(a, b, c)
#define OQA_INITIALIZE_ENTRY \
  OQA_CONCAT3(qn_demosaic_vector_, OQA_VECTOR_ISA_NAME, _module_initialize)
#define OQA_TRANSFORM_ENTRY \
  OQA_CONCAT3(qn_demosaic_transform_interior_16_to_48_vector_, OQA_VECTOR_ISA_NAME, )
#define OQA_TERMINATE_ENTRY OQA_CONCAT3(qn_demosaic_vector_, OQA_VECTOR_ISA_NAME, _module_terminate)

namespace {

// The library validates every argument before calling (and there the
// order, codes and messages are kept); these are only the conditions under
// which the kernel would read or write out of bounds, or has nothing to do
// (width or height 2: no interior).
bool kernel_can_run(int width, int height, QN_COLOR_FILTER_ARRAY_PHASE phase,
                    QN_COLOR_FORMAT color_format, const unsigned short* input_buffer,
                    const unsigned short* output_buffer) {
  auto const in_range = [](int value, int first, int last) {
    return value >= first && value <= last;
  };
  return width > 2 && height > 2 && input_buffer != nullptr && output_buffer != nullptr &&
         input_buffer != output_buffer &&
         in_range(phase, QN_CFA_PHASE_RED, QN_CFA_PHASE_GREEN_IN_BLUE_ROW) &&
         in_range(color_format, QN_COLOR_FORMAT_BGR_PLANAR, QN_COLOR_FORMAT_RGB_INTERLEAVED);
}

}  // namespace

extern "C" {

QN_DEMOSAIC_EXPORT int OQA_INITIALIZE_ENTRY(void) {
  return oqa_vector::processor_supports(static_cast<oqa_vector::Vector_level>(OQA_VECTOR_LEVEL),
                                        oqa_vector::read_processor_words())
             ? 0
             : 1;
}

QN_DEMOSAIC_EXPORT int OQA_TRANSFORM_ENTRY(int width, int height, int origin_x, int origin_y,
                                           QN_COLOR_FILTER_ARRAY_PHASE phase,
                                           QN_COLOR_FORMAT color_format,
                                           const unsigned short* input_buffer,
                                           unsigned short* output_buffer) {
  if (!kernel_can_run(width, height, phase, color_format, input_buffer, output_buffer)) {
    return width == 2 || height == 2 ? 0 : 1;
  }
  oqa_vector::Interior_request request = oqa_vector::describe_interior(
      width, height, origin_x, origin_y, phase, color_format, input_buffer, output_buffer);
  std::size_t const output_bytes = 3 * request.width * request.height * sizeof(unsigned short);
  oqa_vector::Store_plan const plan = oqa_vector::plan_stores(
      static_cast<oqa_vector::Vector_level>(OQA_VECTOR_LEVEL), request.layout, output_bytes);
  request.streaming = plan.streaming;
  request.narrow_vectors = plan.narrow_vectors;
  OQA_KERNEL_NAMESPACE::demosaic_interior(request);
  if (request.streaming) {
    // Non-temporal stores are weakly ordered: make them visible before the
    // caller (or another thread it signals) reads the output.
    __builtin_ia32_sfence();
  }
  return 0;
}

QN_DEMOSAIC_EXPORT void OQA_TERMINATE_ENTRY(void) {}

}  // extern "C"
