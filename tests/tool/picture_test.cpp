// The steps after the demosaic on files written here: a camera's crop and
// orientation (DNG), developing a grey card, the shot's metadata in every
// output that carries it, and FITS mosaics in and cubes out.
#include <gtest/gtest.h>
#include <png.h>

#include <fcntl.h>
#include <unistd.h>

#include <cmath>
#include <map>

#include "demosaic_call.h"
#include "image_writer.h"
#include "input_reader.h"
#include "picture_steps.h"
#include "tool_test_support.h"

namespace {

using oqa_tool::Colour_image;
using oqa_tool::Mosaic_image;
using tool_test::Scratch_folder;

// The library's output for a file's visible area, then the steps.
Colour_image picture_of(const std::string& path, const oqa_tool::Picture_options& options,
                        std::optional<QN_COLOR_FILTER_ARRAY_PHASE> pattern = std::nullopt) {
  const oqa_tool::Library_session library;
  const Mosaic_image mosaic = oqa_tool::read_mosaic_file(path, {});
  Colour_image image;
  oqa_tool::demosaic(mosaic, {pattern.value_or(*mosaic.phase)}, image);
  oqa_tool::finish_picture(image, mosaic.camera, options);
  return image;
}

const oqa_tool::Picture_options library_output{false, false};

// Where EXIF orientation `value` takes a picture's (row, column) from in a
// rows x columns image as stored.
std::pair<int, int> stored_pixel(int value, int row, int column, int rows, int columns) {
  switch (value) {
    case 2:
      return {row, columns - 1 - column};
    case 3:
      return {rows - 1 - row, columns - 1 - column};
    case 4:
      return {rows - 1 - row, column};
    case 5:
      return {column, row};
    case 6:
      return {rows - 1 - column, row};
    case 7:
      return {rows - 1 - column, columns - 1 - row};
    case 8:
      return {column, columns - 1 - row};
    default:
      return {row, column};
  }
}

struct Layout {
  const char* name;
  std::uint16_t orientation;
  std::array<std::uint32_t, 2> active_top_left;
  std::array<float, 4> crop;  // DefaultCrop origin and size; no size: none
};

class Camera_layout : public testing::TestWithParam<Layout> {};

// The crop is cut from the whole visible area's demosaic, then turned.
TEST_P(Camera_layout, CropsThenTurnsTheLibrarysOutput) {
  const auto [name, orientation, active, crop] = GetParam();
  tool_test::Dng_description dng(34, 26, orientation);
  dng.active_area = {active[0], active[1], 26, 34};
  dng.orientation = orientation;
  dng.default_crop = crop;
  const Scratch_folder folder;
  const std::string path = folder.file("in.dng");
  ASSERT_TRUE(tool_test::write_dng(path, dng));
  const Colour_image whole = picture_of(path, library_output);
  oqa_tool::Picture_options turn;
  turn.threads = 3;  // bands of rows at once
  const Colour_image turned = picture_of(path, turn);

  // The visible area starts on even raw rows and columns, the crop origin
  // counts from the active area.
  const int left =
      crop[2] > 0 ? static_cast<int>(active[1] + crop[0]) - (active[1] + 1) / 2 * 2 : 0;
  const int top = crop[2] > 0 ? static_cast<int>(active[0] + crop[1]) - (active[0] + 1) / 2 * 2 : 0;
  const int columns = crop[2] > 0 ? static_cast<int>(crop[2]) : whole.width;
  const int rows = crop[2] > 0 ? static_cast<int>(crop[3]) : whole.height;
  const bool swapped = orientation >= 5;
  ASSERT_EQ(turned.width, swapped ? rows : columns);
  ASSERT_EQ(turned.height, swapped ? columns : rows);
  for (int row = 0; row < turned.height; ++row) {
    for (int column = 0; column < turned.width; ++column) {
      const auto [y, x] = stored_pixel(orientation, row, column, rows, columns);
      for (int c = 0; c < 3; ++c) {
        ASSERT_EQ(turned.samples[(row * turned.width + column) * 3 + c],
                  whole.samples[((top + y) * whole.width + left + x) * 3 + c])
            << row << "," << column;
      }
    }
  }
}

const Layout layouts[] = {{"Upright", 1, {0, 0}, {}},
                          {"Mirrored", 2, {0, 0}, {3, 1, 20, 11}},
                          {"UpsideDown", 3, {2, 1}, {1, 2, 17, 15}},
                          {"Flipped", 4, {0, 0}, {0, 0, 30, 20}},
                          {"Transposed", 5, {1, 2}, {}},
                          {"TurnedRight", 6, {0, 0}, {4, 2, 21, 13}},
                          {"Transverse", 7, {3, 3}, {2, 1, 9, 7}},
                          {"TurnedLeft", 8, {0, 0}, {5, 3, 27, 19}}};

INSTANTIATE_TEST_SUITE_P(Orientations, Camera_layout, testing::ValuesIn(layouts),
                         tool_test::row_name);

class Developed_grey_card : public testing::TestWithParam<int> {};

// A flat grey under an as-shot white of (0.5, 1, 0.25): each site records
// black + 4000 times its channel's share. Balanced and through the matrix,
// whatever it is, the grey is neutral.
TEST_P(Developed_grey_card, IsNeutralGrey) {
  tool_test::Dng_description dng(32, 24, 1);
  dng.black_level = 512;
  dng.white_level = 16383;
  dng.as_shot_neutral = {0.5F, 1.0F, 0.25F};
  dng.colour_matrix = {0.9F, -0.3F, -0.1F, -0.4F, 1.2F, 0.2F, -0.1F, 0.2F, 0.6F};
  for (std::size_t i = 0; i < dng.samples.size(); ++i) {
    const std::size_t cell = (i / 32 % 2) * 2 + i % 2;
    dng.samples[i] =
        static_cast<std::uint16_t>(512 + 4000 * dng.as_shot_neutral[dng.cfa_pattern[cell]]);
  }
  const Scratch_folder folder;
  ASSERT_TRUE(tool_test::write_dng(folder.file("grey.dng"), dng));
  oqa_tool::Picture_options develop;
  develop.develop = true;
  develop.depth = GetParam();
  develop.threads = 3;
  const Colour_image picture = picture_of(folder.file("grey.dng"), develop);

  const double linear = 4000.0 / (16383 - 512);
  const double encoded = 1.055 * std::pow(linear, 1 / 2.4) - 0.055;
  const int expected = static_cast<int>(std::lround(encoded * ((1 << GetParam()) - 1)));
  EXPECT_TRUE(picture.srgb);
  EXPECT_EQ(picture.bits, GetParam());
  for (const std::uint16_t sample : picture.samples) {
    ASSERT_NEAR(sample, expected, 1);
  }
}

INSTANTIATE_TEST_SUITE_P(Depths, Developed_grey_card, testing::Values(8, 16));

// What a file says about the shot: make|model|time|exposure|f-number|ISO|focal length.
using Metadata_reader = std::string (*)(const std::string& path);

std::string joined(std::initializer_list<std::string> fields) {
  std::string text;
  for (const std::string& field : fields) {
    text += (text.empty() ? "" : "|") + field;
  }
  return text;
}

std::string number(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.4g", value);
  return text;
}

std::string tiff_metadata(const std::string& path) {
  const std::unique_ptr<TIFF, void (*)(TIFF*)> tiff(TIFFOpen(path.c_str(), "r"), TIFFClose);
  const char* texts[3] = {"", "", ""};
  TIFFGetField(tiff.get(), TIFFTAG_MAKE, &texts[0]);
  TIFFGetField(tiff.get(), TIFFTAG_MODEL, &texts[1]);
  TIFFGetField(tiff.get(), TIFFTAG_DATETIME, &texts[2]);
  std::string fields = joined({texts[0], texts[1], texts[2]});
  toff_t exif = 0;
  float values[3] = {};  // libtiff hands EXIF rationals out as float
  std::uint16_t count = 0;
  std::uint16_t* iso = nullptr;
  if (TIFFGetField(tiff.get(), TIFFTAG_EXIFIFD, &exif) == 1 &&
      TIFFReadEXIFDirectory(tiff.get(), exif) == 1 &&
      TIFFGetField(tiff.get(), EXIFTAG_EXPOSURETIME, &values[0]) == 1 &&
      TIFFGetField(tiff.get(), EXIFTAG_FNUMBER, &values[1]) == 1 &&
      TIFFGetField(tiff.get(), EXIFTAG_ISOSPEEDRATINGS, &count, &iso) == 1 && count == 1 &&
      TIFFGetField(tiff.get(), EXIFTAG_FOCALLENGTH, &values[2]) == 1) {
    fields =
        joined({fields, number(values[0]), number(values[1]), number(*iso), number(values[2])});
  }
  return fields;
}

std::string png_metadata(const std::string& path) {
  std::FILE* file = std::fopen(path.c_str(), "rb");
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  png_textp texts = nullptr;
  int count = 0;
  std::map<std::string, std::string> found;
  if (file != nullptr && setjmp(png_jmpbuf(png)) == 0) {
    png_init_io(png, file);
    png_read_info(png, info);
    png_get_text(png, info, &texts, &count);
    for (int i = 0; i < count; ++i) {
      found[texts[i].key] = texts[i].text;
    }
  }
  png_destroy_read_struct(&png, &info, nullptr);
  if (file != nullptr) {
    std::fclose(file);
  }
  return joined({found["Make"], found["Model"], found["Creation Time"], found["ExposureTime"],
                 found["FNumber"], found["ISOSpeedRatings"], found["FocalLength"]});
}

std::string fits_metadata(const std::string& path) {
  fitsfile* fits = nullptr;
  int status = 0;
  char camera[FLEN_VALUE] = "";
  char date[FLEN_VALUE] = "";
  double values[4] = {};
  fits_open_file(&fits, path.c_str(), READONLY, &status);
  fits_read_key(fits, TSTRING, "INSTRUME", camera, nullptr, &status);
  fits_read_key(fits, TSTRING, "DATE-OBS", date, nullptr, &status);
  int index = 0;
  for (const char* keyword : {"EXPTIME", "FOCRATIO", "ISOSPEED", "FOCALLEN"}) {
    fits_read_key(fits, TDOUBLE, keyword, &values[index++], nullptr, &status);
  }
  fits_close_file(fits, &status);
  return joined(
      {camera, date, number(values[0]), number(values[1]), number(values[2]), number(values[3])});
}

struct Metadata_output {
  const char* name;
  const char* file;
  Metadata_reader read;
  std::string expected;
};

class Shot_metadata_round_trip : public testing::TestWithParam<Metadata_output> {};

// Control characters in the camera's texts reach no output.
TEST_P(Shot_metadata_round_trip, CarriesTheShotCleaned) {
  tool_test::Dng_description dng(32, 24, 2);
  dng.shot = {"Maker\x1b[2J", "Model 7", "2023:05:06 07:08:09", 0.004, 2.8, 400, 50};
  const Scratch_folder folder;
  ASSERT_TRUE(tool_test::write_dng(folder.file("in.dng"), dng));
  Colour_image image = picture_of(folder.file("in.dng"), {});
  image.notes = oqa_tool::read_mosaic_file(folder.file("in.dng"), {}).notes;
  const std::string path = folder.file(GetParam().file);
  const int descriptor = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  oqa_tool::write_image(*oqa_tool::output_type_of_path(path), descriptor, image);
  ::close(descriptor);
  EXPECT_EQ(GetParam().read(path), GetParam().expected);
}

const Metadata_output metadata_outputs[] = {
    {"tiff", "out.tiff", tiff_metadata, "Maker?[2J|Model 7|2023:05:06 07:08:09|0.004|2.8|400|50"},
    {"png", "out.png", png_metadata, "Maker?[2J|Model 7|2023:05:06 07:08:09|0.004|2.8|400|50"},
    {"fits", "out.fits", fits_metadata, "Maker?[2J Model 7|2023-05-06T07:08:09|0.004|2.8|400|50"}};

INSTANTIATE_TEST_SUITE_P(Types, Shot_metadata_round_trip, testing::ValuesIn(metadata_outputs),
                         tool_test::row_name);

struct Fits_mosaic {
  const char* name;
  std::vector<std::string> cards;
  std::optional<QN_COLOR_FILTER_ARRAY_PHASE> phase;
  int type = USHORT_IMG;
  bool bottom_up = false;
};

class Fits_input : public testing::TestWithParam<Fits_mosaic> {};

// The samples exactly, rows top-down, and the pattern at pixel (0, 0).
TEST_P(Fits_input, ReadsTheMosaicExactly) {
  const Scratch_folder folder;
  auto samples = tool_test::random_samples(45 * 27, 8);
  if (GetParam().type == SHORT_IMG) {
    std::for_each(samples.begin(), samples.end(), [](auto& sample) { sample >>= 1; });
  }
  ASSERT_TRUE(tool_test::write_fits(folder.file("in.fits"), GetParam().type, {45, 27}, samples,
                                    GetParam().cards));
  const Mosaic_image image = oqa_tool::read_mosaic_file(folder.file("in.fits"), {});
  ASSERT_EQ(image.samples.size(), samples.size());
  for (int row = 0; row < 27; ++row) {
    const int stored = GetParam().bottom_up ? 26 - row : row;
    ASSERT_TRUE(std::equal(samples.begin() + stored * 45, samples.begin() + stored * 45 + 45,
                           image.samples.begin() + row * 45));
  }
  EXPECT_EQ(image.phase, GetParam().phase);
}

const Fits_mosaic fits_mosaics[] = {
    {"Unsigned", {"BAYERPAT= 'RGGB'"}, QN_CFA_PHASE_RED},
    {"Signed", {"COLORTYP= 'GBRG    '"}, QN_CFA_PHASE_GREEN_IN_BLUE_ROW, SHORT_IMG},
    {"NoPattern", {"ROWORDER= 'TOP-DOWN'"}, std::nullopt},
    {"ColumnOffset", {"BAYERPAT= 'RGGB'", "XBAYROFF= 1"}, QN_CFA_PHASE_GREEN_IN_RED_ROW},
    {"RowOffset", {"BAYERPAT= 'RGGB'", "YBAYROFF= 3"}, QN_CFA_PHASE_GREEN_IN_BLUE_ROW},
    {"BottomUp",
     {"BAYERPAT= 'BGGR'", "ROWORDER= 'BOTTOM-UP'"},
     QN_CFA_PHASE_BLUE,
     USHORT_IMG,
     true}};

INSTANTIATE_TEST_SUITE_P(Keywords, Fits_input, testing::ValuesIn(fits_mosaics),
                         tool_test::row_name);

// The built program: a FITS mosaic to a cube of the library's planes, the
// input's own cards carried over, those of its layout not.
TEST(Fits_cube, HoldsTheLibrarysPlanesAndTheInputsCards) {
  const Scratch_folder folder;
  const auto samples = tool_test::random_samples(40 * 30, 3);
  ASSERT_TRUE(tool_test::write_fits(folder.file("in.fits"), USHORT_IMG, {40, 30}, samples,
                                    {"BAYERPAT= 'GRBG'", "OBJECT  = 'M 42'"}));
  const std::string command = "'" OQA_DEMOSAIC_PROGRAM "' in.fits -o out.fits";
  ASSERT_EQ(std::system(("cd '" + folder.path.string() + "' && " + command).c_str()), 0);

  const Colour_image expected = picture_of(folder.file("in.fits"), library_output);
  fitsfile* fits = nullptr;
  int status = 0;
  long sizes[3] = {};
  int axes = 0;
  char object[FLEN_VALUE] = "";
  char pattern[FLEN_VALUE] = "";
  oqa_tool::Samples planes(expected.samples.size());
  fits_open_file(&fits, folder.file("out.fits").c_str(), READONLY, &status);
  fits_get_img_dim(fits, &axes, &status);
  fits_get_img_size(fits, 3, sizes, &status);
  fits_read_key(fits, TSTRING, "OBJECT", object, nullptr, &status);
  fits_read_img(fits, TUSHORT, 1, planes.size(), nullptr, planes.data(), nullptr, &status);
  int absent = 0;
  fits_read_key(fits, TSTRING, "BAYERPAT", pattern, nullptr, &absent);
  fits_close_file(fits, &status);
  ASSERT_EQ(status, 0);
  EXPECT_EQ(axes, 3);
  EXPECT_EQ(sizes[2], 3);
  EXPECT_STREQ(object, "M 42");
  EXPECT_EQ(absent, KEY_NO_EXIST);
  for (std::size_t i = 0; i < planes.size(); ++i) {
    ASSERT_EQ(planes[i % 3 * (planes.size() / 3) + i / 3], expected.samples[i]) << i;
  }
}

}  // namespace
