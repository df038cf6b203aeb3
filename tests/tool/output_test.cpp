// What the tool makes and writes: each writer's file read back with an
// independent reader, the picture steps, the all-or-nothing output file, and
// the built program in scratch folders (results, error lines, exit status,
// and that a failure leaves nothing behind).
#include <fcntl.h>
#include <gtest/gtest.h>
#include <png.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <csignal>
#include <map>

#include "bayer_pattern.h"
#include "demosaic_call.h"
#include "image_writer.h"
#include "input_reader.h"
#include "output_file.h"
#include "picture_steps.h"
#include "tool_test_support.h"

namespace {

using namespace tool_test;
using oqa_tool::Atomic_output_file;
using oqa_tool::Colour_image;
using oqa_tool::Output_folder;

// Several TIFF strips and PNG bands, odd sides.
constexpr int width = 701;
constexpr int height = 523;

struct Run_result {
  int status = -1;
  std::string out, err;
};

// Names of everything in `folder`, sorted.
std::vector<std::string> entries(const std::filesystem::path& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

// Runs the shell `command` in `folder`; its output goes to files outside the
// folder so that the folder holds only results. The status is what a shell
// reports: 128+N for a process ended by signal N.
Run_result run_in(const Scratch_folder& folder, const std::string& command) {
  const Scratch_folder logs;
  const std::string line = "cd '" + folder.path.string() + "' && { " + command + "; } >'" +
                           logs / "out" + "' 2>'" + logs / "err" + "'";
  const int status = std::system(line.c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), read_file(logs / "out"),
          read_file(logs / "err")};
}

const std::string program = "'" OQA_DEMOSAIC_PROGRAM "' ";

// A 16-bit P5 file.
std::string pgm(int columns, int rows, const Samples& samples) {
  std::string bytes = "P5\n" + std::to_string(columns) + " " + std::to_string(rows) + "\n65535\n";
  for (const std::uint16_t sample : samples) bytes += {char(sample >> 8), char(sample & 0xFF)};
  return bytes;
}

std::string joined(std::initializer_list<std::string> fields) {
  std::string text;
  for (const std::string& field : fields) text += (text.empty() ? "" : "|") + field;
  return text;
}

std::string number(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.4g", value);
  return text;
}

// `count` samples of `bits` bits from `bytes`, 16-bit ones in the given byte order.
void append(Samples& samples, const void* bytes, std::size_t count, int bits, bool big_endian) {
  for (const auto* at = static_cast<const std::uint8_t*>(bytes); count-- > 0; at += bits / 8) {
    samples.push_back(bits == 8 ? at[0] : big_endian ? at[0] << 8 | at[1] : at[1] << 8 | at[0]);
  }
}

// Each reader checks the file's size and depth against the image written,
// sets `shot` to make|model|time|exposure|f-number|ISO|focal length as the
// file has them, and returns the samples RGB-interleaved, none if it cannot.
using Reader = Samples (*)(const std::string& path, const Colour_image& written, std::string& shot);

Samples read_back_tiff(const std::string& path, const Colour_image& written, std::string& shot) {
  const std::unique_ptr<TIFF, void (*)(TIFF*)> tiff(TIFFOpen(path.c_str(), "r"), TIFFClose);
  std::uint32_t size[2] = {};
  std::uint16_t sample_layout[2] = {};
  bool read = tiff && TIFFGetField(tiff.get(), TIFFTAG_IMAGEWIDTH, &size[0]) == 1 &&
              TIFFGetField(tiff.get(), TIFFTAG_IMAGELENGTH, &size[1]) == 1 &&
              TIFFGetField(tiff.get(), TIFFTAG_SAMPLESPERPIXEL, &sample_layout[0]) == 1 &&
              TIFFGetField(tiff.get(), TIFFTAG_BITSPERSAMPLE, &sample_layout[1]) == 1 &&
              size[0] == std::uint32_t(written.width) && size[1] == std::uint32_t(written.height) &&
              sample_layout[0] == 3 && sample_layout[1] == written.bits;
  std::vector<std::uint8_t> row(written.width * 3 * written.bits / 8);
  Samples samples;
  for (int y = 0; read && y < written.height; ++y) {
    read = TIFFReadScanline(tiff.get(), row.data(), y, 0) == 1;  // in host order
    append(samples, row.data(), written.width * 3, written.bits, false);
  }
  if (!read) return {};
  const char* texts[3] = {"", "", ""};
  TIFFGetField(tiff.get(), TIFFTAG_MAKE, &texts[0]);
  TIFFGetField(tiff.get(), TIFFTAG_MODEL, &texts[1]);
  TIFFGetField(tiff.get(), TIFFTAG_DATETIME, &texts[2]);
  shot = joined({texts[0], texts[1], texts[2]});
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
    shot = joined({shot, number(values[0]), number(values[1]), number(*iso), number(values[2])});
  }
  return samples;
}

