// The interior and border passes on their own: worked examples and the
// exact set of pixels each one writes.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <random>
#include <vector>

#include "bayer_reference_model.h"
#include "engine/border_demosaic.h"
#include "engine/interior_demosaic.h"

namespace {

constexpr unsigned short sentinel = 0xBEEF;

enum class Pass { interior, border };

std::vector<unsigned short> run(Pass pass, int format, int width, int height, int origin_x,
                                int origin_y, int phase, std::vector<unsigned short> const& input) {
  std::vector<unsigned short> output(static_cast<std::size_t>(3) * width * height, sentinel);
  auto const p = static_cast<QN_COLOR_FILTER_ARRAY_PHASE>(phase);
  auto* const out = output.data();
  auto const* const in = input.data();
  with_color_format(static_cast<QN_COLOR_FORMAT>(format), [&](auto f) {
    if (pass == Pass::interior) {
      demosaic_interior_using_color_phase<f()>(width, height, origin_x, origin_y, in, out, p);
    } else {
      demosaic_transform_edges_scalar_impl<f()>(width, height, origin_x, origin_y, p, in, out);
    }
  });
  return output;
}

// (blue, green, red) of pixel i in any format.
std::array<unsigned short, 3> bgr_at(std::vector<unsigned short> const& output, int format,
                                     std::size_t pixel_count, std::size_t i) {
  if (format == 0) return {output[i], output[pixel_count + i], output[2 * pixel_count + i]};
  if (format == 1) return {output[3 * i], output[3 * i + 1], output[3 * i + 2]};
  return {output[3 * i + 2], output[3 * i + 1], output[3 * i]};
}

using Triple = std::array<unsigned short, 3>;
const std::vector<unsigned short> three_by_three = {0, 3, 1, 4, 9, 7, 2, 6, 5};

TEST(InteriorPass, ThreeByThreeWritesOnlyTheCentre) {
  for (int format = 0; format < 3; ++format) {
    auto const output = run(Pass::interior, format, 3, 3, 0, 0, 0, three_by_three);
    for (std::size_t i = 0; i < 9; ++i) {
      if (i == 4) {
        EXPECT_EQ(bgr_at(output, format, 9, i), (Triple{9, 6, 3}));
      } else {
        EXPECT_EQ(bgr_at(output, format, 9, i), (Triple{sentinel, sentinel, sentinel}));
      }
    }
  }
  auto const bgr = run(Pass::interior, 1, 3, 3, 0, 0, 0, three_by_three);
  EXPECT_EQ((std::vector<unsigned short>(bgr.begin() + 12, bgr.begin() + 15)),
            (std::vector<unsigned short>{9, 6, 3}));
}

TEST(InteriorPass, FourByFourCellOfEveryClass) {
  std::vector<unsigned short> input(16);
  for (int i = 0; i < 16; ++i) input[i] = static_cast<unsigned short>(10 * i * i);
  auto const output = run(Pass::interior, 1, 4, 4, 0, 0, 0, input);
  EXPECT_EQ(bgr_at(output, 1, 16, 5), (Triple{250, 335, 420}));
  EXPECT_EQ(bgr_at(output, 1, 16, 6), (Triple{370, 360, 520}));
  EXPECT_EQ(bgr_at(output, 1, 16, 9), (Triple{970, 810, 820}));
  EXPECT_EQ(bgr_at(output, 1, 16, 10), (Triple{1170, 1085, 1000}));
}

TEST(InteriorPass, WidthOrHeightTwoWritesNothing) {
  std::vector<unsigned short> input(2 * 9, 1234);
  for (int format = 0; format < 3; ++format) {
    for (auto [width, height] : {std::pair{2, 9}, std::pair{9, 2}, std::pair{2, 2}}) {
      auto const output = run(Pass::interior, format, width, height, 0, 0, 0, input);
      EXPECT_EQ(output, std::vector<unsigned short>(output.size(), sentinel));
    }
  }
}

TEST(InteriorPass, OnlyTheParitiesOfTheOriginMatter) {
  std::mt19937 random(7);
  std::vector<unsigned short> input(9 * 7);
  for (auto& sample : input) sample = static_cast<unsigned short>(random());
  for (int phase = 0; phase < 4; ++phase) {
    auto const base = run(Pass::interior, 1, 9, 7, 0, 0, phase, input);
    EXPECT_EQ(run(Pass::interior, 1, 9, 7, 2, 0, phase, input), base);
    EXPECT_EQ(run(Pass::interior, 1, 9, 7, 0, -2, phase, input), base);
    EXPECT_EQ(run(Pass::interior, 1, 9, 7, -2, -2, phase, input), base);
    EXPECT_NE(run(Pass::interior, 1, 9, 7, 1, 0, phase, input), base);
  }
}

TEST(BorderPass, TwoByTwoInEveryFormat) {
  std::vector<unsigned short> const input = {100, 7, 8, 300};
  auto const planar = run(Pass::border, 0, 2, 2, 0, 0, 0, input);
  EXPECT_EQ(planar,
            (std::vector<unsigned short>{300, 300, 300, 300, 8, 7, 8, 8, 100, 100, 100, 100}));
  auto const bgr = run(Pass::border, 1, 2, 2, 0, 0, 0, input);
  EXPECT_EQ(bgr, (std::vector<unsigned short>{300, 8, 100, 300, 7, 100, 300, 8, 100, 300, 8, 100}));
  auto const rgb = run(Pass::border, 2, 2, 2, 0, 0, 0, input);
  EXPECT_EQ(rgb, (std::vector<unsigned short>{100, 8, 300, 100, 7, 300, 100, 8, 300, 100, 8, 300}));
}

TEST(BorderPass, ThreeSampleGreenTruncatesAndTwoSampleRedRoundsUp) {
  // Phase 3: pixel (1, 0) is red; above 1, below 2, right 2 give green 1.
  std::vector<unsigned short> input = {1, 0, 0, 0, 2, 0, 2, 0, 0};
  auto const output = run(Pass::border, 1, 3, 3, 0, 0, 3, input);
  EXPECT_EQ(bgr_at(output, 1, 9, 3)[1], 1);
  // Phase 0: pixel (0, 1) is green in a red row; left 1 and right 2 give red 2.
  input = {1, 0, 2, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(bgr_at(run(Pass::border, 1, 3, 3, 0, 0, 0, input), 1, 9, 1)[2], 2);
}

TEST(BorderPass, OriginMinusOneActsLikePlusOne) {
  std::vector<unsigned short> input(6 * 5);
  for (std::size_t i = 0; i < input.size(); ++i) input[i] = static_cast<unsigned short>(i * 977);
  auto const plus = run(Pass::border, 1, 6, 5, 1, 0, 0, input);
  EXPECT_EQ(run(Pass::border, 1, 6, 5, -1, 0, 0, input), plus);
  // (0, 0) is then green in a red row: red from the right, blue from below.
  EXPECT_EQ(bgr_at(plus, 1, 30, 0), (Triple{input[6], input[0], input[1]}));
}

TEST(BorderPass, IgnoresSamplesNotAdjacentToTheBorder) {
  std::vector<unsigned short> input(8 * 7, 500);
  auto const before = run(Pass::border, 0, 8, 7, 0, 0, 1, input);
  input[3 * 8 + 3] = 9;  // row 3, column 3: two pixels away from every edge
  EXPECT_EQ(run(Pass::border, 0, 8, 7, 0, 0, 1, input), before);
}

// The two passes split the image exactly: the interior pass writes rows
// 1..h-2 and columns 1..w-2, the border pass every other pixel, and each
// writes the values of the model.
TEST(PassRegions, InteriorAndBorderWriteComplementaryPixels) {
  std::mt19937 random(11);
  for (int height = 2; height <= 9; ++height) {
    for (int width = 2; width <= 9; ++width) {
      std::vector<std::uint16_t> input(static_cast<std::size_t>(width) * height);
      for (auto& sample : input) sample = static_cast<std::uint16_t>(random());
      for (int phase = 0; phase < 4; ++phase) {
        for (int format = 0; format < 3; ++format) {
          auto const interior = run(Pass::interior, format, width, height, 0, 1, phase, input);
          auto const border = run(Pass::border, format, width, height, 0, 1, phase, input);
          auto const model = reference::model_image(input, width, height, 0, 1, phase, format);
          auto const n = static_cast<std::size_t>(width) * height;
          for (int row = 0; row < height; ++row) {
            for (int column = 0; column < width; ++column) {
              auto const i = static_cast<std::size_t>(row) * width + column;
              bool const inside =
                  row >= 1 && row <= height - 2 && column >= 1 && column <= width - 2;
              auto const& writer = inside ? interior : border;
              auto const& other = inside ? border : interior;
              ASSERT_EQ(bgr_at(writer, format, n, i), bgr_at(model, format, n, i))
                  << width << "x" << height << " phase " << phase << " format " << format
                  << " pixel " << row << "," << column;
              ASSERT_EQ(bgr_at(other, format, n, i), (Triple{sentinel, sentinel, sentinel}))
                  << width << "x" << height << " pixel " << row << "," << column;
            }
          }
        }
      }
    }
  }
}

}  // namespace
