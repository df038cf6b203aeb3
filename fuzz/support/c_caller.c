/* In C any int converts to an enumeration type, so out-of-range phases and
 * formats reach the library exactly as a C program would pass them. */
#include "c_caller.h"

#include "ostrevan_oqa_demosaic.h"

int oqa_fuzz_call_transform(int width, int height, int origin_x, int origin_y, int phase,
                            int color_format, int color_filter_type, int bit_depth,
                            const unsigned short* input_buffer, unsigned short* output_buffer,
                            int instruction_set_level, int use_default_entry) {
  if (use_default_entry) {
    return qn_demosaic_transform_16_to_48(
        width, height, origin_x, origin_y, (QN_COLOR_FILTER_ARRAY_PHASE)phase,
        (QN_COLOR_FORMAT)color_format, (QN_COLOR_FILTER_TYPE)color_filter_type, bit_depth,
        input_buffer, output_buffer);
  }
  return qn_demosaic_transform_test_16_to_48(
      width, height, origin_x, origin_y, (QN_COLOR_FILTER_ARRAY_PHASE)phase,
      (QN_COLOR_FORMAT)color_format, (QN_COLOR_FILTER_TYPE)color_filter_type, bit_depth,
      input_buffer, output_buffer, instruction_set_level);
}