// The samples as stored: the file must carry no gamma or colour space.
Samples read_back_png(const std::string& path, const Colour_image& written, std::string& shot) {
  std::FILE* file = std::fopen(path.c_str(), "rb");
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  std::map<std::string, std::string> found;
  Samples samples;
  if (file != nullptr && setjmp(png_jmpbuf(png)) == 0) {
    png_init_io(png, file);
    png_read_info(png, info);
    std::vector<std::uint8_t> row(written.width * 3 * written.bits / 8);
    const bool as_written =
        png_get_image_width(png, info) == std::uint32_t(written.width) &&
        png_get_image_height(png, info) == std::uint32_t(written.height) &&
        png_get_color_type(png, info) == PNG_COLOR_TYPE_RGB &&
        png_get_bit_depth(png, info) == written.bits &&
        png_get_valid(png, info, PNG_INFO_gAMA | PNG_INFO_sRGB | PNG_INFO_iCCP) == 0;
    for (int y = 0; as_written && y < written.height; ++y) {
      png_read_row(png, row.data(), nullptr);
      append(samples, row.data(), written.width * 3, written.bits, true);
    }
    png_textp texts = nullptr;
    int count = 0;
    png_get_text(png, info, &texts, &count);
    for (int i = 0; i < count; ++i) found[texts[i].key] = texts[i].text;
  }
  png_destroy_read_struct(&png, &info, nullptr);
  if (file != nullptr) std::fclose(file);
  shot = joined({found["Make"], found["Model"], found["Creation Time"], found["ExposureTime"],
                 found["FNumber"], found["ISOSpeedRatings"], found["FocalLength"]});
  return samples;
}

Samples read_back_ppm(const std::string& path, const Colour_image& written, std::string&) {
  const std::string bytes = read_file(path);
  const std::string header = "P6\n" + std::to_string(written.width) + " " +
                             std::to_string(written.height) + "\n" +
                             std::to_string((1 << written.bits) - 1) + "\n";
  Samples samples;
  if (!bytes.starts_with(header)) return samples;
  const std::size_t count = (bytes.size() - header.size()) * 8 / written.bits;
  append(samples, bytes.data() + header.size(), count, written.bits, true);
  return samples;
}

// 16-bit little-endian, in the library's layout.
Samples read_back_raw(const std::string& path, const Colour_image&, std::string&) {
  const std::string bytes = read_file(path);
  Samples samples;
  append(samples, bytes.data(), bytes.size() / 2, 16, false);
  return samples;
}

