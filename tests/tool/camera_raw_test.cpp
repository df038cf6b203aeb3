// Camera raw through LibRaw on DNG files written here: the visible area's
// samples, the pattern at its top-left, and the library's output on them.
#include <gtest/gtest.h>

#include <tuple>

#include "bayer_pattern.h"
#include "camera_raw_reader.h"
#include "demosaic_call.h"
#include "dng_file.h"
#include "file_bytes.h"
#include "image_io_error.h"
#include "input_reader.h"
#include "tool_test_support.h"

namespace {

using oqa_tool::Camera_raw_options;
using oqa_tool::Mosaic_image;
using tool_test::Dng_description;

struct Margins {
  std::uint32_t top;
  std::uint32_t left;
  std::uint32_t bottom;
  std::uint32_t right;
};

// The DNG colour codes of each phase's cell.
std::array<std::uint8_t, 4> cfa_of(QN_COLOR_FILTER_ARRAY_PHASE phase) {
  std::array<std::uint8_t, 4> cell{};
  for (int i = 0; i < 4; ++i) {
    cell[static_cast<std::size_t>(i)] =
        static_cast<std::uint8_t>(oqa_tool::colour_at(phase, i / 2, i % 2));
  }
  return cell;
}

// The phase of the cell that starts `top` rows and `left` columns into a
// pattern whose origin has `phase`.
QN_COLOR_FILTER_ARRAY_PHASE shifted(QN_COLOR_FILTER_ARRAY_PHASE phase, std::uint32_t top,
                                    std::uint32_t left) {
  std::array<oqa_tool::Filter_colour, 4> cell{};
  for (int i = 0; i < 4; ++i) {
    cell[static_cast<std::size_t>(i)] =
        oqa_tool::colour_at(phase, static_cast<int>(top) + i / 2, static_cast<int>(left) + i % 2);
  }
  return *oqa_tool::phase_of_cell(cell);
}

class Library_fixture : public testing::Test {
 protected:
  oqa_tool::Library_session library_;
  tool_test::Scratch_folder folder_;
};

class Camera_raw_pattern
    : public Library_fixture,
      public testing::WithParamInterface<std::tuple<QN_COLOR_FILTER_ARRAY_PHASE, Margins>> {};

TEST_P(Camera_raw_pattern, ReadsTheVisibleAreaWithItsPatternAndDemosaicsLikeTheLibrary) {
  const auto [phase, margins] = GetParam();
  Dng_description dng;
  dng.raw_width = 41;
  dng.raw_height = 33;
  dng.samples = tool_test::random_samples(41 * 33, 7 + phase);
  dng.cfa_pattern = cfa_of(phase);
  dng.active_area = {margins.top, margins.left, 33 - margins.bottom, 41 - margins.right};
  const std::string path = folder_.file("frame.dng");
  ASSERT_TRUE(tool_test::write_dng(path, dng));

  const Mosaic_image image =
      oqa_tool::read_camera_raw(oqa_tool::read_file_bytes(path), Camera_raw_options{});

  // LibRaw starts the visible area on an even raw row and column; DNG's
  // pattern starts at the active area's top-left.
  const std::uint32_t top = (margins.top + 1) & ~1U;
  const std::uint32_t left = (margins.left + 1) & ~1U;
  const int width = 41 - static_cast<int>(left + margins.right);
  const int height = 33 - static_cast<int>(top + margins.bottom);
  ASSERT_EQ(image.width, width);
  ASSERT_EQ(image.height, height);
  std::vector<std::uint16_t> visible;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      visible.push_back(dng.samples[(y + top) * 41 + x + left]);
    }
  }
  EXPECT_EQ(image.samples, visible);
  const QN_COLOR_FILTER_ARRAY_PHASE expected =
      shifted(phase, top - margins.top, left - margins.left);
  ASSERT_TRUE(image.phase.has_value());
  EXPECT_EQ(oqa_tool::pattern_name(*image.phase), oqa_tool::pattern_name(expected));

  oqa_tool::Colour_image from_reader;
  oqa_tool::Colour_image expected_output;
  oqa_tool::demosaic(image, {*image.phase, 0, 0, QN_COLOR_FORMAT_RGB_INTERLEAVED}, from_reader);
  Mosaic_image reference{width, height, visible, std::nullopt};
  oqa_tool::demosaic(reference, {expected, 0, 0, QN_COLOR_FORMAT_RGB_INTERLEAVED}, expected_output);
  EXPECT_EQ(from_reader.samples, expected_output.samples);
}

