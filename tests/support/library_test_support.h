// Helpers for tests that go through the public interface.
#ifndef OQA_TESTS_SUPPORT_LIBRARY_TEST_SUPPORT_H
#define OQA_TESTS_SUPPORT_LIBRARY_TEST_SUPPORT_H

#include <cstdint>
#include <random>
#include <vector>

#include "ostrevan_oqa_demosaic.h"

namespace test_support {

inline std::vector<std::uint16_t> random_mosaic(int width, int height, unsigned seed) {
  std::mt19937 random(seed);
  std::vector<std::uint16_t> mosaic(static_cast<std::size_t>(width) * height);
  for (auto& sample : mosaic) sample = static_cast<std::uint16_t>(random());
  return mosaic;
}

// Level that stands for the default entry, which uses the level initialise chose.
constexpr int default_entry = -1000;

// Output of one transform at `level` (or through the default entry), or an empty
// vector when the call was rejected.
inline std::vector<std::uint16_t> transform(std::vector<std::uint16_t> const& mosaic, int width,
                                            int height, int phase, int format, int level,
                                            int origin_x = 0, int origin_y = 0) {
  std::vector<std::uint16_t> output(static_cast<std::size_t>(3) * width * height, 0xA5A5);
  auto const p = static_cast<QN_COLOR_FILTER_ARRAY_PHASE>(phase);
  auto const f = static_cast<QN_COLOR_FORMAT>(format);
  int const result = level == default_entry
                         ? qn_demosaic_transform_16_to_48(width, height, origin_x, origin_y, p, f,
                                                          QN_COLOR_FILTER_TYPE_BAYER, 16,
                                                          mosaic.data(), output.data())
                         : qn_demosaic_transform_test_16_to_48(width, height, origin_x, origin_y, p,
                                                               f, QN_COLOR_FILTER_TYPE_BAYER, 16,
                                                               mosaic.data(), output.data(), level);
  return result == QN_DEMOSAIC_NO_ERROR ? output : std::vector<std::uint16_t>{};
}

inline bool processor_has_avx512() {
  return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
         __builtin_cpu_supports("avx512bw");
}

}  // namespace test_support

#endif  // OQA_TESTS_SUPPORT_LIBRARY_TEST_SUPPORT_H