// The planes R, G, B of the cube, interleaved again.
Samples read_back_fits(const std::string& path, const Colour_image& written, std::string& shot) {
  fitsfile* fits = nullptr;
  int status = 0, type = 0, axes = 0;
  long sizes[3] = {};
  const std::size_t count = std::size_t{3} * written.width * written.height;
  Samples planes(count);
  fits_open_file(&fits, path.c_str(), READONLY, &status);
  fits_get_img_equivtype(fits, &type, &status);
  fits_get_img_dim(fits, &axes, &status);
  fits_get_img_size(fits, 3, sizes, &status);
  fits_read_img(fits, TUSHORT, 1, count, nullptr, planes.data(), nullptr, &status);
  char camera[FLEN_VALUE] = "", date[FLEN_VALUE] = "";
  double values[4] = {};
  int keys = status;  // a missing card ends the shot there
  fits_read_key(fits, TSTRING, "INSTRUME", camera, nullptr, &keys);
  fits_read_key(fits, TSTRING, "DATE-OBS", date, nullptr, &keys);
  int index = 0;
  for (const char* keyword : {"EXPTIME", "FOCRATIO", "ISOSPEED", "FOCALLEN"}) {
    fits_read_key(fits, TDOUBLE, keyword, &values[index++], nullptr, &keys);
  }
  fits_close_file(fits, &status);
  shot = joined(
      {camera, date, number(values[0]), number(values[1]), number(values[2]), number(values[3])});
  if (status != 0 || type != (written.bits == 8 ? BYTE_IMG : USHORT_IMG) || axes != 3 ||
      sizes[0] != written.width || sizes[1] != written.height || sizes[2] != 3) {
    return {};
  }
  Samples samples(count);
  for (std::size_t i = 0; i < count; ++i) samples[i] = planes[i % 3 * (count / 3) + i / 3];
  return samples;
}

struct Output_format {
  const char* name;
  const char* file;  // the type follows the extension, whatever its case
  Reader read_back;
  std::string shot;  // as its reader finds it
  std::optional<oqa_tool::Compression> compression = std::nullopt;
  int bits = 16;
};

class Writer_round_trip : public testing::TestWithParam<Output_format> {};

// The 16-bit rows carry a camera's shot as the camera raw reader hands it
// on, control characters in its texts replaced; the 8-bit rows a camera's
// name alone, which leaves nothing for an EXIF directory.
TEST_P(Writer_round_trip, ReadsBackTheSameSamplesAndShotAndReportsAFullDisk) {
  const Scratch_folder folder;
  const std::string path = folder / GetParam().file;
  const auto type = oqa_tool::output_type_of_path(path);
  ASSERT_TRUE(type.has_value());
  Dng_description dng(32, 24, 2);
  dng.shot = {"Maker\x1b[2J", "Model 7", "2023:05:06 07:08:09", 0.004F, 2.8F, 400, 50};
  ASSERT_TRUE(write_dng(folder / "in.dng", dng));
  Colour_image image;
  image.width = width;
  image.height = height;
  image.samples = random_samples(std::size_t{3} * width * height, 21);
  image.bits = GetParam().bits;
  image.notes = oqa_tool::read_mosaic_file(folder / "in.dng", {}).notes;
  // Extremes, where byte-order mistakes show.
  std::copy_n(Samples{0x0000, 0xFFFF, 0x00FF, 0xFF00}.begin(), 4, image.samples.begin());
  if (image.bits == 8) {
    image.notes.shot = oqa_tool::Shot_metadata{"Maker"};
    for (auto& sample : image.samples) sample &= 0xFF;
  }
  // The writers take an open descriptor and leave it open.
  const int descriptor = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  ASSERT_GE(descriptor, 0);
  const oqa_tool::Write_settings settings{GetParam().compression, 3};
  oqa_tool::write_image(*type, descriptor, image, settings);
  EXPECT_EQ(::close(descriptor), 0);
  std::string shot;
  EXPECT_EQ(GetParam().read_back(path, image, shot), image.samples);
  EXPECT_EQ(shot, GetParam().shot);

  const int full = ::open("/dev/full", O_RDWR | O_CLOEXEC);
  ASSERT_GE(full, 0);
  EXPECT_THROW(oqa_tool::write_image(*type, full, image, settings), oqa_tool::Image_io_error);
  ::close(full);
}

using enum oqa_tool::Compression;
const std::string exif = "Maker?[2J|Model 7|2023:05:06 07:08:09|0.004|2.8|400|50";
const std::string fits_shot = "Maker?[2J Model 7|2023-05-06T07:08:09|0.004|2.8|400|50";
const Output_format output_formats[] = {
    {"tiff", "image.TIF", read_back_tiff, exif},
    {"TiffFast", "image.tif", read_back_tiff, exif, fast},
    {"TiffBest", "image.tiff", read_back_tiff, exif, best},
    {"TiffFastEightBit", "image.tif", read_back_tiff, "Maker||", fast, 8},
    {"png", "image.Png", read_back_png, exif},
    {"PngStored", "image.png", read_back_png, exif, none},
    {"PngBest", "image.png", read_back_png, exif, best},
    {"PngEightBit", "image.png", read_back_png, "Maker||||||", fast, 8},
    {"ppm", "image.ppm", read_back_ppm, ""},
    {"PpmEightBit", "image.ppm", read_back_ppm, "", std::nullopt, 8},
    {"fits", "image.fits", read_back_fits, fits_shot},
    {"FitsEightBit", "image.fit", read_back_fits, "Maker||0|0|0|0", std::nullopt, 8},
    {"raw", "image.raw", read_back_raw, ""}};

