// Single-channel 16-bit TIFF written with libtiff in several layouts, read
// back. Refusals are in crafted_input_test.cpp.
#include <gtest/gtest.h>
#include <tiffio.h>

#include <tuple>

#include "dng_file.h"
#include "file_bytes.h"
#include "input_reader.h"
#include "tool_test_support.h"

namespace {

using tool_test::tiff_height;
using tool_test::tiff_width;

class Tiff_reader_round_trip
    : public testing::TestWithParam<std::tuple<const char*, std::uint16_t, bool>> {};

TEST_P(Tiff_reader_round_trip, ReadsWhatLibtiffWrote) {
  const auto [mode, compression, tiled] = GetParam();
  const tool_test::Scratch_folder folder;
  const auto samples = tool_test::random_samples(tiff_width * tiff_height, 5);
  ASSERT_TRUE(tool_test::write_tiff(folder.file("mono.tif"), {mode, compression, tiled}, samples));
  const auto bytes = oqa_tool::read_file_bytes(folder.file("mono.tif"));
  // Through the content-based dispatch, as the tool reads it.
  const auto image = oqa_tool::read_mosaic(bytes, {});
  EXPECT_EQ(image.width, tiff_width);
  EXPECT_EQ(image.height, tiff_height);
  EXPECT_EQ(image.samples, samples);
  EXPECT_FALSE(image.phase.has_value());
}

INSTANTIATE_TEST_SUITE_P(
    Layouts, Tiff_reader_round_trip,
    testing::Combine(testing::Values("wl", "wb"),
                     testing::Values(COMPRESSION_NONE, COMPRESSION_ADOBE_DEFLATE, COMPRESSION_LZW),
                     testing::Bool()));

}  // namespace
