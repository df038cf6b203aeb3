// The store-strategy choice against the measured crossovers.
#include "streaming_policy.h"

#include <gtest/gtest.h>

#include <cstddef>

namespace {

using oqa_vector::Output_layout;
using oqa_vector::use_streaming_stores;

constexpr std::size_t mib = std::size_t{1} << 20;

std::size_t output_bytes(std::size_t width, std::size_t height) { return 3 * 2 * width * height; }

TEST(Streaming_policy, InterleavedStreamsFromSixteenMebibytes) {
  EXPECT_FALSE(use_streaming_stores(Output_layout::bgr_interleaved, output_bytes(1920, 1080)));
  EXPECT_FALSE(use_streaming_stores(Output_layout::rgb_interleaved, 16 * mib - 1));
  EXPECT_TRUE(use_streaming_stores(Output_layout::rgb_interleaved, 16 * mib));
  EXPECT_TRUE(use_streaming_stores(Output_layout::bgr_interleaved, output_bytes(3840, 2160)));
}

TEST(Streaming_policy, PlanarStreamsFromFortyMebibytes) {
  EXPECT_FALSE(use_streaming_stores(Output_layout::bgr_planar, output_bytes(2560, 1440)));
  EXPECT_FALSE(use_streaming_stores(Output_layout::bgr_planar, 40 * mib - 1));
  EXPECT_TRUE(use_streaming_stores(Output_layout::bgr_planar, 40 * mib));
  EXPECT_TRUE(use_streaming_stores(Output_layout::bgr_planar, output_bytes(3840, 2160)));
}

}  // namespace
