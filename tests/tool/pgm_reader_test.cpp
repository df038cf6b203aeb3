// PGM: both sample sizes, netpbm's big-endian byte order, malformed headers.
#include <gtest/gtest.h>

#include <string>

#include "image_io_error.h"
#include "pgm_reader.h"
#include "tool_test_support.h"

namespace {

std::vector<std::uint8_t> pgm_bytes(const std::string& header,
                                    const std::vector<std::uint8_t>& data) {
  std::vector<std::uint8_t> bytes(header.begin(), header.end());
  bytes.insert(bytes.end(), data.begin(), data.end());
  return bytes;
}

TEST(Pgm_reader, SixteenBitSamplesAreBigEndian) {
  const auto image = oqa_tool::read_pgm(
      pgm_bytes("P5\n2 2\n65535\n", {0x12, 0x34, 0xAB, 0xCD, 0x00, 0x01, 0xFF, 0x00}));
  EXPECT_EQ(image.width, 2);
  EXPECT_EQ(image.height, 2);
  EXPECT_EQ(image.samples, (std::vector<std::uint16_t>{0x1234, 0xABCD, 0x0001, 0xFF00}));
  EXPECT_FALSE(image.phase.has_value());
}

TEST(Pgm_reader, EightBitSamplesKeepTheirValues) {
  const auto image = oqa_tool::read_pgm(pgm_bytes("P5 3 2 255\n", {0, 1, 2, 128, 254, 255}));
  EXPECT_EQ(image.samples, (std::vector<std::uint16_t>{0, 1, 2, 128, 254, 255}));
}

TEST(Pgm_reader, CommentsInTheHeaderAreSkipped) {
  const auto image = oqa_tool::read_pgm(
      pgm_bytes("P5\n# made by hand\n2 # width\n2\n4095\n", {0, 1, 0, 2, 0, 3, 0x0F, 0xFF}));
  EXPECT_EQ(image.samples, (std::vector<std::uint16_t>{1, 2, 3, 4095}));
}

TEST(Pgm_reader, RoundTripsAFrameWrittenByHand) {
  const auto samples = tool_test::random_samples(37 * 21, 11);
  std::vector<std::uint8_t> data;
  for (const std::uint16_t sample : samples) {
    data.push_back(static_cast<std::uint8_t>(sample >> 8));
    data.push_back(static_cast<std::uint8_t>(sample & 0xFF));
  }
  const auto image = oqa_tool::read_pgm(pgm_bytes("P5\n37 21\n65535\n", data));
  EXPECT_EQ(image.samples, samples);
}

struct Bad_pgm {
  const char* name;
  std::string header;
  std::size_t data_bytes;
  const char* message_part;
};

class Pgm_reader_refusal : public testing::TestWithParam<Bad_pgm> {};

TEST_P(Pgm_reader_refusal, ThrowsWithAClearMessage) {
  const auto bytes = pgm_bytes(GetParam().header, std::vector<std::uint8_t>(GetParam().data_bytes));
  try {
    oqa_tool::read_pgm(bytes);
    ADD_FAILURE() << "accepted";
  } catch (const oqa_tool::Image_io_error& error) {
    EXPECT_NE(std::string(error.what()).find(GetParam().message_part), std::string::npos)
        << error.what();
  }
}

INSTANTIATE_TEST_SUITE_P(
    Headers, Pgm_reader_refusal,
    testing::Values(Bad_pgm{"Truncated", "P5\n4 4\n65535\n", 31, "truncated"},
                    Bad_pgm{"TruncatedEightBit", "P5\n4 4\n255\n", 15, "truncated"},
                    Bad_pgm{"OneColumn", "P5\n1 8\n255\n", 8, "at least 2x2"},
                    Bad_pgm{"ZeroRows", "P5\n8 0\n255\n", 0, "at least 2x2"},
                    Bad_pgm{"MaxvalZero", "P5\n2 2\n0\n", 4, "maxval"},
                    Bad_pgm{"MaxvalTooLarge", "P5\n2 2\n65536\n", 8, "maxval"},
                    Bad_pgm{"HeightMissing", "P5\n2\n", 0, "height missing"},
                    Bad_pgm{"HugeWidth", "P5\n99999999999 2\n255\n", 0, "too large"},
                    Bad_pgm{"TooManyPixels", "P5\n100000 100000\n255\n", 0, "larger than"},
                    Bad_pgm{"NoSeparator", "P5\n2 2\n255", 0, "not terminated"},
                    Bad_pgm{"AsciiPgm", "P2\n2 2\n255\n", 4, "P5"}),
    [](const testing::TestParamInfo<Bad_pgm>& info) { return info.param.name; });

}  // namespace
