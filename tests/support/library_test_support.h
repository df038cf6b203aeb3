// Helpers for tests that go through the public interface.
#ifndef OQA_TESTS_SUPPORT_LIBRARY_TEST_SUPPORT_H
#define OQA_TESTS_SUPPORT_LIBRARY_TEST_SUPPORT_H

#include <link.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "bayer_reference_model.h"
#include "validation_oracle.h"

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
  Transform_arguments const call{width,  height, origin_x, origin_y,      phase,
                                 format, 0,      16,       mosaic.data(), output.data()};
  return call_transform(call, level, level == default_entry) == QN_DEMOSAIC_NO_ERROR
             ? output
             : std::vector<std::uint16_t>{};
}

// Highest level this processor can run: AVX-512 needs F, DQ and BW; AVX2 needs FMA too.
inline int processor_level() {
  if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
      __builtin_cpu_supports("avx512bw")) {
    return 3;
  }
  if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")) return 2;
  return __builtin_cpu_supports("sse4.1") ? 1 : 0;
}

// A frame with its expected output from the independent per-pixel model.
struct Case {
  int width, height, origin_x, origin_y, phase, format;
  std::vector<std::uint16_t> input, expected;

  bool transform_is_exact(int level) const {
    return transform(input, width, height, phase, format, level, origin_x, origin_y) == expected;
  }
};

// Sizes with both parities, every phase and format, odd and negative origins.
inline std::vector<Case> make_cases(int count) {
  std::vector<Case> cases;
  for (int i = 0; i < count; ++i) {
    Case c{2 + (i * 37) % 131, 2 + (i * 53) % 97, i % 3 - 1, (i / 3) % 2, i % 4, i % 3, {}, {}};
    c.input = random_mosaic(c.width, c.height, 1000 + static_cast<unsigned>(i));
    c.expected = reference::model_image(c.input, c.width, c.height, c.origin_x, c.origin_y, c.phase,
                                        c.format);
    cases.push_back(std::move(c));
  }
  return cases;
}

// True while a mapped object's path ends with "/" + `file_name`.
inline bool is_mapped(std::string const& file_name) {
  std::string suffix = "/" + file_name;
  auto const visit = [](dl_phdr_info* info, std::size_t, void* data) {
    auto const& wanted = *static_cast<std::string const*>(data);
    return info->dlpi_name != nullptr && std::string(info->dlpi_name).ends_with(wanted) ? 1 : 0;
  };
  return dl_iterate_phdr(visit, &suffix) != 0;
}

}  // namespace test_support

#endif  // OQA_TESTS_SUPPORT_LIBRARY_TEST_SUPPORT_H