INSTANTIATE_TEST_SUITE_P(Types, Writer_round_trip, testing::ValuesIn(output_formats), row_name);

// The library's output for a file's visible area, then the steps.
Colour_image picture_of(const std::string& path, const oqa_tool::Picture_options& options) {
  const oqa_tool::Library_session library;
  const Mosaic_image mosaic = oqa_tool::read_mosaic_file(path, {});
  Colour_image image;
  oqa_tool::demosaic(mosaic, {*mosaic.phase}, image);
  oqa_tool::finish_picture(image, mosaic.camera, options);
  return image;
}

const oqa_tool::Picture_options library_output{false, false};

// Where EXIF orientation `value` takes a picture's (row, column) from in a
// rows x columns image as stored: 5 to 8 transpose, then rows or columns
// count from the far side.
std::pair<int, int> stored_pixel(int value, int row, int column, int rows, int columns) {
  if (value >= 5) std::swap(row, column);
  const bool rows_reversed = value == 3 || value == 4 || value == 6 || value == 7;
  const bool columns_reversed = value == 2 || value == 3 || value == 7 || value == 8;
  return {rows_reversed ? rows - 1 - row : row, columns_reversed ? columns - 1 - column : column};
}

struct Layout {
  const char* name;
  std::uint16_t orientation;
  std::array<int, 4> margins;  // of the active area: top, left, bottom, right
  std::array<float, 4> crop;   // DefaultCrop origin and size; no size: none
};

class Camera_layout
    : public testing::TestWithParam<std::tuple<Layout, QN_COLOR_FILTER_ARRAY_PHASE>> {};

// The reader gives the visible area with the pattern at its top-left; the
// crop is cut from the whole visible area's demosaic, then turned.
TEST_P(Camera_layout, CropsThenTurnsTheLibrarysOutputOfTheVisibleArea) {
  const auto [layout, phase] = GetParam();
  const auto [name, orientation, margins, crop] = layout;
  const auto [top_margin, left_margin, bottom_margin, right_margin] = margins;
  Dng_description dng(34, 26, orientation + 8 * phase);
  for (int i = 0; i < 4; ++i) {
    dng.cfa_pattern[i] = static_cast<std::uint8_t>(oqa_tool::colour_at(phase, i / 2, i % 2));
  }
  dng.active_area = {std::uint32_t(top_margin), std::uint32_t(left_margin),
                     std::uint32_t(26 - bottom_margin), std::uint32_t(34 - right_margin)};
  dng.orientation = orientation;
  dng.default_crop = crop;
  const Scratch_folder folder;
  const std::string path = folder / "in.dng";
  ASSERT_TRUE(write_dng(path, dng));

  // LibRaw starts the visible area on an even raw row and column; DNG's
  // pattern starts at the active area's top-left.
  const Mosaic_image image = oqa_tool::read_mosaic_file(path, {});
  const int top = (top_margin + 1) & ~1, left = (left_margin + 1) & ~1;
  const int width = 34 - left - right_margin, height = 26 - top - bottom_margin;
  ASSERT_EQ(image.width, width);
  ASSERT_EQ(image.height, height);
  Samples visible;
  for (int y = top; y < top + height; ++y) {
    const auto row = dng.samples.begin() + y * 34 + left;
    visible.insert(visible.end(), row, row + width);
  }
  EXPECT_EQ(image.samples, visible);
  ASSERT_TRUE(image.phase.has_value());
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(oqa_tool::colour_at(*image.phase, i / 2, i % 2),
              oqa_tool::colour_at(phase, top - top_margin + i / 2, left - left_margin + i % 2));
  }

  const Colour_image whole = picture_of(path, library_output);
  oqa_tool::Picture_options turn;
  turn.threads = 3;  // bands of rows at once
  const Colour_image turned = picture_of(path, turn);
  // The crop origin counts from the active area.
  const bool cropped = crop[2] > 0;
  const int crop_left = cropped ? left_margin + int(crop[0]) - left : 0;
  const int crop_top = cropped ? top_margin + int(crop[1]) - top : 0;
  const int columns = cropped ? int(crop[2]) : whole.width;
  const int rows = cropped ? int(crop[3]) : whole.height;
  ASSERT_EQ(turned.width, orientation >= 5 ? rows : columns);
  ASSERT_EQ(turned.height, orientation >= 5 ? columns : rows);
  for (int row = 0; row < turned.height; ++row) {
    for (int column = 0; column < turned.width; ++column) {
      const auto [y, x] = stored_pixel(orientation, row, column, rows, columns);
      const auto pixel = whole.samples.begin() + ((crop_top + y) * whole.width + crop_left + x) * 3;
      ASSERT_TRUE(std::equal(pixel, pixel + 3, &turned.samples[(row * turned.width + column) * 3]))
          << row << "," << column;
    }
  }
}