INSTANTIATE_TEST_SUITE_P(
    PatternsAndMargins, Camera_raw_pattern,
    testing::Combine(testing::Values(QN_CFA_PHASE_RED, QN_CFA_PHASE_BLUE,
                                     QN_CFA_PHASE_GREEN_IN_RED_ROW, QN_CFA_PHASE_GREEN_IN_BLUE_ROW),
                     testing::Values(Margins{0, 0, 0, 0}, Margins{1, 3, 2, 1}, Margins{2, 1, 1, 2},
                                     Margins{3, 2, 0, 0})));

Dng_description plain_dng() {
  Dng_description dng;
  dng.raw_width = 32;
  dng.raw_height = 24;
  dng.samples = tool_test::random_samples(32 * 24, 3);
  return dng;
}

TEST_F(Library_fixture, NormalizeMapsBlackToZeroAndWhiteToFullScale) {
  Dng_description dng = plain_dng();
  dng.black_level = 1000;
  dng.white_level = 5000;
  dng.samples[0] = 1000;
  dng.samples[1] = 5000;
  dng.samples[2] = 3000;
  dng.samples[3] = 10;     // below black
  dng.samples[4] = 60000;  // above white
  const std::string path = folder_.file("levels.dng");
  ASSERT_TRUE(tool_test::write_dng(path, dng));
  const std::vector<std::uint8_t> bytes = oqa_tool::read_file_bytes(path);

  const Mosaic_image untouched = oqa_tool::read_camera_raw(bytes, Camera_raw_options{false});
  EXPECT_EQ(untouched.samples, dng.samples);
  const Mosaic_image normalized = oqa_tool::read_camera_raw(bytes, Camera_raw_options{true});
  EXPECT_EQ(normalized.samples[0], 0);
  EXPECT_EQ(normalized.samples[1], 65535);
  EXPECT_EQ(normalized.samples[2], 32768);
  EXPECT_EQ(normalized.samples[3], 0);
  EXPECT_EQ(normalized.samples[4], 65535);
}

struct Refused_dng {
  const char* name;
  std::array<std::uint8_t, 4> cfa;
  std::size_t keep_bytes;  // 0: the whole file
  const char* message_part;
};

class Camera_raw_refusal : public Library_fixture,
                           public testing::WithParamInterface<Refused_dng> {};

TEST_P(Camera_raw_refusal, FailsWithAClearMessage) {
  Dng_description dng = plain_dng();
  dng.cfa_pattern = GetParam().cfa;
  const std::string path = folder_.file("bad.dng");
  ASSERT_TRUE(tool_test::write_dng(path, dng));
  std::vector<std::uint8_t> bytes = oqa_tool::read_file_bytes(path);
  if (GetParam().keep_bytes != 0) {
    bytes.resize(GetParam().keep_bytes);
  }
  try {
    oqa_tool::read_mosaic(bytes, oqa_tool::Read_options{});
    ADD_FAILURE() << "accepted";
  } catch (const oqa_tool::Image_io_error& error) {
    EXPECT_NE(std::string(error.what()).find(GetParam().message_part), std::string::npos)
        << error.what();
  }
}

INSTANTIATE_TEST_SUITE_P(
    BadFiles, Camera_raw_refusal,
    testing::Values(Refused_dng{"TwoRedsInACell", {0, 0, 1, 2}, 0, "not a 2x2 Bayer pattern"},
                    Refused_dng{"GreensInARow", {1, 1, 0, 2}, 0, "not a 2x2 Bayer pattern"},
                    Refused_dng{"Truncated", {0, 1, 1, 2}, 600, "corrupt"},
                    Refused_dng{"HeaderOnly", {0, 1, 1, 2}, 8, "corrupt"}),
    [](const testing::TestParamInfo<Refused_dng>& info) { return info.param.name; });

}  // namespace
