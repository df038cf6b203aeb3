// Whole frames through the public interface on the scalar path, against the
// worked examples and against the independent per-pixel model.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "bayer_reference_model.h"
#include "ostrevan_oqa_demosaic.h"

namespace {

class Module : public ::testing::Environment {
 public:
  void SetUp() override { qn_demosaic_module_initialize(); }
  void TearDown() override { qn_demosaic_module_terminate(); }
};
[[maybe_unused]] auto* const module_environment = ::testing::AddGlobalTestEnvironment(new Module);

constexpr std::size_t guard_samples = 64;
constexpr std::uint16_t guard_value = 0x5A5A;

// Runs a scalar transform into a buffer with a guard zone behind the output.
std::vector<std::uint16_t> demosaic(std::vector<std::uint16_t> const& input, int width, int height,
                                    int origin_x, int origin_y, int phase, int format) {
  std::size_t const size = static_cast<std::size_t>(3) * width * height;
  std::vector<std::uint16_t> output(size + guard_samples, guard_value);
  int const result = qn_demosaic_transform_test_16_to_48(
      width, height, origin_x, origin_y, static_cast<QN_COLOR_FILTER_ARRAY_PHASE>(phase),
      static_cast<QN_COLOR_FORMAT>(format), QN_COLOR_FILTER_TYPE_BAYER, 16, input.data(),
      output.data(), 0);
  EXPECT_EQ(result, QN_DEMOSAIC_NO_ERROR);
  for (std::size_t i = size; i < output.size(); ++i) {
    EXPECT_EQ(output[i], guard_value) << "write past the output at sample " << i;
  }
  output.resize(size);
  return output;
}

const std::vector<std::uint16_t> three_by_three = {0, 3, 1, 4, 9, 7, 2, 6, 5};

TEST(WholeImage, ThreeByThreePhaseRed) {
  EXPECT_EQ(demosaic(three_by_three, 3, 3, 0, 0, 0, 1),
            (std::vector<std::uint16_t>{9, 4, 0, 9, 3, 1, 9, 5, 1, 9, 4, 1, 9, 6,
                                        3, 9, 7, 3, 9, 5, 2, 9, 6, 4, 9, 7, 5}));
  EXPECT_EQ(demosaic(three_by_three, 3, 3, 0, 0, 0, 0),
            (std::vector<std::uint16_t>{9, 9, 9, 9, 9, 9, 9, 9, 9, 4, 3, 5, 4, 6,
                                        7, 5, 6, 7, 0, 1, 1, 1, 3, 3, 2, 4, 5}));
  EXPECT_EQ(demosaic(three_by_three, 3, 3, 0, 0, 0, 2),
            (std::vector<std::uint16_t>{0, 4, 9, 1, 3, 9, 1, 5, 9, 1, 4, 9, 3, 6,
                                        9, 3, 7, 9, 2, 5, 9, 4, 6, 9, 5, 7, 9}));
}

TEST(WholeImage, ThreeByThreePhaseGreenInRedRow) {
  EXPECT_EQ(demosaic(three_by_three, 3, 3, 0, 0, 2, 1),
            (std::vector<std::uint16_t>{4, 0, 3, 6, 3, 3, 7, 1, 3, 4, 3, 5, 6, 9,
                                        5, 7, 5, 5, 4, 2, 6, 6, 5, 6, 7, 5, 6}));
}

TEST(WholeImage, TwoByTwo) {
  EXPECT_EQ(demosaic({100, 7, 8, 300}, 2, 2, 0, 0, 0, 1),
            (std::vector<std::uint16_t>{300, 8, 100, 300, 7, 100, 300, 8, 100, 300, 8, 100}));
}

struct Frame {
  int width;
  int height;
};

std::vector<Frame> property_frames() {
  std::mt19937 random(2024);
  std::vector<Frame> frames;
  frames.reserve(68);
  for (int i = 0; i < 60; ++i) {
    frames.push_back({2 + static_cast<int>(random() % 69), 2 + static_cast<int>(random() % 69)});
  }
  for (Frame f : {Frame{2, 2}, Frame{2, 70}, Frame{70, 2}, Frame{3, 3}, Frame{500, 3},
                  Frame{3, 400}, Frame{257, 5}, Frame{4, 301}}) {
    frames.push_back(f);
  }
  return frames;
}

enum class Samples { random, zero, full };

class AgainstModel : public ::testing::TestWithParam<Samples> {};

// Every output sample of every format, phase and origin parity matches the
// model, and nothing behind the output is touched.
TEST_P(AgainstModel, WholeOutputMatches) {
  std::mt19937 random(static_cast<unsigned>(GetParam()) + 99);
  for (Frame const frame : property_frames()) {
    std::vector<std::uint16_t> input(static_cast<std::size_t>(frame.width) * frame.height);
    for (auto& sample : input) {
      sample = GetParam() == Samples::random ? static_cast<std::uint16_t>(random())
               : GetParam() == Samples::zero ? 0
                                             : 65535;
    }
    for (int phase = 0; phase < 4; ++phase) {
      int const origin_x = static_cast<int>(random() % 11) - 5;
      int const origin_y = static_cast<int>(random() % 11) - 5;
      for (int format = 0; format < 3; ++format) {
        ASSERT_EQ(demosaic(input, frame.width, frame.height, origin_x, origin_y, phase, format),
                  reference::model_image(input, frame.width, frame.height, origin_x, origin_y,
                                         phase, format))
            << frame.width << "x" << frame.height << " phase " << phase << " origin " << origin_x
            << "," << origin_y << " format " << format;
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Samples, AgainstModel,
                         ::testing::Values(Samples::random, Samples::zero, Samples::full),
                         [](auto const& info) {
                           return info.param == Samples::random ? std::string("Random")
                                  : info.param == Samples::zero ? std::string("AllZero")
                                                                : std::string("AllFull");
                         });

TEST(WholeImage, EveryOriginFromMinusFiveToFive) {
  std::mt19937 random(5);
  std::vector<std::uint16_t> input(13 * 11);
  for (auto& sample : input) sample = static_cast<std::uint16_t>(random());
  for (int origin_x = -5; origin_x <= 5; ++origin_x) {
    for (int origin_y = -5; origin_y <= 5; ++origin_y) {
      ASSERT_EQ(demosaic(input, 13, 11, origin_x, origin_y, 1, 2),
                reference::model_image(input, 13, 11, origin_x, origin_y, 1, 2));
    }
  }
}

}  // namespace