// Margins of both parities on every side that crops leave room for.
const Layout layouts[] = {{"Upright", 1, {0, 0, 0, 0}, {}},
                          {"Mirrored", 2, {0, 0, 2, 1}, {3, 1, 20, 11}},
                          {"UpsideDown", 3, {2, 1, 1, 2}, {1, 2, 17, 15}},
                          {"Flipped", 4, {0, 0, 0, 0}, {0, 0, 30, 20}},
                          {"Transposed", 5, {1, 3, 2, 1}, {}},
                          {"TurnedRight", 6, {0, 0, 1, 2}, {4, 2, 21, 13}},
                          {"Transverse", 7, {3, 3, 0, 0}, {2, 1, 9, 7}},
                          {"TurnedLeft", 8, {3, 2, 0, 0}, {5, 3, 27, 19}}};

INSTANTIATE_TEST_SUITE_P(Orientations, Camera_layout,
                         testing::Combine(testing::ValuesIn(layouts),
                                          testing::Values(QN_CFA_PHASE_RED, QN_CFA_PHASE_BLUE,
                                                          QN_CFA_PHASE_GREEN_IN_RED_ROW,
                                                          QN_CFA_PHASE_GREEN_IN_BLUE_ROW)),
                         [](const auto& info) {
                           return std::get<0>(info.param).name +
                                  std::to_string(std::get<1>(info.param));
                         });

// A flat grey under an as-shot white of (0.5, 1, 0.25): each site records
// black + 4000 times its channel's share. Balanced and through the matrix,
// whatever it is, the grey is neutral, in either depth.
TEST(Developed_grey_card, IsNeutralGrey) {
  Dng_description dng(32, 24, 1);
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
  ASSERT_TRUE(write_dng(folder / "grey.dng", dng));
  const double encoded = 1.055 * std::pow(4000.0 / (16383 - 512), 1 / 2.4) - 0.055;
  for (const int depth : {8, 16}) {
    oqa_tool::Picture_options develop;
    develop.develop = true;
    develop.depth = depth;
    develop.threads = 3;
    const Colour_image picture = picture_of(folder / "grey.dng", develop);
    EXPECT_TRUE(picture.srgb);
    EXPECT_EQ(picture.bits, depth);
    const long expected = std::lround(encoded * ((1 << depth) - 1));
    for (const std::uint16_t sample : picture.samples) ASSERT_NEAR(sample, expected, 1) << depth;
  }
}

// Nothing appears before the commit, which checks the folder again through
// descriptors: whoever can write the folder may take the target's name
// meanwhile, or swap the temporary name for a link to another file. The
// commit then fails, redirects nothing, and the other file keeps its bytes
// and mode.
struct Late_arrival {
  const char* name;
  bool overwrite;
  const char* arrival;  // shell commands; $temporary is the temporary name
  std::string problem;
  const char* holder = nullptr;  // the file that ends up with the bytes written
};

