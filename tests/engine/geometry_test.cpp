// The averaging rules on their own: every missing sample is one of these
// averages. The colour class of each pixel is checked through the passes.
#include <gtest/gtest.h>

#include <array>
#include <tuple>

#include "engine/pixel_geometry.h"

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
  EXPECT_EQ((average<G1, G7>({0, 0, 0, 0, 0, 0, 0, 1, 0})), 1);
  EXPECT_EQ((average<G1, G7, G5>({0, 1, 0, 0, 0, 0, 0, 1, 0})), 0);
  EXPECT_EQ((average<G1, G7, G3>({0, 2, 0, 1, 0, 0, 0, 2, 0})), 1);
  EXPECT_EQ((average<G0, G2, G6, G8>({0, 0, 0, 0, 0, 0, 0, 0, 1})), 1);
  // left 0, right 1, above 0, below 3: (0+1+1)>>1 = 1, (0+3+1)>>1 = 2, (1+2+1)>>1 = 2
  EXPECT_EQ((average<G3, G5, G1, G7>({0, 0, 0, 0, 0, 1, 0, 3, 0})), 2);
  // 0, 0, 1, 3 paired as written gives 1; pairing the first with the third would give 2.
  EXPECT_EQ((average<G0, G2, G6, G8>({0, 0, 0, 0, 0, 0, 1, 0, 3})), 1);
  EXPECT_EQ((average<G0, G2, G6, G8>({65535, 0, 65535, 0, 0, 0, 65535, 0, 65535})), 65535);
}

}  // namespace
