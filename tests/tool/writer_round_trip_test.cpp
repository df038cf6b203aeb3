// Each writer's file read back with an independent reader: libtiff, libpng,
// and the netpbm and raw byte layouts decoded by hand.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <png.h>
#include <tiffio.h>
#include <unistd.h>

#include <csetjmp>
#include <cstdio>
#include <cstring>

#include "image_io_error.h"
#include "image_writer.h"
#include "tool_test_support.h"

namespace {

using oqa_tool::Colour_image;
using oqa_tool::Output_type;

constexpr int width = 23;
constexpr int height = 17;

std::vector<std::uint16_t> read_back_tiff(const std::string& path) {
  TIFF* tiff = TIFFOpen(path.c_str(), "r");
  if (tiff == nullptr) {
    return {};
  }
  std::uint32_t w = 0;
  std::uint32_t h = 0;
  std::uint16_t samples_per_pixel = 0;
  std::uint16_t bits = 0;
  std::uint16_t compression = 0;
  TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &w);
  TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &h);
  TIFFGetField(tiff, TIFFTAG_SAMPLESPERPIXEL, &samples_per_pixel);
  TIFFGetField(tiff, TIFFTAG_BITSPERSAMPLE, &bits);
  TIFFGetField(tiff, TIFFTAG_COMPRESSION, &compression);
  EXPECT_EQ(w, static_cast<std::uint32_t>(width));
  EXPECT_EQ(h, static_cast<std::uint32_t>(height));
  EXPECT_EQ(samples_per_pixel, 3);
  EXPECT_EQ(bits, 16);
  EXPECT_EQ(compression, COMPRESSION_ADOBE_DEFLATE);
  std::vector<std::uint16_t> samples(static_cast<std::size_t>(w) * h * 3);
  for (std::uint32_t y = 0; y < h; ++y) {
    EXPECT_EQ(TIFFReadScanline(tiff, samples.data() + y * w * 3, y, 0), 1);
  }
  TIFFClose(tiff);
  return samples;
}

// Low-level libpng so that no gamma or format conversion applies.
bool decode_png(std::FILE* file, std::vector<std::uint16_t>& samples) {
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  if (setjmp(png_jmpbuf(png)) != 0) {
    png_destroy_read_struct(&png, &info, nullptr);
    return false;
  }
  png_init_io(png, file);
  png_read_png(png, info, PNG_TRANSFORM_SWAP_ENDIAN, nullptr);
  const bool expected_header =
      png_get_image_width(png, info) == width && png_get_image_height(png, info) == height &&
      png_get_bit_depth(png, info) == 16 && png_get_color_type(png, info) == PNG_COLOR_TYPE_RGB;
  if (expected_header) {
    png_bytepp rows = png_get_rows(png, info);
    for (int y = 0; y < height; ++y) {
      std::memcpy(samples.data() + y * width * 3, rows[y], width * 3 * 2);
    }
  }
  png_destroy_read_struct(&png, &info, nullptr);
  return expected_header;
}

std::vector<std::uint16_t> read_back_png(const std::string& path) {
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) {
    return {};
  }
  std::vector<std::uint16_t> samples(width * height * 3);
  const bool decoded = decode_png(file, samples);
  std::fclose(file);
  return decoded ? samples : std::vector<std::uint16_t>{};
}

std::vector<std::uint16_t> read_back_ppm(const std::string& path) {
  const auto bytes = tool_test::read_bytes(path);
  const std::string header = "P6\n23 17\n65535\n";
  EXPECT_EQ(std::string(bytes.begin(), bytes.begin() + header.size()), header);
  EXPECT_EQ(bytes.size(), header.size() + width * height * 6);
  std::vector<std::uint16_t> samples;
  for (std::size_t i = header.size(); i + 1 < bytes.size(); i += 2) {
    samples.push_back(static_cast<std::uint16_t>(bytes[i] << 8 | bytes[i + 1]));
  }
  return samples;
}

// The writers take an open descriptor and leave it open.
void write_file(Output_type type, const std::string& path, const Colour_image& image) {
  const int descriptor = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  ASSERT_GE(descriptor, 0);
  oqa_tool::write_image(type, descriptor, image);
  EXPECT_EQ(::close(descriptor), 0);
}

class Writer_round_trip : public testing::TestWithParam<Output_type> {};

TEST_P(Writer_round_trip, ReadsBackTheSameSamples) {
  const tool_test::Scratch_folder folder;
  Colour_image image{width, height, QN_COLOR_FORMAT_RGB_INTERLEAVED,
                     tool_test::random_samples(width * height * 3, 21)};
  // Extremes, where byte-order mistakes show.
  image.samples[0] = 0x0000;
  image.samples[1] = 0xFFFF;
  image.samples[2] = 0x00FF;
  image.samples[3] = 0xFF00;
  const std::string path = folder.file("image" + oqa_tool::extension_of(GetParam()));
  write_file(GetParam(), path, image);

  std::vector<std::uint16_t> read;
  switch (GetParam()) {
    case Output_type::tiff:
      read = read_back_tiff(path);
      break;
    case Output_type::png:
      read = read_back_png(path);
      break;
    case Output_type::ppm:
      read = read_back_ppm(path);
      break;
    case Output_type::raw:
      read = tool_test::raw_samples_of(path);
      break;
  }
  EXPECT_EQ(read, image.samples);
}

INSTANTIATE_TEST_SUITE_P(Types, Writer_round_trip,
                         testing::Values(Output_type::tiff, Output_type::png, Output_type::ppm,
                                         Output_type::raw),
                         [](const testing::TestParamInfo<Output_type>& info) {
                           return oqa_tool::extension_of(info.param).substr(1);
                         });

TEST(Writer, RawKeepsThePlanarLayout) {
  const tool_test::Scratch_folder folder;
  const Colour_image image{
      2, 2, QN_COLOR_FORMAT_BGR_PLANAR, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}};
  write_file(Output_type::raw, folder.file("p.raw"), image);
  EXPECT_EQ(tool_test::raw_samples_of(folder.file("p.raw")), image.samples);
}

TEST(Writer, AFullDiskIsReported) {
  const int full = ::open("/dev/full", O_RDWR | O_CLOEXEC);
  ASSERT_GE(full, 0);
  const Colour_image image{2, 2, QN_COLOR_FORMAT_RGB_INTERLEAVED, std::vector<std::uint16_t>(12)};
  for (const Output_type type :
       {Output_type::tiff, Output_type::png, Output_type::ppm, Output_type::raw}) {
    EXPECT_THROW(oqa_tool::write_image(type, full, image), oqa_tool::Image_io_error)
        << oqa_tool::extension_of(type);
  }
  ::close(full);
}

TEST(Output_types, FollowTheExtensionCaseInsensitively) {
  EXPECT_EQ(oqa_tool::output_type_of_path("a/b.TIF"), Output_type::tiff);
  EXPECT_EQ(oqa_tool::output_type_of_path("b.tiff"), Output_type::tiff);
  EXPECT_EQ(oqa_tool::output_type_of_path("b.Png"), Output_type::png);
  EXPECT_EQ(oqa_tool::output_type_of_path("b.ppm"), Output_type::ppm);
  EXPECT_EQ(oqa_tool::output_type_of_path("b.raw"), Output_type::raw);
  EXPECT_FALSE(oqa_tool::output_type_of_path("b.jpg").has_value());
  EXPECT_FALSE(oqa_tool::output_type_of_path("tiff").has_value());
}

}  // namespace
