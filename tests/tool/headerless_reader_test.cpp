// Headerless frames: little-endian samples, the size option. Files of the
// wrong size are in crafted_input_test.cpp.
#include <gtest/gtest.h>

#include "headerless_reader.h"

namespace {

TEST(Headerless_reader, SamplesAreLittleEndian) {
  const std::vector<std::uint8_t> bytes{0x34, 0x12, 0xCD, 0xAB, 0x01, 0x00, 0x00, 0xFF};
  const auto image = oqa_tool::read_headerless(bytes, {2, 2});
  EXPECT_EQ(image.samples, (std::vector<std::uint16_t>{0x1234, 0xABCD, 0x0001, 0xFF00}));
}

TEST(Headerless_reader, ParsesFrameSizes) {
  const auto size = oqa_tool::parse_frame_size("4096x3072");
  ASSERT_TRUE(size.has_value());
  EXPECT_EQ(size->width, 4096);
  EXPECT_EQ(size->height, 3072);
  for (const char* bad :
       {"", "4096", "x3072", "4096x", "-2x2", "2x2x2", "0x5", "axb", "99999999999x2"}) {
    EXPECT_FALSE(oqa_tool::parse_frame_size(bad).has_value()) << bad;
  }
}

}  // namespace
