// Fuzzer over the public transform with any arguments, small images and any
// level: every call against the argument rules (result code, one error
// record with the exact text, nothing written when refused), every accepted
// one against the scalar level and the independent per-pixel model.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <utility>
#include <vector>

#include "bayer_reference_model.h"
#include "test_doubles_control.h"
#include "validation_oracle.h"

namespace {

constexpr std::uint16_t untouched = 0xA5A5;
// Rows wider than two 512-bit vectors reach the companions' main loops
// (and, at multiples of 32, their two-rows-at-a-time path).
constexpr int max_width = 160;
constexpr int max_height = 40;

// Whether the capture logger of the test doubles opened at initialise: only
// then are the records checked.
bool logger_present = false;

[[noreturn]] void fail(char const* what, Transform_arguments const& a, int code) {
  std::fprintf(stderr,
               "FAILED: %s (code %d; width %d height %d origin %d,%d phase %d format %d "
               "filter %d depth %d)\n",
               what, code, a.width, a.height, a.origin_x, a.origin_y, a.phase, a.color_format,
               a.color_filter_type, a.bit_depth);
  std::abort();
}

// Sizes mostly small and valid; otherwise any value that must be refused.
int side(FuzzedDataProvider& data, int max_side) {
  return data.ConsumeBool() ? data.ConsumeIntegralInRange(-2, max_side)
                            : std::min(data.ConsumeIntegral<int>(), 1);
}

// Mostly in the valid range, sometimes any int at all.
int enumeration(FuzzedDataProvider& data, int last_valid) {
  return data.ConsumeBool() ? data.ConsumeIntegralInRange(-1, last_valid + 1)
                            : data.ConsumeIntegral<int>();
}

// The records since the previous call, forgotten once read.
std::vector<test_doubles::Logged_record> take_records() {
  return std::exchange(test_doubles::state().records, {});
}

void check_log(Transform_arguments const& a, Expected_result const& expected, int code) {
  auto const records = take_records();
  if (!logger_present) return;
  bool const refused = expected.code != 0;
  if (records.size() != 1 || records[0].priority != (refused ? 2 : 7)) {
    fail("a call must log one record: an error when refused, its time otherwise", a, code);
  }
  if (refused && records[0].message != expected.error_message) fail("wrong error text", a, code);
  if (records[0].function != "demosaic_transform_impl") fail("wrong function name", a, code);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  qn_demosaic_module_initialize();
  logger_present = !test_doubles::state().events.empty();
  take_records();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t size) {
  FuzzedDataProvider data(bytes, size);
  Transform_arguments a;
  a.width = side(data, max_width);
  a.height = side(data, max_height);
  a.origin_x = data.ConsumeIntegral<int>();
  a.origin_y = data.ConsumeIntegral<int>();
  a.phase = enumeration(data, 3);
  a.color_format = enumeration(data, 2);
  a.color_filter_type = data.ConsumeBool() ? 0 : data.ConsumeIntegral<int>();
  a.bit_depth =
      data.ConsumeBool() ? data.ConsumeIntegralInRange(-1, 17) : data.ConsumeIntegral<int>();
  int const buffers = data.ConsumeIntegralInRange(0, 7);
  int const level =
      data.ConsumeBool() ? data.ConsumeIntegralInRange(-1, 4) : data.ConsumeIntegral<int>();
  bool const default_entry = data.ConsumeIntegralInRange(0, 3) == 0;

  std::size_t const pixels = a.width >= 2 && a.height >= 2 ? std::size_t(a.width) * a.height : 4;
  // Exactly sized, so that any access outside the caller's buffers is caught.
  std::vector<std::uint16_t> input(pixels);
  std::vector<std::uint8_t> const samples = data.ConsumeRemainingBytes<std::uint8_t>();
  for (std::size_t i = 0; i < pixels && !samples.empty(); ++i) {
    std::size_t const j = (2 * i) % samples.size();
    input[i] = static_cast<std::uint16_t>(samples[j] | samples[(j + 1) % samples.size()] << 8);
  }
  std::vector<std::uint16_t> output(3 * pixels, untouched);
  // 0 to 3 separate buffers, then each other choice in order.
  use_buffers(a, static_cast<Buffers>(std::max(0, buffers - 3)), input.data(), output.data());

  Expected_result const expected = expected_result(a);
  take_records();
  int const code = call_transform(a, level, default_entry);
  if (code != expected.code) fail("wrong result code", a, code);
  check_log(a, expected, code);
  if (code != 0) {
    if (output != std::vector<std::uint16_t>(output.size(), untouched)) {
      fail("a refused call wrote to the output", a, code);
    }
    return 0;
  }

  std::vector<std::uint16_t> scalar(3 * pixels, untouched);
  Transform_arguments scalar_call = a;
  scalar_call.output_buffer = scalar.data();
  if (call_transform(scalar_call, 0, false) != 0)
    fail("the scalar level refused a valid call", a, code);
  if (output != scalar) fail("output differs from the scalar level", a, code);
  std::vector<std::uint16_t> const model = reference::model_image(
      input, a.width, a.height, a.origin_x, a.origin_y, a.phase, a.color_format);
  if (scalar != model) fail("scalar level differs from the per-pixel model", a, code);
  return 0;
}
