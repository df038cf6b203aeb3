// The transform's argument checks, written out independently of the library,
// and a call of either entry with any argument values.
#ifndef OQA_TESTS_SUPPORT_VALIDATION_ORACLE_H
#define OQA_TESTS_SUPPORT_VALIDATION_ORACLE_H

#include <string>

#include "ostrevan_oqa_demosaic.h"

// One call's arguments, the enumerations as plain ints whatever their value;
// by default a valid 2x2 call but for its buffers.
struct Transform_arguments {
  int width = 2, height = 2, origin_x = 0, origin_y = 0;
  int phase = 0, color_format = 0, color_filter_type = 0, bit_depth = 16;
  unsigned short const* input_buffer = nullptr;
  unsigned short* output_buffer = nullptr;
};

// The buffers a call gets: its own input and output, a null one or both, or
// one buffer (the output) for both.
enum class Buffers { separate, null_input, null_output, both_null, same };

inline void use_buffers(Transform_arguments& a, Buffers buffers, unsigned short const* input,
                        unsigned short* output) {
  bool const no_input = buffers == Buffers::null_input || buffers == Buffers::both_null;
  bool const no_output = buffers == Buffers::null_output || buffers == Buffers::both_null;
  a.input_buffer = no_input ? nullptr : buffers == Buffers::same ? output : input;
  a.output_buffer = no_output ? nullptr : output;
}

struct Expected_result {
  int code = 0;
  std::string error_message;  // empty when the call must succeed
};

// The checks in the library's order: the first that fails decides the code
// and the text of the one error record.
inline Expected_result expected_result(Transform_arguments const& a) {
  auto const error = [](int code, std::string const& text) {
    return Expected_result{code, "ERROR:  " + text};
  };
  auto const n = [](int value) { return std::to_string(value); };
  if (a.width < 2) return error(13, "Illegal input image width (" + n(a.width) + ") specified!");
  if (a.height < 2) return error(14, "Illegal input image height (" + n(a.height) + ") specified!");
  if (a.input_buffer == nullptr) return error(3, "NULL input buffer pointer specified!");
  if (a.output_buffer == nullptr) return error(4, "NULL output buffer pointer specified!");
  if (a.input_buffer == a.output_buffer) {
    return error(5, "Separate input and output buffers must be specified!");
  }
  if (a.phase < 0 || a.phase > 3) return error(6, "Invalid color filter array phase specified!");
  if (a.color_format < 0 || a.color_format > 2) {
    return error(10, "Invalid output color format specified!");
  }
  if (a.color_filter_type != 0) {
    return error(7, "Unknown color filter type - unable to demosaic the image!");
  }
  if (a.bit_depth > 16) {
    return error(8, "Unsupported bit depth of " + n(a.bit_depth) + " specified!");
  }
  return {0, {}};
}

// Calls the default entry, or the test entry at `level`. In C++ the header
// gives the enumerations an int base, so every int reaches the library just
// as a C caller passes it.
inline int call_transform(Transform_arguments const& a, int level, bool default_entry) {
  auto const phase = static_cast<QN_COLOR_FILTER_ARRAY_PHASE>(a.phase);
  auto const format = static_cast<QN_COLOR_FORMAT>(a.color_format);
  auto const type = static_cast<QN_COLOR_FILTER_TYPE>(a.color_filter_type);
  return default_entry ? qn_demosaic_transform_16_to_48(a.width, a.height, a.origin_x, a.origin_y,
                                                        phase, format, type, a.bit_depth,
                                                        a.input_buffer, a.output_buffer)
                       : qn_demosaic_transform_test_16_to_48(
                             a.width, a.height, a.origin_x, a.origin_y, phase, format, type,
                             a.bit_depth, a.input_buffer, a.output_buffer, level);
}

#endif  // OQA_TESTS_SUPPORT_VALIDATION_ORACLE_H
