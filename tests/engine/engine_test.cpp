// The scalar engine: whole frames, and the interior and border passes alone,
// against the independent per-pixel model, which holds the averaging rules
// (every missing sample is one of its averages).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <utility>
#include <vector>

#include "bayer_reference_model.h"
#include "engine/border_demosaic.h"
#include "engine/interior_demosaic.h"
#include "library_test_support.h"

namespace {

using Samples = std::vector<std::uint16_t>;
constexpr std::uint16_t sentinel = 0xBEEF;

// The interior or the border pass alone, into an output filled with the sentinel.
Samples run_pass(bool interior, Samples const& input, int width, int height, int phase, int format,
                 int x, int y) {
  Samples output(3 * input.size(), sentinel);
  auto const p = static_cast<QN_COLOR_FILTER_ARRAY_PHASE>(phase);
  EXPECT_TRUE(with_color_format(static_cast<QN_COLOR_FORMAT>(format), [&](auto f) {
    if (interior) {
      demosaic_interior_using_color_phase<f()>(width, height, x, y, input.data(), output.data(), p);
    } else {
      demosaic_transform_edges_scalar_impl<f()>(width, height, x, y, p, input.data(),
                                                output.data());
    }
  }));
  return output;
}

// Every size up to 9x9, random ones up to 70x70 and long thin ones, every
// phase and format, origins from -5 to 5, random and full-scale samples: the
// whole transform gives the model's output, the interior pass writes exactly
// rows 1 to h-2 and columns 1 to w-2 of it, the border pass the other pixels.
TEST(Passes, SplitTheImageAndMatchTheModel) {
  qn_demosaic_module_initialize();
  std::mt19937 random(2024);
  std::vector<std::pair<int, int>> sizes = {{500, 3}, {3, 400}, {257, 5},
                                            {4, 301}, {2, 70},  {70, 2}};
  for (int i = 0; i < 64; ++i) sizes.emplace_back(2 + i % 8, 2 + i / 8);
  for (int i = 0; i < 60; ++i) sizes.emplace_back(2 + random() % 69, 2 + random() % 69);
  for (auto const& [width, height] : sizes) {
    Samples input = test_support::random_mosaic(width, height, random());
    if (random() % 4 == 0) std::fill(input.begin(), input.end(), 65535);
    for (int phase = 0; phase < 4; ++phase) {
      int const x = static_cast<int>(random() % 11) - 5;
      int const y = static_cast<int>(random() % 11) - 5;
      for (int format = 0; format < 3; ++format) {
        SCOPED_TRACE(::testing::Message() << width << "x" << height << " phase " << phase
                                          << " origin " << x << "," << y << " format " << format);
        auto const model = reference::model_image(input, width, height, x, y, phase, format);
        ASSERT_EQ(test_support::transform(input, width, height, phase, format, 0, x, y), model);
        auto const interior = run_pass(true, input, width, height, phase, format, x, y);
        auto const border = run_pass(false, input, width, height, phase, format, x, y);
        for (std::size_t s = 0; s < model.size(); ++s) {
          std::size_t const pixel = format == 0 ? s % input.size() : s / 3;
          std::size_t const row = pixel / width;
          std::size_t const column = pixel % width;
          bool const inside = row >= 1 && row + 2 <= static_cast<std::size_t>(height) &&
                              column >= 1 && column + 2 <= static_cast<std::size_t>(width);
          ASSERT_EQ((inside ? interior : border)[s], model[s]) << "pixel " << row << "," << column;
          ASSERT_EQ((inside ? border : interior)[s], sentinel) << "pixel " << row << "," << column;
        }
      }
    }
  }
  qn_demosaic_module_terminate();
}

}  // namespace
