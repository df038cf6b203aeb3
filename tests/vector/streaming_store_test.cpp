// The non-temporal store path of each kernel, forced on regardless of the
// size threshold: it must give the same bytes as the scalar interior for
// every output alignment (the aligned part starts at a different pixel, of
// either parity) and leave the guard zones alone.
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

struct Kernel {
  char const* isa;
  oqa_vector::Vector_level level;
  void (*run)(oqa_vector::Interior_request const&);
};

void PrintTo(Kernel const& kernel, std::ostream* out) { *out << kernel.isa; }

class Streaming_stores : public ::testing::TestWithParam<Kernel> {
 protected:
  void SetUp() override {
    if (!oqa_vector::processor_supports(GetParam().level, oqa_vector::read_processor_words())) {
      GTEST_SKIP() << "level " << GetParam().isa << " is not supported by this processor";
    }
  }
};

TEST_P(Streaming_stores, MatchScalarAtEveryOutputAlignment) {
  std::mt19937 random(6);
  constexpr std::uint16_t sentinel = 0x5AA5;
  for (int const width : {5, 21, 40, 67, 131, 200}) {
    int const height = 6;
    auto const input = random_mosaic(width, height, random);
    for (int format = 0; format < 3; ++format) {
      auto const color_format = static_cast<QN_COLOR_FORMAT>(format);
      Guarded_output expected(width, height, sentinel);
      scalar_interior(color_format, width, height, 1, 0, QN_CFA_PHASE_GREEN_IN_RED_ROW, input,
                      expected.image());
      // Shifting the image inside a larger buffer moves its alignment one
      // sample at a time across a whole 64-byte line.
      for (std::size_t shift = 0; shift < 32; ++shift) {
        std::vector<std::uint16_t> buffer(expected.whole().size() + shift, sentinel);
        oqa_vector::Interior_request request = oqa_vector::describe_interior(
            width, height, 1, 0, QN_CFA_PHASE_GREEN_IN_RED_ROW, color_format, input.data(),
            buffer.data() + shift + Guarded_output::guard);
        request.streaming = true;
        GetParam().run(request);
        std::vector<std::uint16_t> const actual(buffer.begin() + static_cast<long>(shift),
                                                buffer.end());
        ASSERT_EQ(actual, expected.whole())
            << GetParam().isa << " width " << width << " format " << format << " shift " << shift;
        for (std::size_t i = 0; i < shift; ++i) {
          ASSERT_EQ(buffer[i], sentinel);
        }
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Levels, Streaming_stores,
                         ::testing::Values(Kernel{"sse", oqa_vector::Vector_level::sse,
                                                  oqa_vector_sse::demosaic_interior},
                                           Kernel{"avx2", oqa_vector::Vector_level::avx2,
                                                  oqa_vector_avx2::demosaic_interior},
                                           Kernel{"avx512", oqa_vector::Vector_level::avx512,
                                                  oqa_vector_avx512::demosaic_interior}),
                         [](auto const& info) { return std::string(info.param.isa); });

}  // namespace
}  // namespace vector_test
