#include <gtest/gtest.h>

#include <vector>

#include "engine/color_stores.h"

namespace {

TEST(PlanarStore, PutsEachChannelInItsOwnPlane) {
  std::vector<unsigned short> output(12, 0);
  Store_bgr_16_planar_scalar_demosaic_data store(output.data(), 4);
  for (unsigned short pixel = 0; pixel < 4; ++pixel) {
    store.store_pixel(10 + pixel, 20 + pixel, 30 + pixel);
  }
  EXPECT_EQ(output, (std::vector<unsigned short>{10, 11, 12, 13, 20, 21, 22, 23, 30, 31, 32, 33}));
}

TEST(PlanarStore, SeekAndSkipMoveByPixels) {
  std::vector<unsigned short> output(75, 0);
  Store_bgr_16_planar_scalar_demosaic_data store(output.data(), 25);
  store.seek(6);  // first interior pixel of a 5-pixel-wide image
  for (int i = 0; i < 3; ++i) store.store_pixel(1, 2, 3);
  store.skip(2);
  EXPECT_EQ(store.pixel_index, 11U);
  store.seek(3);
  store.store_pixel(7, 8, 9);
  EXPECT_EQ(store.pixel_index, 4U);
  EXPECT_EQ(output[3], 7);
  EXPECT_EQ(output[25 + 3], 8);
  EXPECT_EQ(output[50 + 3], 9);
}

TEST(InterleavedStore, OrdersTheTripleByTheFormat) {
  std::vector<unsigned short> bgr(9, 0);
  std::vector<unsigned short> rgb(9, 0);
  Interleaved_scalar<true> bgr_store(bgr.data(), 3);
  Interleaved_scalar<false> rgb_store(rgb.data(), 3);
  // Pixel (row 1, column 0) of a 3-pixel-wide image starts at element 9.
  std::vector<unsigned short> wide(27, 0);
  Interleaved_scalar<true> wide_store(wide.data(), 9);
  wide_store.seek(3);
  EXPECT_EQ(wide_store.cursor, wide.data() + 9);

  bgr_store.seek(1);
  rgb_store.seek(1);
  bgr_store.store_pixel(1, 2, 3);
  rgb_store.store_pixel(1, 2, 3);
  EXPECT_EQ(bgr, (std::vector<unsigned short>{0, 0, 0, 1, 2, 3, 0, 0, 0}));
  EXPECT_EQ(rgb, (std::vector<unsigned short>{0, 0, 0, 3, 2, 1, 0, 0, 0}));
  EXPECT_EQ(bgr_store.cursor, bgr.data() + 6);
  bgr_store.skip(1);
  EXPECT_EQ(bgr_store.cursor, bgr.data() + 9);
}

}  // namespace
