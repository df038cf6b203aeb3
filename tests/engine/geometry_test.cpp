#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include "bayer_reference_model.h"
#include "engine/pixel_geometry.h"

namespace {

TEST(NeighbourTables, GiveTheClassAtEachOffsetOfTheCell) {
  EXPECT_EQ((std::vector<int>{row_0_col_1, row_0_col_1 + 4}), (std::vector<int>{2, 3, 0, 1}));
  EXPECT_EQ((std::vector<int>{row_1_col_0, row_1_col_0 + 4}), (std::vector<int>{3, 2, 1, 0}));
  EXPECT_EQ((std::vector<int>{row_1_col_1, row_1_col_1 + 4}), (std::vector<int>{1, 0, 3, 2}));
}

std::pair<unsigned long, unsigned long> origin(long x, long y) {
  return {static_cast<unsigned long>(x), static_cast<unsigned long>(y)};
}

TEST(DeterminePixelColor, WorkedExamples) {
  EXPECT_EQ(determine_pixel_color(0, 0, origin(0, 0), QN_CFA_PHASE_RED), QN_CFA_PHASE_RED);
  EXPECT_EQ(determine_pixel_color(0, 1, origin(0, 0), QN_CFA_PHASE_RED), 2);
  EXPECT_EQ(determine_pixel_color(1, 0, origin(0, 0), QN_CFA_PHASE_RED), 3);
  EXPECT_EQ(determine_pixel_color(1, 1, origin(0, 0), QN_CFA_PHASE_RED), 1);
  EXPECT_EQ(determine_pixel_color(0, 0, origin(1, 0), QN_CFA_PHASE_RED), 2);
  EXPECT_EQ(determine_pixel_color(0, 0, origin(-1, 0), QN_CFA_PHASE_RED), 2);
}

// The class must name the filter colour, and for green the colour that
// shares its row, for every phase and any origin, negative ones included.
TEST(DeterminePixelColor, AgreesWithThePatternForAllPhasesAndOrigins) {
  for (int phase = 0; phase < 4; ++phase) {
    for (long origin_x = -5; origin_x <= 5; ++origin_x) {
      for (long origin_y = -5; origin_y <= 5; ++origin_y) {
        for (long row = 0; row < 4; ++row) {
          for (long column = 0; column < 4; ++column) {
            auto const pixel_class =
                determine_pixel_color(row, column, origin(origin_x, origin_y),
                                      static_cast<QN_COLOR_FILTER_ARRAY_PHASE>(phase));
            auto const colour = reference::filter_colour(row, column, origin_x, origin_y, phase);
            auto const right = reference::filter_colour(row, column + 1, origin_x, origin_y, phase);
            switch (pixel_class) {
              case QN_CFA_PHASE_RED:
                EXPECT_EQ(colour, reference::red);
                break;
              case QN_CFA_PHASE_BLUE:
                EXPECT_EQ(colour, reference::blue);
                break;
              case QN_CFA_PHASE_GREEN_IN_RED_ROW:
                EXPECT_EQ(colour, reference::green);
                EXPECT_EQ(right, reference::red);
                break;
              case QN_CFA_PHASE_GREEN_IN_BLUE_ROW:
                EXPECT_EQ(colour, reference::green);
                EXPECT_EQ(right, reference::blue);
                break;
            }
          }
        }
      }
    }
  }
}

// A 3x3 neighbourhood with the given samples in row-major order; averages
// are taken around its centre.
struct Neighbourhood {
  std::vector<unsigned short> samples;
  template <typename... P>
  unsigned short average() const {
    Dimensional_array_overlay<unsigned short> const view{samples.data(), 3, 3};
    return Pixel_averager<std::tuple<P...>>{}(view, 1, 1);
  }
};

Neighbourhood with(std::initializer_list<std::pair<int, unsigned short>> values) {
  Neighbourhood n{std::vector<unsigned short>(9, 0)};
  for (auto const& [position, value] : values) n.samples[position] = value;
  return n;
}

using namespace demosaic_grid_names;  // NOLINT(google-build-using-namespace)

TEST(PixelAverager, OneSampleIsCopied) {
  EXPECT_EQ((with({{4, 65535}}).average<G4>()), 65535);
  EXPECT_EQ((with({{8, 17}}).average<G8>()), 17);
}

TEST(PixelAverager, TwoSamplesRoundHalvesUp) {
  EXPECT_EQ((with({{3, 1}, {5, 2}}).average<G3, G5>()), 2);
  EXPECT_EQ((with({{1, 0}, {7, 1}}).average<G1, G7>()), 1);
  EXPECT_EQ((with({{0, 65535}, {2, 65535}}).average<G0, G2>()), 65535);
}

TEST(PixelAverager, ThreeSamplesTruncate) {
  EXPECT_EQ((with({{1, 1}, {7, 1}, {5, 0}}).average<G1, G7, G5>()), 0);
  EXPECT_EQ((with({{1, 2}, {7, 2}, {3, 1}}).average<G1, G7, G3>()), 1);
  EXPECT_EQ((with({{7, 65535}, {3, 65535}, {5, 65535}}).average<G7, G3, G5>()), 65535);
}

TEST(PixelAverager, FourSamplesRoundPairwiseInTupleOrder) {
  EXPECT_EQ((with({{0, 0}, {2, 0}, {6, 0}, {8, 1}}).average<G0, G2, G6, G8>()), 1);
  // left 0, right 1, above 0, below 3: (0+1+1)>>1 = 1, (0+3+1)>>1 = 2, (1+2+1)>>1 = 2
  EXPECT_EQ((with({{3, 0}, {5, 1}, {1, 0}, {7, 3}}).average<G3, G5, G1, G7>()), 2);
  // 0, 0, 1, 3 paired as written gives 1; pairing the first with the third would give 2.
  EXPECT_EQ((with({{0, 0}, {2, 0}, {6, 1}, {8, 3}}).average<G0, G2, G6, G8>()), 1);
  EXPECT_EQ((with({{0, 65535}, {2, 65535}, {6, 65535}, {8, 65535}}).average<G0, G2, G6, G8>()),
            65535);
}

}  // namespace
