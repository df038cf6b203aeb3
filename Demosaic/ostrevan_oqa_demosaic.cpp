// The library's exported entry points: module lifecycle and the transform.
#include "ostrevan_oqa_demosaic.h"

#include <atomic>

#include "diagnostics/oqa_log_object.h"
#include "diagnostics/oqa_timer.h"
#include "engine/border_demosaic.h"
#include "engine/interior_demosaic.h"
#include "modules/instruction_set_level.h"
#include "modules/unique_ptr_reference_counted.h"
#include "modules/vector_demosaic_module.h"

// The process-wide objects, alive from the first initialise to the balancing
// terminate. constinit: no constructor code runs when the library is loaded.
QN_DEMOSAIC_EXPORT constinit unique_ptr_reference_counted<Oqa_log_object> logger;
QN_DEMOSAIC_EXPORT constinit unique_ptr_reference_counted<Vector_sse_demosaic_module>
    vector_sse_demosaic_module;
QN_DEMOSAIC_EXPORT constinit unique_ptr_reference_counted<Vector_avx2_demosaic_module>
    vector_avx2_demosaic_module;
QN_DEMOSAIC_EXPORT constinit unique_ptr_reference_counted<Vector_avx512_demosaic_module>
    vector_avx512_demosaic_module;

namespace {

// Written once per initialise, read by every default transform without a
// lock. Relaxed atomic: concurrent initialises and transforms must not race,
// and nothing else is ordered by it.
std::atomic<int> vector_instructions_supported = 0;

constexpr char const* error_prefix = "ERROR: ";

void select_instruction_set_level() {
  Module_usability modules;
  modules.sse = !vector_sse_demosaic_module.get()->load_failed;
  modules.avx2 = !vector_avx2_demosaic_module.get()->load_failed;
  modules.avx512 = !vector_avx512_demosaic_module.get()->load_failed;
  vector_instructions_supported.store(
      choose_instruction_set_level(oqa_vector::read_processor_words(), modules),
      std::memory_order_relaxed);
}

// The usable module of a vector level, or null for the scalar path.
Vector_demosaic_module const* vector_module_for_level(int instruction_set_level) {
  Vector_demosaic_module const* module = nullptr;
  switch (instruction_set_level) {
    case instruction_set_sse:
      module = vector_sse_demosaic_module.get();
      break;
    case instruction_set_avx2:
      module = vector_avx2_demosaic_module.get();
      break;
    case instruction_set_avx512:
      module = vector_avx512_demosaic_module.get();
      break;
    default:
      return nullptr;
  }
  if (module == nullptr || module->load_failed || module->transform_function == nullptr) {
    return nullptr;
  }
  return module;
}

template <QN_COLOR_FORMAT F>
void demosaic_whole_image(int width, int height, int origin_x, int origin_y,
                          QN_COLOR_FILTER_ARRAY_PHASE phase, const unsigned short* input_buffer,
                          unsigned short* output_buffer, Vector_demosaic_module const* module) {
  if (module != nullptr) {
    module->transform_function(width, height, origin_x, origin_y, phase, F, input_buffer,
                               output_buffer);
  } else {
    demosaic_interior_using_color_phase<F>(width, height, origin_x, origin_y, input_buffer,
                                           output_buffer, phase);
  }
  demosaic_transform_edges_scalar_impl<F>(width, height, origin_x, origin_y, phase, input_buffer,
                                          output_buffer);
}

int demosaic_transform_impl(int width, int height, int origin_x, int origin_y,
                            QN_COLOR_FILTER_ARRAY_PHASE phase, QN_COLOR_FORMAT color_format,
                            QN_COLOR_FILTER_TYPE color_filter_type, int bit_depth,
                            const unsigned short* input_buffer, unsigned short* output_buffer,
                            int instruction_set_level) {
  Oqa_log_object const* const log = logger.get();
  if (log == nullptr) {
    return QN_DEMOSAIC_MODULE_NOT_INITIALIZED;
  }
  // The argument tests in the order they are made; the first that fails is
  // logged (its "%s" takes the prefix, a "%d" the value) and returned.
  struct Argument_test {
    bool fails;
    QN_DEMOSAIC_ERROR code;
    char const* format;
    int value;
  };
  Argument_test const tests[] = {
      {width < 2, QN_DEMOSAIC_INVALID_IMAGE_WIDTH, "%s Illegal input image width (%d) specified!",
       width},
      {height < 2, QN_DEMOSAIC_INVALID_IMAGE_HEIGHT,
       "%s Illegal input image height (%d) specified!", height},
      {input_buffer == nullptr, QN_DEMOSAIC_NULL_INPUT_BUFFER,
       "%s NULL input buffer pointer specified!", 0},
      {output_buffer == nullptr, QN_DEMOSAIC_NULL_OUTPUT_BUFFER,
       "%s NULL output buffer pointer specified!", 0},
      {input_buffer == output_buffer, QN_DEMOSAIC_SAME_INPUT_AND_OUTPUT_BUFFER,
       "%s Separate input and output buffers must be specified!", 0},
      {static_cast<int>(phase) < QN_CFA_PHASE_RED ||
           static_cast<int>(phase) > QN_CFA_PHASE_GREEN_IN_BLUE_ROW,
       QN_DEMOSAIC_INVALID_COLOR_FILTER_ARRAY_PHASE,
       "%s Invalid color filter array phase specified!", 0},
      {static_cast<int>(color_format) < QN_COLOR_FORMAT_BGR_PLANAR ||
           static_cast<int>(color_format) > QN_COLOR_FORMAT_RGB_INTERLEAVED,
       QN_DEMOSAIC_INVALID_OUTPUT_COLOR_FORMAT, "%s Invalid output color format specified!", 0},
      {static_cast<int>(color_filter_type) != QN_COLOR_FILTER_TYPE_BAYER,
       QN_DEMOSAIC_UNKNOWN_COLOR_FILTER_TYPE,
       "%s Unknown color filter type - unable to demosaic the image!", 0},
      {bit_depth > 16, QN_DEMOSAIC_UNSUPPORTED_BIT_DEPTH,
       "%s Unsupported bit depth of %d specified!", bit_depth},
  };
  for (Argument_test const& test : tests) {
    if (test.fails) {
      log->log(OQA_LOG_ERROR, __FILE__, __LINE__, "demosaic_transform_impl", test.format,
               error_prefix, test.value);
      return test.code;
    }
  }

  OQATimer const timer("demosaic", log, __FILE__, __LINE__, "demosaic_transform_impl");
  Vector_demosaic_module const* const module = vector_module_for_level(instruction_set_level);
  bool const known_format = with_color_format(color_format, [&](auto format) {
    demosaic_whole_image<format()>(width, height, origin_x, origin_y, phase, input_buffer,
                                   output_buffer, module);
  });
  return known_format ? QN_DEMOSAIC_NO_ERROR : QN_DEMOSAIC_INVALID_OUTPUT_COLOR_FORMAT;
}

}  // namespace

