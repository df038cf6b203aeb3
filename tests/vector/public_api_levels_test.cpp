// Through the public interface: every instruction-set level gives the same
// whole image (interior by the chosen engine, border by the scalar pass).
// Runs in the library folder, so the companions are found next to it.
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

class Public_api_levels : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(qn_demosaic_module_initialize(), 0); }
  static void TearDownTestSuite() { qn_demosaic_module_terminate(); }
};

// Otherwise the comparison below would only compare the scalar path with itself.
TEST_F(Public_api_levels, LibraryUsesEveryCompanionThisProcessorSupports) {
  EXPECT_EQ(vector_sse_demosaic_module.get()->load_failed, !Companion(Level{"sse", 1}).usable);
  EXPECT_EQ(vector_avx2_demosaic_module.get()->load_failed, !Companion(Level{"avx2", 2}).usable);
  EXPECT_EQ(vector_avx512_demosaic_module.get()->load_failed,
            !Companion(Level{"avx512", 3}).usable);
}

TEST_F(Public_api_levels, EveryLevelGivesTheScalarImage) {
  std::mt19937 random(7);
  for (auto const& [width, height] : {std::pair{2, 2}, std::pair{3, 3}, std::pair{37, 5},
                                      std::pair{130, 67}, std::pair{641, 9}}) {
    auto const input = random_mosaic(width, height, random);
    for (int format = 0; format < 3; ++format) {
      for (int phase = 0; phase < 4; ++phase) {
        std::size_t const samples = 3 * static_cast<std::size_t>(width) * height;
        std::vector<std::uint16_t> scalar(samples, 1);
        ASSERT_EQ(qn_demosaic_transform_test_16_to_48(
                      width, height, 1, 0, static_cast<QN_COLOR_FILTER_ARRAY_PHASE>(phase),
                      static_cast<QN_COLOR_FORMAT>(format), QN_COLOR_FILTER_TYPE_BAYER, 16,
                      input.data(), scalar.data(), 0),
                  QN_DEMOSAIC_NO_ERROR);
        for (int level = 1; level <= 3; ++level) {
          std::vector<std::uint16_t> vector_output(samples, 2);
          ASSERT_EQ(qn_demosaic_transform_test_16_to_48(
                        width, height, 1, 0, static_cast<QN_COLOR_FILTER_ARRAY_PHASE>(phase),
                        static_cast<QN_COLOR_FORMAT>(format), QN_COLOR_FILTER_TYPE_BAYER, 16,
                        input.data(), vector_output.data(), level),
                    QN_DEMOSAIC_NO_ERROR);
          ASSERT_EQ(vector_output, scalar) << "level " << level << " " << width << "x" << height
                                           << " format " << format << " phase " << phase;
        }
      }
    }
  }
}

}  // namespace
}  // namespace vector_test