class Atomic_output_file_commit : public testing::TestWithParam<Late_arrival> {};

TEST_P(Atomic_output_file_commit, RedirectsNothing) {
  const Scratch_folder folder;
  const std::string other = folder / "other";
  write_file(other, "old");
  ::chmod(other.c_str(), 0600);
  {
    const Output_folder out(folder.path);
    Atomic_output_file output(out, "out.raw", GetParam().overwrite);
    EXPECT_FALSE(std::filesystem::exists(folder / "out.raw"));
    const std::string temporary = "temporary='" + output.temporary_name() + "'; ";
    ASSERT_EQ(run_in(folder, temporary + GetParam().arrival).status, 0);
    ASSERT_EQ(::write(output.descriptor(), "new", 3), 3);
    const std::string error = error_of([&] { output.commit(); });
    EXPECT_NE(error.find(GetParam().problem), std::string::npos) << error;
  }
  const std::string beside = GetParam().holder != nullptr ? GetParam().holder : "out.raw";
  std::vector<std::string> expected{beside, "other"};
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(entries(folder.path), expected);
  EXPECT_EQ(read_file(other), "old");
  struct stat status {};
  ASSERT_EQ(::stat(other.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600U);
  if (GetParam().holder != nullptr) {
    EXPECT_EQ(read_file(folder / beside), "new");
  }
}

const Late_arrival late_arrivals[] = {
    {"NothingInTheWay", false, "true", accepted, "out.raw"},
    {"FileWithoutOverwrite", false, "cp other out.raw", "exists"},
    {"FifoWithOverwrite", true, "mkfifo out.raw", "not a regular file"},
    {"LinkWithOverwrite", true, "ln -s other out.raw", "not a regular file"},
    {"TemporaryFileSwappedForALink", true, "mv $temporary moved && ln -s other $temporary",
     "replaced by someone else", "moved"}};

INSTANTIATE_TEST_SUITE_P(Targets, Atomic_output_file_commit, testing::ValuesIn(late_arrivals),
                         row_name);

struct Good_run {
  const char* name;
  const char* arguments;
  const char* output;
  oqa_tool::Demosaic_request request;
  Reader read_back = read_back_raw;
};

class Command_output : public testing::TestWithParam<Good_run> {};

// The same samples as PGM, BGGR camera raw and GRBG FITS, converted over an
// older output with --force; a FITS output keeps the input's cards but those
// of its layout. The tool starts the library in its own folder, so a
// companion planted in the working folder never runs (it would leave a
// ".loaded" mark beside itself).
TEST_P(Command_output, ReplacesTheOutputWithTheLibrarysAndRunsNoPlantedLibrary) {
  const Scratch_folder folder;
  Dng_description dng(31, 24, 4);
  dng.cfa_pattern = {2, 1, 1, 0};
  ASSERT_TRUE(write_dng(folder / "in.dng", dng));
  write_file(folder / "in.pgm", pgm(31, 24, dng.samples));
  ASSERT_TRUE(write_fits(folder / "in.fits", USHORT_IMG, {31, 24}, dng.samples,
                         {"BAYERPAT= 'GRBG'", "OBJECT  = 'M 42'"}));
  const std::string output = GetParam().output;
  write_file(folder / output, "old");
  const std::string planted = "libostrevan_oqa_demosaic_vector_avx2.so";
  std::filesystem::copy_file(OQA_PLANTED_COMPANION, folder / planted);
  const Run_result run =
      run_in(folder, program + GetParam().arguments + " -o " + output + " --force");
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, "");  // one file: no batch summary
  EXPECT_EQ(entries(folder.path),
            (std::vector<std::string>{"in.dng", "in.fits", "in.pgm", planted, output}));

  const oqa_tool::Library_session library;
  Colour_image expected;
  oqa_tool::demosaic(mosaic(31, 24, dng.samples), GetParam().request, expected);
  std::string shot;
  EXPECT_EQ(GetParam().read_back(folder / output, expected, shot), expected.samples);
  const std::string file = read_file(folder / output);
  EXPECT_EQ(file.find("OBJECT  = 'M 42'") != std::string::npos, output == "out.fits");
  EXPECT_EQ(file.find("BAYERPAT"), std::string::npos);
}

