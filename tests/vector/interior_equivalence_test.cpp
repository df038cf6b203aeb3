// The companions against the scalar interior, byte for byte: each kernel
// under every store plan (regular or non-temporal stores; 256- or 512-bit
// vectors for AVX-512) whatever the frame size, and each companion through
// its own entry, which adds the argument checks, frames without an interior
// and a plan of its own choosing. Guard zones of a sentinel around the
// outputs, kept by the border pixels too, show every stray write.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "cpu_support.h"
#include "engine/interior_demosaic.h"
#include "interior_geometry.h"
#include "interior_kernel.h"
#include "library_test_support.h"
#include "modules/unique_ptr_reference_counted.h"
#include "modules/vector_demosaic_module.h"

extern unique_ptr_reference_counted<Vector_sse_demosaic_module> vector_sse_demosaic_module;
extern unique_ptr_reference_counted<Vector_avx2_demosaic_module> vector_avx2_demosaic_module;
extern unique_ptr_reference_counted<Vector_avx512_demosaic_module> vector_avx512_demosaic_module;

namespace {

using oqa_vector::Vector_level;
using Samples = std::vector<std::uint16_t>;

constexpr std::uint16_t sentinel = 0xA5C3;
constexpr std::size_t guard = 64;
constexpr char const* isa_names[] = {"scalar", "sse", "avx2", "avx512"};

struct Frame {
  int width, height, origin_x, origin_y;
  QN_COLOR_FILTER_ARRAY_PHASE phase;
  QN_COLOR_FORMAT format;
};

// One implementation of the interior pass, writing the frame's output image.
using Interior = std::function<void(Frame const&, std::uint16_t const*, std::uint16_t*)>;

// Runs `interior` on `shifted_input` (a copy of `input`) and the scalar pass
// on `input`, each output image `shift` samples into a buffer of sentinels
// with `guard` more on either side, and compares the whole buffers.
::testing::AssertionResult matches_scalar(Interior const& interior, Frame const& f,
                                          Samples const& input, std::uint16_t const* shifted_input,
                                          std::size_t shift) {
  Samples expected(shift + 3 * input.size() + 2 * guard, sentinel);
  Samples actual(expected);
  EXPECT_TRUE(with_color_format(f.format, [&](auto format) {
    demosaic_interior_using_color_phase<format()>(f.width, f.height, f.origin_x, f.origin_y,
                                                  input.data(), expected.data() + shift + guard,
                                                  f.phase);
  }));
  interior(f, shifted_input, actual.data() + shift + guard);
  if (actual == expected) return ::testing::AssertionSuccess();
  auto const first = std::mismatch(actual.begin(), actual.end(), expected.begin()).first;
  return ::testing::AssertionFailure()
         << f.width << "x" << f.height << " origin (" << f.origin_x << "," << f.origin_y
         << ") phase " << f.phase << " format " << f.format << " output shift " << shift
         << ": first difference at buffer sample " << first - actual.begin();
}

// Saturated and alternating samples, where a wider sum would carry.
std::uint16_t extreme_sample(std::size_t kind, std::size_t row, std::size_t column) {
  constexpr std::uint16_t values[5][2] = {
      {0, 0}, {65535, 65535}, {65535, 0}, {65535, 65534}, {1, 65535}};
  std::size_t const parity[5] = {0, 0, row + column, column, row};
  return values[kind][parity[kind] % 2];
}

// Every width up to three vectors of 32 lanes and a little beyond (whole
// vectors, overlapped last vectors of both parities, rows shorter than one
// vector) at one, two and five interior rows, then frames without an
// interior, square, tall and long thin ones; each in every phase and format
// with origins of both parities, some negative, and one shape in four with
// extreme samples. The input and the output image move one sample at a time
// across a whole 64-byte line, each in its own order.
void expect_scalar_bytes(Interior const& interior) {
  std::vector<std::pair<int, int>> sizes = {{2, 2},   {2, 9},   {9, 2},   {40, 40},  {5, 40},
                                            {160, 6}, {131, 7}, {641, 5}, {1000, 3}, {33, 200}};
  for (int width = 3; width <= 104; ++width) {
    for (int const height : {3, 4, 7}) sizes.emplace_back(width, height);
  }
  std::size_t count = 0;
  for (std::size_t shape = 0; shape < sizes.size(); ++shape) {
    auto const [width, height] = sizes[shape];
    Samples input = test_support::random_mosaic(width, height, static_cast<unsigned>(shape));
    for (std::size_t i = 0; shape % 4 == 3 && i < input.size(); ++i) {
      input[i] = extreme_sample(shape / 4 % 5, i / width, i % width);
    }
    for (int phase = 0; phase < 4; ++phase) {
      auto const cfa_phase = static_cast<QN_COLOR_FILTER_ARRAY_PHASE>(phase);
      for (int format = 0; format < 3; ++format, ++count) {
        auto const layout = static_cast<QN_COLOR_FORMAT>(format);
        int const origin_x = static_cast<int>(count % 7) - 3;
        int const origin_y = static_cast<int>(count % 5) - 2;
        Frame const frame{width, height, origin_x, origin_y, cfa_phase, layout};
        std::size_t const input_shift = 7 * count % 32;
        Samples shifted(input_shift);
        shifted.insert(shifted.end(), input.begin(), input.end());
        ASSERT_TRUE(
            matches_scalar(interior, frame, input, shifted.data() + input_shift, count % 32));
      }
    }
  }
}

// A plan is named <isa>[_256][_streaming]: 256-bit vectors (AVX-512 only)
// and non-temporal stores.
class Kernel_plans : public ::testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    if (!oqa_vector::processor_supports(level(), oqa_vector::read_processor_words())) {
      GTEST_SKIP() << "not supported by this processor";
    }
  }
  Vector_level level() const {
    return GetParam().starts_with("avx512") ? Vector_level::avx512
           : GetParam().starts_with("avx2") ? Vector_level::avx2
                                            : Vector_level::sse;
  }
};

