// Camera raw through LibRaw on DNG files written here: the visible area's
// samples, the pattern at its top-left, and the library's output on them;
// and the child process the decoder runs in. Damaged files are in
// crafted_input_test.cpp.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <tuple>

#include "bayer_pattern.h"
#include "camera_raw_reader.h"
#include "decoder_process.h"
#include "demosaic_call.h"
#include "dng_file.h"
#include "file_bytes.h"
#include "image_io_error.h"
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

struct Decoder_end {
  const char* name;
  Mosaic_image (*decode)();
  const char* message;
};

void PrintTo(const Decoder_end& end, std::ostream* out) { *out << end.name; }

class Decoder_process_end : public testing::TestWithParam<Decoder_end> {};

TEST_P(Decoder_process_end, IsOneLine) {
  if (std::string(GetParam().name) == "Runaway" && oqa_tool::sanitized_build) {
    GTEST_SKIP() << "no memory limit in sanitizer builds";
  }
  try {
    oqa_tool::run_decoder_process("test decoder", {std::chrono::milliseconds(300), 64 << 20},
                                  GetParam().decode);
    ADD_FAILURE() << "accepted";
  } catch (const oqa_tool::Image_io_error& error) {
    EXPECT_EQ(std::string(error.what()), GetParam().message);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Ends, Decoder_process_end,
    testing::Values(Decoder_end{"Crash", []() -> Mosaic_image { std::abort(); },
                                "the test decoder crashed on this file"},
                    Decoder_end{"Hang",
                                []() -> Mosaic_image {
                                  for (;;) {
                                    ::pause();
                                  }
                                },
                                "the test decoder took too long on this file"},
                    Decoder_end{"Runaway",
                                []() -> Mosaic_image {
                                  const std::vector<std::uint16_t> heap(std::size_t{1} << 29);
                                  return {2, 2, {heap.begin(), heap.begin() + 4}, std::nullopt};
                                },
                                "the test decoder ran out of memory on this file"},
                    Decoder_end{"MessageOfTwoLines",
                                []() -> Mosaic_image {
                                  throw oqa_tool::Image_io_error("two\nlines\x1b[2J");
                                },
                                "two?lines?[2J"}),
    [](const testing::TestParamInfo<Decoder_end>& info) { return info.param.name; });

// A decoder that leaves its buffer unwritten hands back zeros, not what this
// process freed before (another file's samples).
TEST(Decoder_process, AllocationsStartZeroed) {
  if (oqa_tool::sanitized_build) {
    GTEST_SKIP() << "sanitizer allocators fill blocks their own way";
  }
  constexpr std::size_t count = 16 * 1024;  // from the heap, not a fresh mapping
  {
    std::vector<std::uint16_t> stale(count, 0xABCD);
    asm volatile("" : : "r"(stale.data()) : "memory");  // keep the fill
  }
  const Mosaic_image image =
      oqa_tool::run_decoder_process("test decoder", {std::chrono::seconds(10), 64 << 20}, [] {
        const std::unique_ptr<std::uint16_t[]> unwritten(new std::uint16_t[count]);
        return Mosaic_image{128, 128, {unwritten.get(), unwritten.get() + count}, std::nullopt};
      });
  EXPECT_EQ(std::count(image.samples.begin(), image.samples.end(), 0), count);
}

}  // namespace
