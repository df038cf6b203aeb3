// The transform's argument checks, written out independently of the library:
// the first failing check decides the result code and the one error record.
#ifndef OQA_FUZZ_VALIDATION_ORACLE_H
#define OQA_FUZZ_VALIDATION_ORACLE_H

#include <cstdio>
#include <string>

struct Transform_arguments {
  int width = 0;
  int height = 0;
  int origin_x = 0;
  int origin_y = 0;
  int phase = 0;
  int color_format = 0;
  int color_filter_type = 0;
  int bit_depth = 16;
  unsigned short const* input_buffer = nullptr;
  unsigned short* output_buffer = nullptr;
};

struct Expected_result {
  int code = 0;
  std::string error_message;  // empty when the call must succeed
};

inline std::string format_message(char const* format, int value = 0) {
  char text[160];
  std::snprintf(text, sizeof text, format, "ERROR: ", value);
  return text;
}

inline Expected_result expected_result(Transform_arguments const& a) {
  if (a.width < 2)
    return {13, format_message("%s Illegal input image width (%d) specified!", a.width)};
  if (a.height < 2) {
    return {14, format_message("%s Illegal input image height (%d) specified!", a.height)};
  }
  if (a.input_buffer == nullptr)
    return {3, format_message("%s NULL input buffer pointer specified!")};
  if (a.output_buffer == nullptr) {
    return {4, format_message("%s NULL output buffer pointer specified!")};
  }
  if (a.input_buffer == a.output_buffer) {
    return {5, format_message("%s Separate input and output buffers must be specified!")};
  }
  if (a.phase < 0 || a.phase > 3) {
    return {6, format_message("%s Invalid color filter array phase specified!")};
  }
  if (a.color_format < 0 || a.color_format > 2) {
    return {10, format_message("%s Invalid output color format specified!")};
  }
  if (a.color_filter_type != 0) {
    return {7, format_message("%s Unknown color filter type - unable to demosaic the image!")};
  }
  if (a.bit_depth > 16) {
    return {8, format_message("%s Unsupported bit depth of %d specified!", a.bit_depth)};
  }
  return {0, {}};
}

#endif  // OQA_FUZZ_VALIDATION_ORACLE_H