TEST_P(Kernel_plans, GiveTheScalarBytes) {
  using Kernel = void (*)(oqa_vector::Interior_request const&);
  constexpr Kernel kernels[] = {nullptr, oqa_vector_sse::demosaic_interior,
                                oqa_vector_avx2::demosaic_interior,
                                oqa_vector_avx512::demosaic_interior};
  Kernel const kernel = kernels[static_cast<int>(level())];
  bool const narrow = GetParam().find("_256") != std::string::npos;
  bool const streaming = GetParam().ends_with("_streaming");
  expect_scalar_bytes([&](Frame const& f, std::uint16_t const* input, std::uint16_t* output) {
    if (f.width < 3 || f.height < 3) return;  // no interior: the entries never call the kernel
    oqa_vector::Interior_request request = oqa_vector::describe_interior(
        f.width, f.height, f.origin_x, f.origin_y, f.phase, f.format, input, output);
    request.streaming = streaming;
    request.narrow_vectors = narrow;
    kernel(request);
  });
}

INSTANTIATE_TEST_SUITE_P(Kernels, Kernel_plans,
                         ::testing::Values("sse", "sse_streaming", "avx2", "avx2_streaming",
                                           "avx512", "avx512_streaming", "avx512_256",
                                           "avx512_256_streaming"),
                         [](auto const& info) { return info.param; });

// Each companion through its transform entry, as the library loaded it.
class Companion_entries : public ::testing::TestWithParam<int> {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(qn_demosaic_module_initialize(), 0); }
  static void TearDownTestSuite() { qn_demosaic_module_terminate(); }
  void SetUp() override {
    Vector_demosaic_module const* const modules[] = {nullptr, vector_sse_demosaic_module.get(),
                                                     vector_avx2_demosaic_module.get(),
                                                     vector_avx512_demosaic_module.get()};
    // The library loads every companion this processor can run; the stress
    // tests, which compare every level through the public entries, rely on it.
    ASSERT_EQ(modules[GetParam()]->load_failed, GetParam() > test_support::processor_level());
    if (modules[GetParam()]->load_failed) GTEST_SKIP() << "not supported by this processor";
    transform_ = modules[GetParam()]->transform_function;
  }

  Interior entry() const {
    return [transform = transform_](Frame const& f, std::uint16_t const* input,
                                    std::uint16_t* output) {
      EXPECT_EQ(
          transform(f.width, f.height, f.origin_x, f.origin_y, f.phase, f.format, input, output),
          QN_DEMOSAIC_NO_ERROR);
    };
  }

  Vector_transform_function transform_ = nullptr;
};

TEST_P(Companion_entries, GiveTheScalarBytes) { expect_scalar_bytes(entry()); }

// Large enough for every entry to stream interleaved output, and for the
// AVX-512 entry to stream planar output too.
TEST_P(Companion_entries, GiveTheScalarBytesOnAFrameLargeEnoughToStream) {
  Samples const input = test_support::random_mosaic(3001, 2400, 9);
  for (QN_COLOR_FORMAT const format :
       {QN_COLOR_FORMAT_BGR_PLANAR, QN_COLOR_FORMAT_RGB_INTERLEAVED}) {
    Frame const frame{3001, 2400, 1, 1, QN_CFA_PHASE_RED, format};
    EXPECT_TRUE(matches_scalar(entry(), frame, input, input.data(), 0));
  }
}

// The library validates before calling; a direct caller's bad arguments only
// must not make the kernel read or write out of bounds.
TEST_P(Companion_entries, RefuseBadArgumentsWithoutWriting) {
  Samples const input(16, 7);
  Samples output(48, sentinel);
  auto const call = [&](int width, int phase, int format, std::uint16_t const* in) {
    return transform_(width, 4, 0, 0, static_cast<QN_COLOR_FILTER_ARRAY_PHASE>(phase),
                      static_cast<QN_COLOR_FORMAT>(format), in, output.data());
  };
  EXPECT_NE(call(1, 0, 0, input.data()), 0);
  EXPECT_NE(call(4, 0, 0, nullptr), 0);
  EXPECT_NE(call(4, 4, 0, input.data()), 0);
  EXPECT_NE(call(4, 0, 3, input.data()), 0);
  EXPECT_EQ(output, Samples(48, sentinel));
}

INSTANTIATE_TEST_SUITE_P(Companions, Companion_entries, ::testing::Values(1, 2, 3),
                         [](auto const& info) { return isa_names[info.param]; });

}  // namespace
