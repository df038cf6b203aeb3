// A companion that declines at initialise is passed over. This test runs in
// a folder holding a test build of the AVX-512 companion that always declines
// (and whose transform entry would scribble over the interior if it were
// ever called) beside the real SSE and AVX2 companions.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "modules/unique_ptr_reference_counted.h"
#include "modules/vector_demosaic_module.h"
#include "ostrevan_oqa_demosaic.h"
#include "vector_test_support.h"

extern unique_ptr_reference_counted<Vector_sse_demosaic_module> vector_sse_demosaic_module;
extern unique_ptr_reference_counted<Vector_avx2_demosaic_module> vector_avx2_demosaic_module;
extern unique_ptr_reference_counted<Vector_avx512_demosaic_module> vector_avx512_demosaic_module;

namespace vector_test {
namespace {

TEST(Level_fallback, DecliningCompanionIsPassedOverAndOutputStaysExact) {
  ASSERT_EQ(qn_demosaic_module_initialize(), 0);
  ASSERT_NE(vector_avx512_demosaic_module.get(), nullptr);
  EXPECT_TRUE(vector_avx512_demosaic_module.get()->load_failed);
  // The real lower companions are still used where the processor has them.
  Companion const avx2(Level{"avx2", 2});
  EXPECT_EQ(vector_avx2_demosaic_module.get()->load_failed, !avx2.usable);

  std::mt19937 random(8);
  int const width = 203;
  int const height = 31;
  auto const input = random_mosaic(width, height, random);
  std::size_t const samples = 3 * static_cast<std::size_t>(width) * height;
  for (int format = 0; format < 3; ++format) {
    std::vector<std::uint16_t> chosen(samples, 1);
    std::vector<std::uint16_t> scalar(samples, 2);
    ASSERT_EQ(qn_demosaic_transform_16_to_48(
                  width, height, 0, 1, QN_CFA_PHASE_BLUE, static_cast<QN_COLOR_FORMAT>(format),
                  QN_COLOR_FILTER_TYPE_BAYER, 16, input.data(), chosen.data()),
              QN_DEMOSAIC_NO_ERROR);
    ASSERT_EQ(qn_demosaic_transform_test_16_to_48(
                  width, height, 0, 1, QN_CFA_PHASE_BLUE, static_cast<QN_COLOR_FORMAT>(format),
                  QN_COLOR_FILTER_TYPE_BAYER, 16, input.data(), scalar.data(), 0),
              QN_DEMOSAIC_NO_ERROR);
    EXPECT_EQ(chosen, scalar) << "format " << format;
    // Naming the declined level explicitly also falls back to exact output.
    std::vector<std::uint16_t> named(samples, 3);
    ASSERT_EQ(qn_demosaic_transform_test_16_to_48(
                  width, height, 0, 1, QN_CFA_PHASE_BLUE, static_cast<QN_COLOR_FORMAT>(format),
                  QN_COLOR_FILTER_TYPE_BAYER, 16, input.data(), named.data(), 3),
              QN_DEMOSAIC_NO_ERROR);
    EXPECT_EQ(named, scalar) << "format " << format;
  }
  qn_demosaic_module_terminate();
}

}  // namespace
}  // namespace vector_test
