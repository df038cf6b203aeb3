// PGM: both sample sizes, netpbm's big-endian byte order, comments.
// Malformed files are in crafted_input_test.cpp.
#include <gtest/gtest.h>

#include <string>

#include "pgm_reader.h"

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

}  // namespace