const Good_run good_runs[] = {
    {"PgmWithOptions",
     "in.pgm --pattern GBRG --origin=-1,2 --layout bgr-planar --level scalar",
     "out.raw",
     {QN_CFA_PHASE_GREEN_IN_BLUE_ROW, -1, 2, QN_COLOR_FORMAT_BGR_PLANAR}},
    {"CameraRawTakesThePatternFromTheFile",
     "in.dng --layout rgb",
     "out.raw",
     {QN_CFA_PHASE_BLUE, 0, 0, QN_COLOR_FORMAT_RGB_INTERLEAVED}},
    {"FitsToACube", "in.fits", "out.fits", {QN_CFA_PHASE_GREEN_IN_RED_ROW}, read_back_fits}};

INSTANTIATE_TEST_SUITE_P(Inputs, Command_output, testing::ValuesIn(good_runs), row_name);

struct Failing_run {
  std::string name;
  std::string arguments;
  std::string named_file;
  std::string problem;
  std::string setup = "true";  // shell commands that build the trap
  // Root enters any folder, so the case means nothing there.
  bool needs_non_root = false;
};

class Command_failure : public testing::TestWithParam<Failing_run> {};

const std::string inputs =
    "printf 'P5 4 4 255\\n0123456789abcdef' >good.pgm && printf 'P5 4 4 255\\n123' >short.pgm && "
    "printf noise >noise.bin && printf %032d 0 >frame.raw && ";

TEST_P(Command_failure, OneLineNamingTheFileAndNothingElseChanges) {
  if (GetParam().needs_non_root && ::geteuid() == 0) GTEST_SKIP() << "runs as root";
  const Scratch_folder folder;
  ASSERT_EQ(run_in(folder, inputs + GetParam().setup).status, 0);
  // Every entry, links not followed: a replaced or rewritten file shows as
  // a new inode, size or time.
  const std::string snapshot = "find . -mindepth 1 -printf '%p %y %l %i %s %T@\\n' | sort";
  const std::string before = run_in(folder, snapshot).out;

  const Run_result run = run_in(folder, program + GetParam().arguments);
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
  EXPECT_NE(run.err.find(GetParam().named_file), std::string::npos) << run.err;
  EXPECT_NE(run.err.find(GetParam().problem), std::string::npos) << run.err;
  EXPECT_EQ(run_in(folder, snapshot).out, before);
}

const std::string in = " --pattern RGGB -o out.tiff";

const Failing_run input_errors[] = {
    {"Missing", "absent.pgm" + in, "absent.pgm", "No such file"},
    {"Truncated", "short.pgm" + in, "short.pgm", "truncated"},
    {"WrongRawSize", "noise.bin --raw 2x2" + in, "noise.bin", "headerless"},
    {"NoPattern", "good.pgm -o out.tiff", "good.pgm", "--pattern"},
    {"UnknownOutputType", "good.pgm --pattern RGGB -o out.jpg", "out.jpg", "output type"},
    {"FolderInput", "." + in, ".", "folder"}};

INSTANTIATE_TEST_SUITE_P(InputErrors, Command_failure, testing::ValuesIn(input_errors), row_name);

// Outputs that must not be written: anything but a regular file is never
// replaced, not even with --force, nor is an input under any of its names;
// paths the system cannot resolve are reported, not thrown.
const std::string pgm_in = "good.pgm --pattern RGGB ";
const std::string raw_in = "frame.raw --raw 4x4 --pattern RGGB --force ";
const std::string not_regular = "not a regular file";
const std::string same = "same file as input frame.raw";
const std::string overlong = std::string(5000, 'x') + "/out.tiff";  // over PATH_MAX

