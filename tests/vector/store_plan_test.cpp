// Each kernel under every store plan it can be given (regular or
// non-temporal stores; 256- or 512-bit vectors for AVX-512), forced
// regardless of the frame size: the same bytes as the scalar interior for
// every alignment of the input and the output, and the guard zones left
// alone. Widths whose row stride is a whole number of vectors take the
// two-rows-at-a-time path, the others the row-by-row one.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "cpu_support.h"
#include "interior_geometry.h"
#include "interior_kernel.h"
#include "vector_test_support.h"

namespace vector_test {
namespace {

struct Plan {
  char const* name;
  oqa_vector::Vector_level level;
  void (*run)(oqa_vector::Interior_request const&);
  bool streaming;
  bool narrow_vectors;
};

void PrintTo(Plan const& plan, std::ostream* out) { *out << plan.name; }

class Store_plans : public ::testing::TestWithParam<Plan> {
 protected:
  void SetUp() override {
    if (!oqa_vector::processor_supports(GetParam().level, oqa_vector::read_processor_words())) {
      GTEST_SKIP() << GetParam().name << " is not supported by this processor";
    }
  }
};

TEST_P(Store_plans, MatchScalarAtEveryAlignment) {
  std::mt19937 random(6);
  constexpr std::uint16_t sentinel = 0x5AA5;
  for (int const width : {5, 21, 64, 67, 131, 160}) {
    for (int const height : {6, 7}) {
      auto const mosaic = random_mosaic(width, height, random);
      for (int format = 0; format < 3; ++format) {
        auto const color_format = static_cast<QN_COLOR_FORMAT>(format);
        Guarded_output expected(width, height, sentinel);
        scalar_interior(color_format, width, height, 1, 0, QN_CFA_PHASE_GREEN_IN_RED_ROW, mosaic,
                        expected.image());
        // Shifting the images inside larger buffers moves their alignment
        // one sample at a time across a whole 64-byte line, the input's in
        // a different order from the output's.
        for (std::size_t shift = 0; shift < 32; ++shift) {
          std::size_t const input_shift = 7 * shift % 32;
          std::vector<std::uint16_t> input(mosaic.size() + input_shift);
          std::copy(mosaic.begin(), mosaic.end(), input.begin() + static_cast<long>(input_shift));
          std::vector<std::uint16_t> buffer(expected.whole().size() + shift, sentinel);
          oqa_vector::Interior_request request = oqa_vector::describe_interior(
              width, height, 1, 0, QN_CFA_PHASE_GREEN_IN_RED_ROW, color_format,
              input.data() + input_shift, buffer.data() + shift + Guarded_output::guard);
          request.streaming = GetParam().streaming;
          request.narrow_vectors = GetParam().narrow_vectors;
          GetParam().run(request);
          std::vector<std::uint16_t> const actual(buffer.begin() + static_cast<long>(shift),
                                                  buffer.end());
          ASSERT_EQ(actual, expected.whole()) << GetParam().name << " " << width << "x" << height
                                              << " format " << format << " shift " << shift;
          for (std::size_t i = 0; i < shift; ++i) {
            ASSERT_EQ(buffer[i], sentinel);
          }
        }
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Kernels, Store_plans,
    ::testing::Values(Plan{"sse", oqa_vector::Vector_level::sse, oqa_vector_sse::demosaic_interior,
                           false, false},
                      Plan{"sse_streaming", oqa_vector::Vector_level::sse,
                           oqa_vector_sse::demosaic_interior, true, false},
                      Plan{"avx2", oqa_vector::Vector_level::avx2,
                           oqa_vector_avx2::demosaic_interior, false, false},
                      Plan{"avx2_streaming", oqa_vector::Vector_level::avx2,
                           oqa_vector_avx2::demosaic_interior, true, false},
                      Plan{"avx512", oqa_vector::Vector_level::avx512,
                           oqa_vector_avx512::demosaic_interior, false, false},
                      Plan{"avx512_streaming", oqa_vector::Vector_level::avx512,
                           oqa_vector_avx512::demosaic_interior, true, false},
                      Plan{"avx512_256", oqa_vector::Vector_level::avx512,
                           oqa_vector_avx512::demosaic_interior, false, true},
                      Plan{"avx512_256_streaming", oqa_vector::Vector_level::avx512,
                           oqa_vector_avx512::demosaic_interior, true, true}),
    [](auto const& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace vector_test