extern "C" {

int qn_demosaic_module_initialize(void) {
  logger.acquire("OSTREVAN_OQA_DEMOSAIC");
  vector_sse_demosaic_module.acquire();
  vector_avx2_demosaic_module.acquire();
  vector_avx512_demosaic_module.acquire();
  select_instruction_set_level();
  return QN_DEMOSAIC_NO_ERROR;
}

int qn_demosaic_module_terminate(void) {
  vector_sse_demosaic_module.release();
  vector_avx2_demosaic_module.release();
  vector_avx512_demosaic_module.release();
  logger.release();
  return QN_DEMOSAIC_NO_ERROR;
}

int qn_demosaic_transform_16_to_48(int width, int height, int origin_x, int origin_y,
                                   QN_COLOR_FILTER_ARRAY_PHASE phase, QN_COLOR_FORMAT color_format,
                                   QN_COLOR_FILTER_TYPE color_filter_type, int bit_depth,
                                   const unsigned short* input_buffer,
                                   unsigned short* output_buffer) {
  return demosaic_transform_impl(width, height, origin_x, origin_y, phase, color_format,
                                 color_filter_type, bit_depth, input_buffer, output_buffer,
                                 vector_instructions_supported.load(std::memory_order_relaxed));
}

int qn_demosaic_transform_test_16_to_48(int width, int height, int origin_x, int origin_y,
                                        QN_COLOR_FILTER_ARRAY_PHASE phase,
                                        QN_COLOR_FORMAT color_format,
                                        QN_COLOR_FILTER_TYPE color_filter_type, int bit_depth,
                                        const unsigned short* input_buffer,
                                        unsigned short* output_buffer, int instruction_set_level) {
  return demosaic_transform_impl(width, height, origin_x, origin_y, phase, color_format,
                                 color_filter_type, bit_depth, input_buffer, output_buffer,
                                 instruction_set_level);
}

}  // extern "C"