const Failing_run output_traps[] = {
    {"Existing", pgm_in + "-o out.ppm", "out.ppm", "--force", "echo old >out.ppm"},
    {"Fifo", pgm_in + "--force -o o.tiff", "o.tiff", not_regular, "mkfifo o.tiff"},
    {"LinkToFile", pgm_in + "--force -o o.tiff", "o.tiff", not_regular,
     "echo old >x && ln -s x o.tiff"},
    {"InputInTheOutputFolder", raw_in + "--type raw -o .", "frame.raw", same},
    {"InputByAnotherName", raw_in + "-o ./frame.raw", "./frame.raw", same},
    {"InputThroughAHardLink", raw_in + "-o c.raw", "c.raw", same, "ln frame.raw c.raw"},
    {"MissingFolder", pgm_in + "-o no/such/o.tiff", "no/such/o.tiff", "No such file"},
    {"LinkLoop", pgm_in + "-o loop/o.tiff", "loop/o.tiff", "symbolic links", "ln -s loop loop"},
    {"FolderItCannotEnter", pgm_in + "-o locked/o.tiff", "locked/o.tiff", "Permission denied",
     "mkdir -m 600 locked", true},
    {"Overlong", pgm_in + "-o " + overlong, overlong, "File name too long"}};

INSTANTIATE_TEST_SUITE_P(OutputTraps, Command_failure, testing::ValuesIn(output_traps), row_name);

// A bad file, or a crash of the camera raw decoder on one, costs that file
// only: the others are converted, and no temporary output is left behind.
// Steps that need camera data say so once a run for the inputs without it.
TEST(Command, BatchGoesOnPastBadFilesAndADecoderCrash) {
  const Scratch_folder folder;
  for (const char* name : {"a.pgm", "c.pgm"})
    write_file(folder / name, pgm(12, 10, random_samples(120, 2)));
  write_file(folder / "b.pgm", "P5\n9");
  for (const char* name : {"crash.dng", "garbage.dng", "good.dng"}) {
    ASSERT_TRUE(write_dng(folder / name, {64, 48, 3}));
  }
  ASSERT_TRUE(rewrite_tiff_entries(folder / "crash.dng", {long_pattern}));
  ASSERT_TRUE(rewrite_tiff_entries(folder / "garbage.dng", {garbage_data}));
  // Sanitizer runtimes would add their own report of the decoder's crash.
  const Run_result run = run_in(
      folder, "ASAN_OPTIONS=$ASAN_OPTIONS:handle_segv=0 TSAN_OPTIONS=$TSAN_OPTIONS:handle_segv=0 " +
                  program +
                  "a.pgm b.pgm c.pgm crash.dng garbage.dng good.dng --pattern BGGR --develop "
                  "--type png --jobs 2 -o out");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 4) << run.err;
  for (const char* line : {"b.pgm: ", "crash.dng: the camera raw decoder crashed on this file",
                           "garbage.dng: truncated or corrupt camera raw data",
                           "oqa-demosaic: note: --develop needs camera raw input; ",
                           ".pgm (and any other input without camera data) keeps the library's"}) {
    EXPECT_NE(run.err.find(line), std::string::npos) << run.err;
  }
  EXPECT_NE(run.out.find("3 files done, 3 failed"), std::string::npos) << run.out;
  EXPECT_EQ(entries(folder.path / "out"), (std::vector<std::string>{"a.png", "c.png", "good.png"}));
}

// Many names for one frame make a batch long enough to be caught in the
// middle: the signal comes once a temporary output exists.
TEST(Command, EndsByASignalWithoutTemporaryFiles) {
  const Scratch_folder folder;
  write_file(folder / "frame.pgm", pgm(512, 512, random_samples(512 * 512, 5)));
  for (int i = 0; i < 100; ++i) {
    std::filesystem::create_symlink("frame.pgm", folder / (std::to_string(i) + ".pgm"));
  }
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    SCOPED_TRACE(sigabbrev_np(signal));
    // Signals the shell, by then the tool, once a temporary output exists.
    const std::string watcher =
        "(until ls -A out 2>&- | grep -q '^[.]' || ! kill -0 $$; do sleep 0.01; done; kill -" +
        std::to_string(signal) + " $$) & exec ";
    const Run_result run = run_in(
        folder, watcher + program + "[0-9]*.pgm --pattern RGGB --level scalar --jobs 2 -o out");
    EXPECT_EQ(run.status, 128 + signal) << run.err;
    EXPECT_EQ(run_in(folder, "ls -A out | grep '^[.]'").out, "");
  }
}

}  // namespace
