// Single-channel 16-bit TIFF written with libtiff in several layouts, read
// back; other layouts and damaged files are refused.
#include <gtest/gtest.h>
#include <tiffio.h>

#include <cstring>
#include <tuple>

#include "file_bytes.h"
#include "image_io_error.h"
#include "input_reader.h"
#include "tiff_reader.h"
#include "tool_test_support.h"

namespace {

constexpr int width = 45;
constexpr int height = 27;

struct Tiff_layout {
  const char* mode;  // "wl" little-endian, "wb" big-endian
  std::uint16_t compression;
  bool tiled;
  std::uint16_t samples_per_pixel = 1;
  std::uint16_t bits = 16;
};

void write_tiff(const std::string& path, const Tiff_layout& layout,
                const std::vector<std::uint16_t>& samples) {
  TIFF* tiff = TIFFOpen(path.c_str(), layout.mode);
  ASSERT_NE(tiff, nullptr);
  TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, width);
  TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, height);
  TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, layout.samples_per_pixel);
  TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, layout.bits);
  TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC,
               layout.samples_per_pixel == 1 ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB);
  TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(tiff, TIFFTAG_COMPRESSION, layout.compression);
  const std::size_t row_bytes = width * layout.samples_per_pixel * layout.bits / 8;
  std::vector<std::uint8_t> raw(row_bytes * height);
  std::memcpy(raw.data(), samples.data(), std::min(raw.size(), samples.size() * 2));
  if (layout.tiled) {
    TIFFSetField(tiff, TIFFTAG_TILEWIDTH, 16);
    TIFFSetField(tiff, TIFFTAG_TILELENGTH, 16);
    std::vector<std::uint16_t> tile(16 * 16);
    for (int top = 0; top < height; top += 16) {
      for (int left = 0; left < width; left += 16) {
        for (int y = 0; y < 16; ++y) {
          for (int x = 0; x < 16; ++x) {
            const bool inside = top + y < height && left + x < width;
            tile[y * 16 + x] = inside ? samples[(top + y) * width + left + x] : 0;
          }
        }
        ASSERT_GE(TIFFWriteTile(tiff, tile.data(), left, top, 0, 0), 0);
      }
    }
  } else {
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, 4);
    for (int y = 0; y < height; ++y) {
      ASSERT_EQ(TIFFWriteScanline(tiff, raw.data() + y * row_bytes, y, 0), 1);
    }
  }
  TIFFClose(tiff);
}

class Tiff_reader_round_trip
    : public testing::TestWithParam<std::tuple<const char*, std::uint16_t, bool>> {};

TEST_P(Tiff_reader_round_trip, ReadsWhatLibtiffWrote) {
  const auto [mode, compression, tiled] = GetParam();
  const tool_test::Scratch_folder folder;
  const auto samples = tool_test::random_samples(width * height, 5);
  write_tiff(folder.file("mono.tif"), {mode, compression, tiled}, samples);
  const auto bytes = oqa_tool::read_file_bytes(folder.file("mono.tif"));
  // Through the content-based dispatch, as the tool reads it.
  const auto image = oqa_tool::read_mosaic(bytes, {});
  EXPECT_EQ(image.width, width);
  EXPECT_EQ(image.height, height);
  EXPECT_EQ(image.samples, samples);
  EXPECT_FALSE(image.phase.has_value());
}

INSTANTIATE_TEST_SUITE_P(
    Layouts, Tiff_reader_round_trip,
    testing::Combine(testing::Values("wl", "wb"),
                     testing::Values(COMPRESSION_NONE, COMPRESSION_ADOBE_DEFLATE, COMPRESSION_LZW),
                     testing::Bool()));

struct Refused_tiff {
  const char* name;
  Tiff_layout layout;
  std::size_t keep_bytes;  // 0: the whole file
  const char* message_part;
};

class Tiff_reader_refusal : public testing::TestWithParam<Refused_tiff> {};

TEST_P(Tiff_reader_refusal, ThrowsWithAClearMessage) {
  const tool_test::Scratch_folder folder;
  write_tiff(folder.file("bad.tif"), GetParam().layout,
             tool_test::random_samples(width * height * 3, 9));
  auto bytes = oqa_tool::read_file_bytes(folder.file("bad.tif"));
  if (GetParam().keep_bytes != 0) {
    bytes.resize(GetParam().keep_bytes);
  }
  try {
    oqa_tool::read_mosaic(bytes, {});
    ADD_FAILURE() << "accepted";
  } catch (const oqa_tool::Image_io_error& error) {
    EXPECT_NE(std::string(error.what()).find(GetParam().message_part), std::string::npos)
        << error.what();
  }
}

INSTANTIATE_TEST_SUITE_P(
    BadFiles, Tiff_reader_refusal,
    testing::Values(
        Refused_tiff{"EightBit", {"wl", COMPRESSION_NONE, false, 1, 8}, 0, "single-channel 16-bit"},
        Refused_tiff{"Rgb", {"wl", COMPRESSION_NONE, false, 3, 16}, 0, "single-channel 16-bit"},
        Refused_tiff{"TruncatedStrips", {"wl", COMPRESSION_NONE, false}, 1200, "TIFF"},
        Refused_tiff{"TruncatedDeflate", {"wb", COMPRESSION_ADOBE_DEFLATE, false}, 900, "TIFF"},
        Refused_tiff{"TruncatedTiles", {"wl", COMPRESSION_NONE, true}, 1500, "TIFF"},
        Refused_tiff{"HeaderOnly", {"wl", COMPRESSION_NONE, false}, 8, "TIFF"}),
    [](const testing::TestParamInfo<Refused_tiff>& info) { return info.param.name; });

}  // namespace
