// Fuzzer over the public transform: any arguments, valid or not, small
// images, any instruction-set level. Every call is checked against the
// argument rules (result code, one error record with the exact text, nothing
// written when rejected) and every accepted call against the scalar level
// and an independent per-pixel model.
#include <dlfcn.h>
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "bayer_reference_model.h"
#include "ostrevan_oqa_demosaic.h"
#include "support/c_caller.h"
#include "support/counting_logger.h"
#include "validation_oracle.h"

namespace {

constexpr std::uint16_t untouched = 0xA5A5;
constexpr int max_side = 40;

Oqa_fuzz_take_log_summary take_log_summary = nullptr;

[[noreturn]] void fail(char const* what, Transform_arguments const& a, int code) {
  std::fprintf(stderr,
               "FAILED: %s (code %d; width %d height %d origin %d,%d phase %d format %d "
               "filter %d depth %d)\n",
               what, code, a.width, a.height, a.origin_x, a.origin_y, a.phase, a.color_format,
               a.color_filter_type, a.bit_depth);
  std::abort();
}

// Sizes mostly small and valid; otherwise any value that must be refused.
int side(FuzzedDataProvider& data) {
  return data.ConsumeBool() ? data.ConsumeIntegralInRange(-2, max_side)
                            : std::min(data.ConsumeIntegral<int>(), 1);
}

// Mostly in the valid range, sometimes any int at all.
int enumeration(FuzzedDataProvider& data, int last_valid) {
  return data.ConsumeBool() ? data.ConsumeIntegralInRange(-1, last_valid + 1)
                            : data.ConsumeIntegral<int>();
}

int call(Transform_arguments const& a, int level, bool default_entry) {
  return oqa_fuzz_call_transform(a.width, a.height, a.origin_x, a.origin_y, a.phase, a.color_format,
                                 a.color_filter_type, a.bit_depth, a.input_buffer, a.output_buffer,
                                 level, default_entry ? 1 : 0);
}

void forget_log() {
  Oqa_fuzz_log_summary ignored;
  if (take_log_summary != nullptr) take_log_summary(&ignored);
}

void check_log(Transform_arguments const& a, Expected_result const& expected, int code) {
  if (take_log_summary == nullptr) return;
  Oqa_fuzz_log_summary log;
  take_log_summary(&log);
  if (log.other_records != 0) fail("record of an unexpected priority", a, code);
  if (expected.code == 0) {
    if (log.error_records != 0 || log.timing_records != 1) {
      fail("a successful call must log one timing record only", a, code);
    }
    return;
  }
  if (log.error_records != 1 || log.timing_records != 0) {
    fail("a refused call must log one error record only", a, code);
  }
  if (log.last_error_message != expected.error_message) fail("wrong error text", a, code);
  if (log.last_function != "demosaic_transform_impl") fail("wrong function name", a, code);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  qn_demosaic_module_initialize();
  // The counting logger is present when the fuzzer runs with it on the
  // loader's path; without it only the result codes and buffers are checked.
  void* const logger_library = dlopen("libostrevan_oqa_logger.so", RTLD_LAZY | RTLD_NOLOAD);
  if (logger_library != nullptr) {
    take_log_summary = reinterpret_cast<Oqa_fuzz_take_log_summary>(
        dlsym(logger_library, oqa_fuzz_take_log_summary_name));
    dlclose(logger_library);
  }
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t size) {
  FuzzedDataProvider data(bytes, size);
  Transform_arguments a;
  a.width = side(data);
  a.height = side(data);
  a.origin_x = data.ConsumeIntegral<int>();
  a.origin_y = data.ConsumeIntegral<int>();
  a.phase = enumeration(data, 3);
  a.color_format = enumeration(data, 2);
  a.color_filter_type = data.ConsumeBool() ? 0 : data.ConsumeIntegral<int>();
  a.bit_depth =
      data.ConsumeBool() ? data.ConsumeIntegralInRange(-1, 17) : data.ConsumeIntegral<int>();
  int const buffers = data.ConsumeIntegralInRange(0, 7);  // 0..3 valid, others bad pointers
  int const level =
      data.ConsumeBool() ? data.ConsumeIntegralInRange(-1, 4) : data.ConsumeIntegral<int>();
  bool const default_entry = data.ConsumeIntegralInRange(0, 3) == 0;

  bool const valid_size = a.width >= 2 && a.height >= 2;
  std::size_t const pixels =
      valid_size ? static_cast<std::size_t>(a.width) * static_cast<std::size_t>(a.height) : 4;
  // Exactly sized, so that any access outside the caller's buffers is caught.
  std::vector<std::uint16_t> input(pixels);
  std::vector<std::uint8_t> const samples = data.ConsumeRemainingBytes<std::uint8_t>();
  for (std::size_t i = 0; i < pixels && !samples.empty(); ++i) {
    std::size_t const j = (2 * i) % samples.size();
    input[i] = static_cast<std::uint16_t>(samples[j] | samples[(j + 1) % samples.size()] << 8);
  }
  std::vector<std::uint16_t> output(3 * pixels, untouched);
  // One buffer as large as both for the equal-pointer case.
  std::vector<std::uint16_t> shared(3 * pixels, untouched);
  a.input_buffer = input.data();
  a.output_buffer = output.data();
  switch (buffers) {
    case 4:
      a.input_buffer = nullptr;
      break;
    case 5:
      a.output_buffer = nullptr;
      break;
    case 6:
      a.input_buffer = nullptr;
      a.output_buffer = nullptr;
      break;
    case 7:
      a.input_buffer = shared.data();
      a.output_buffer = shared.data();
      break;
    default:
      break;
  }

  Expected_result const expected = expected_result(a);
  forget_log();
  int const code = call(a, level, default_entry);
  if (code != expected.code) fail("wrong result code", a, code);
  check_log(a, expected, code);
  if (code != 0) {
    bool const output_untouched =
        std::all_of(output.begin(), output.end(), [](std::uint16_t s) { return s == untouched; }) &&
        std::all_of(shared.begin(), shared.end(), [](std::uint16_t s) { return s == untouched; });
    if (!output_untouched) fail("a refused call wrote to the output", a, code);
    return 0;
  }

  std::vector<std::uint16_t> scalar(3 * pixels, untouched);
  Transform_arguments scalar_call = a;
  scalar_call.output_buffer = scalar.data();
  if (call(scalar_call, 0, false) != 0) fail("the scalar level refused a valid call", a, code);
  if (output != scalar) fail("output differs from the scalar level", a, code);
  std::vector<std::uint16_t> const model = reference::model_image(
      input, a.width, a.height, a.origin_x, a.origin_y, a.phase, a.color_format);
  if (scalar != model) fail("scalar level differs from the per-pixel model", a, code);
  forget_log();
  return 0;
}
