// The scalar engine: the averaging rules on their own (every missing sample
// is one of these averages), then whole frames and the interior and border
// passes alone, against worked examples and the independent per-pixel model.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <random>
#include <tuple>
#include <utility>
#include <vector>

#include "bayer_reference_model.h"
#include "engine/border_demosaic.h"
#include "engine/interior_demosaic.h"
#include "engine/pixel_geometry.h"
#include "library_test_support.h"

namespace {

using namespace demosaic_grid_names;  // NOLINT(google-build-using-namespace)

// The average over positions P around the centre of a 3x3 neighbourhood
// given row by row.
template <typename... P>
unsigned short average(std::array<unsigned short, 9> const& samples) {
  Dimensional_array_overlay<unsigned short> const view{samples.data(), 3, 3};
  return Pixel_averager<std::tuple<P...>>{}(view, 1, 1);
}

TEST(PixelAverager, OneCopiesTwoRoundHalvesUpThreeTruncateFourAveragePairwise) {
  EXPECT_EQ((average<G8>({0, 0, 0, 0, 9, 0, 0, 0, 17})), 17);
  EXPECT_EQ((average<G3, G5>({0, 0, 0, 1, 0, 2, 0, 0, 0})), 2);
  EXPECT_EQ((average<G1, G7, G5>({0, 1, 0, 0, 0, 0, 0, 1, 0})), 0);
  EXPECT_EQ((average<G0, G2, G6, G8>({0, 0, 0, 0, 0, 0, 0, 0, 1})), 1);
  // left 0, right 1, above 0, below 3: (0+1+1)>>1 = 1, (0+3+1)>>1 = 2, (1+2+1)>>1 = 2
  EXPECT_EQ((average<G3, G5, G1, G7>({0, 0, 0, 0, 0, 1, 0, 3, 0})), 2);
  // 0, 0, 1, 3 paired as written gives 1; pairing the first with the third would give 2.
  EXPECT_EQ((average<G0, G2, G6, G8>({0, 0, 0, 0, 0, 0, 1, 0, 3})), 1);
  EXPECT_EQ((average<G0, G2, G6, G8>({65535, 0, 65535, 0, 0, 0, 65535, 0, 65535})), 65535);
}

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

// The worked examples: 2x2, 3x3 in two formats and two phases, and 4x4 whose
// interior is one cell of every class: (250, 335, 420), (370, 360, 520),
// (970, 810, 820) and (1170, 1085, 1000).
TEST(WorkedExamples, GiveExactlyTheseSamples) {
  struct Example {
    int width, height, phase, format;
    Samples input, expected;
  };
  Samples const three_by_three = {0, 3, 1, 4, 9, 7, 2, 6, 5};
  Samples const four_by_four = {0,   10,  40,   90,   160,  250,  360,  490,
                                640, 810, 1000, 1210, 1440, 1690, 1960, 2250};  // 10 * i * i
  Example const examples[] = {
      {2, 2, 0, 1, {100, 7, 8, 300}, {300, 8, 100, 300, 7, 100, 300, 8, 100, 300, 8, 100}},
      {3, 3, 0, 0, three_by_three, {9, 9, 9, 9, 9, 9, 9, 9, 9, 4, 3, 5, 4, 6,
                                    7, 5, 6, 7, 0, 1, 1, 1, 3, 3, 2, 4, 5}},
      {3, 3, 2, 1, three_by_three, {4, 0, 3, 6, 3, 3, 7, 1, 3, 4, 3, 5, 6, 9,
                                    5, 7, 5, 5, 4, 2, 6, 6, 5, 6, 7, 5, 6}},
      {4, 4, 0, 1, four_by_four, {250,  85,   0,    250,  10,   20,   370,  153,  40,  490,
                                  90,   40,   250,  160,  320,  250,  335,  420,  370, 360,
                                  520,  490,  553,  520,  970,  803,  640,  970,  810, 820,
                                  1170, 1085, 1000, 1370, 1210, 1000, 1690, 1440, 640, 1690,
                                  1403, 820,  1970, 1960, 1000, 2250, 1585, 1000}},
  };
  qn_demosaic_module_initialize();
  for (Example const& e : examples) {
    EXPECT_EQ(test_support::transform(e.input, e.width, e.height, e.phase, e.format, 0), e.expected)
        << e.width << "x" << e.height << " phase " << e.phase << " format " << e.format;
  }
  qn_demosaic_module_terminate();
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
