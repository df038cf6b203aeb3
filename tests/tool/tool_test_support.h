// Helpers shared by the tool's tests: sample data, and small TIFF, DNG and
// FITS files written here (TIFF and DNG with libtiff), with single tag
// entries rewritten for the damage a hostile file carries.
#ifndef OQA_TESTS_TOOL_TOOL_TEST_SUPPORT_H
#define OQA_TESTS_TOOL_TOOL_TEST_SUPPORT_H

#include <fitsio.h>
#include <tiffio.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "image_io_error.h"
#include "mosaic_image.h"
#include "scratch_folder.h"

namespace tool_test {

using namespace test_files;
using oqa_tool::Mosaic_image;
using oqa_tool::Samples;

inline Samples random_samples(std::size_t count, std::uint32_t seed) {
  std::mt19937 generator(seed);
  std::uniform_int_distribution<int> value(0, 65535);
  Samples samples(count);
  std::generate(samples.begin(), samples.end(), [&] { return value(generator); });
  return samples;
}

inline Mosaic_image mosaic(int width, int height, Samples samples) {
  return {width, height, std::move(samples), {}, {}, {}};
}

// Names each case of a parameterised table after its row.
inline constexpr auto row_name = [](const auto& info) { return std::string(info.param.name); };

// The message of the Image_io_error that `action` throws, or `accepted`.
inline const std::string accepted = "(accepted)";
inline std::string error_of(const std::function<void()>& action) try {
  action();
  return accepted;
} catch (const oqa_tool::Image_io_error& error) {
  return error.what();
}

struct Tiff_layout {
  const char* mode = "wl";  // "wl" little-endian, "wb" big-endian
  std::uint16_t compression = COMPRESSION_NONE;
  bool tiled = false;  // tiles of 16x16, else strips of `rows_per_strip`
  std::uint16_t samples_per_pixel = 1;
  std::uint16_t bits = 16;
  std::uint32_t rows_per_strip = 4;
};

// A width x height image from the bytes of `samples` (row-major, at least
// width*height*samples_per_pixel*bits/8 of them); `more` sets further tags,
// `finish` runs after the samples are written, before the file is closed.
// Returns false if libtiff refuses.
inline bool write_tiff(
    const std::string& path, const Tiff_layout& layout, int width, int height,
    const Samples& samples, const std::function<void(TIFF*)>& more = [](TIFF*) {},
    const std::function<bool(TIFF*)>& finish = [](TIFF*) { return true; }) {
  TIFF* tiff = TIFFOpen(path.c_str(), layout.mode);
  if (tiff == nullptr) return false;
  TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, width);
  TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, height);
  TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, layout.samples_per_pixel);
  TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, layout.bits);
  TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC,
               layout.samples_per_pixel == 1 ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB);
  TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(tiff, TIFFTAG_COMPRESSION, layout.compression);
  more(tiff);
  bool written = true;
  if (layout.tiled) {
    TIFFSetField(tiff, TIFFTAG_TILEWIDTH, 16);
    TIFFSetField(tiff, TIFFTAG_TILELENGTH, 16);
    std::vector<std::uint16_t> tile(16 * 16);
    for (int top = 0; top < height; top += 16) {
      for (int left = 0; left < width; left += 16) {
        for (int i = 0; i < 16 * 16; ++i) {
          const int y = top + i / 16, x = left + i % 16;
          tile[i] = y < height && x < width ? samples[y * width + x] : 0;
        }
        written = written && TIFFWriteTile(tiff, tile.data(), left, top, 0, 0) >= 0;
      }
    }
  } else {
    // A copy: libtiff swaps the bytes of what it writes in place.
    const std::size_t row_bytes = std::size_t{layout.samples_per_pixel} * width * layout.bits / 8;
    std::vector<std::uint8_t> bytes(row_bytes * height);
    std::memcpy(bytes.data(), samples.data(), std::min(bytes.size(), samples.size() * 2));
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, layout.rows_per_strip);
    for (int y = 0; y < height; ++y) {
      written = written && TIFFWriteScanline(tiff, bytes.data() + y * row_bytes, y, 0) == 1;
    }
  }
  written = written && finish(tiff);
  TIFFClose(tiff);
  return written;
}

struct Dng_description {
  Dng_description(int width, int height, std::uint32_t seed)
      : raw_width(width), raw_height(height), samples(random_samples(width * height, seed)) {}
  int raw_width, raw_height;
  Samples samples;  // row-major
  // 2x2 colour codes (0 red, 1 green, 2 blue) at the raw image's origin.
  std::array<std::uint8_t, 4> cfa_pattern{0, 1, 1, 2};
  std::array<std::uint32_t, 4> active_area{0, 0, 0, 0};  // top, left, bottom, right
  std::uint16_t black_level = 0;
  std::uint32_t white_level = 65535;
  std::uint16_t orientation = 1;
  std::array<float, 4> default_crop{};     // origin x, y, then size; no size: none
  std::array<float, 9> colour_matrix{};    // ColorMatrix1 under D65; zeros: none
  std::array<float, 3> as_shot_neutral{};  // zeros: none
  // Make, model and time go into IFD0, the rest into the EXIF directory, as
  // cameras write them.
  std::optional<oqa_tool::Shot_metadata> shot;
};

// One strip, little-endian, so that each tag's value sits in its entry; the
// EXIF directory after the image's, which is then written again.
inline bool write_dng(const std::string& path, const Dng_description& dng) {
  const auto tags = [&](TIFF* tiff) {
    static const std::uint8_t version[4] = {1, 4, 0, 0};
    static const std::uint16_t repeat[2] = {2, 2};
    const float black = dng.black_level;  // libtiff takes the rational as float
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_CFA);
    TIFFSetField(tiff, TIFFTAG_DNGVERSION, version);
    TIFFSetField(tiff, TIFFTAG_CFAREPEATPATTERNDIM, repeat);
    TIFFSetField(tiff, TIFFTAG_CFAPATTERN, 4, dng.cfa_pattern.data());
    TIFFSetField(tiff, TIFFTAG_BLACKLEVEL, 1, &black);
    TIFFSetField(tiff, TIFFTAG_WHITELEVEL, 1, &dng.white_level);
    if (dng.active_area[2] != 0) TIFFSetField(tiff, TIFFTAG_ACTIVEAREA, dng.active_area.data());
    TIFFSetField(tiff, TIFFTAG_ORIENTATION, dng.orientation);
    if (dng.default_crop[2] != 0) {
      TIFFSetField(tiff, TIFFTAG_DEFAULTCROPORIGIN, dng.default_crop.data());
      TIFFSetField(tiff, TIFFTAG_DEFAULTCROPSIZE, dng.default_crop.data() + 2);
    }
    if (dng.colour_matrix[0] != 0) {
      TIFFSetField(tiff, TIFFTAG_COLORMATRIX1, 9, dng.colour_matrix.data());
      TIFFSetField(tiff, TIFFTAG_CALIBRATIONILLUMINANT1, 21);  // D65
    }
    if (dng.as_shot_neutral[0] != 0) {
      TIFFSetField(tiff, TIFFTAG_ASSHOTNEUTRAL, 3, dng.as_shot_neutral.data());
    }
    if (dng.shot) {
      TIFFSetField(tiff, TIFFTAG_MAKE, dng.shot->make);
      TIFFSetField(tiff, TIFFTAG_MODEL, dng.shot->model);
      TIFFSetField(tiff, TIFFTAG_DATETIME, dng.shot->date_time);
      TIFFSetField(tiff, TIFFTAG_EXIFIFD, std::uint64_t{0});  // set once written
    }
  };
  const auto exif = [&](TIFF* tiff) {
    if (!dng.shot) return true;
    std::uint64_t offset = 0;
    const auto iso = static_cast<std::uint16_t>(dng.shot->iso);
    bool written = TIFFWriteDirectory(tiff) == 1 && TIFFCreateEXIFDirectory(tiff) == 0;
    TIFFSetField(tiff, EXIFTAG_EXPOSURETIME, double{dng.shot->exposure_seconds});
    TIFFSetField(tiff, EXIFTAG_FNUMBER, double{dng.shot->f_number});
    TIFFSetField(tiff, EXIFTAG_ISOSPEEDRATINGS, 1, &iso);
    TIFFSetField(tiff, EXIFTAG_FOCALLENGTH, double{dng.shot->focal_length_mm});
    TIFFSetField(tiff, EXIFTAG_DATETIMEORIGINAL, dng.shot->date_time);
    written = written && TIFFWriteCustomDirectory(tiff, &offset) == 1 && TIFFSetDirectory(tiff, 0);
    TIFFSetField(tiff, TIFFTAG_EXIFIFD, offset);
    return written && TIFFWriteDirectory(tiff) == 1;
  };
  const auto rows = static_cast<std::uint32_t>(dng.raw_height);
  return write_tiff(path, {"wl", COMPRESSION_NONE, false, 1, 16, rows}, dng.raw_width,
                    dng.raw_height, dng.samples, tags, exif);
}

// A FITS image written by cfitsio: `type` USHORT_IMG (BZERO 32768) or any
// other BITPIX, the samples as unsigned values, then `cards`: whole records
// such as "BAYERPAT= 'RGGB'".
inline bool write_fits(const std::string& path, int type, std::vector<long> axes,
                       const Samples& samples, const std::vector<std::string>& cards) {
  fitsfile* fits = nullptr;
  int status = 0;
  fits_create_file(&fits, ("!" + path).c_str(), &status);
  fits_create_img(fits, type, static_cast<int>(axes.size()), axes.data(), &status);
  for (const std::string& card : cards) fits_write_record(fits, card.c_str(), &status);
  // cfitsio only reads the samples; its interface lacks the const.
  fits_write_img(fits, TUSHORT, 1, static_cast<LONGLONG>(samples.size()),
                 const_cast<std::uint16_t*>(samples.data()), &status);
  fits_close_file(fits, &status);
  return status == 0;
}

// The count, or else the value held in the entry (SHORT or LONG), of a tag.
struct Tiff_entry {
  std::uint16_t tag;
  bool count;
  std::uint32_t number;
};

// LibRaw crashes on a 2x2 pattern described by 36 colours...
inline constexpr Tiff_entry long_pattern{TIFFTAG_CFAPATTERN, true, 36};
// ...and stops decoding lossless JPEG of garbage without an error.
inline constexpr Tiff_entry garbage_data{TIFFTAG_COMPRESSION, false, COMPRESSION_JPEG};

// Rewrites entries of the first directory of a little-endian TIFF file.
// Returns false if one is absent.
inline bool rewrite_tiff_entries(const std::string& path, const std::vector<Tiff_entry>& changes) {
  std::string bytes = read_file(path);
  const auto get = [&](std::size_t at, std::size_t size) {
    std::uint32_t value = 0;
    std::memcpy(&value, bytes.data() + at, size);  // little-endian host and file
    return value;
  };
  const std::uint32_t first = get(4, 4) + 2;
  const std::uint32_t end = first + 12 * get(first - 2, 2);
  for (const Tiff_entry& change : changes) {
    std::uint32_t entry = first;
    while (entry < end && get(entry, 2) != change.tag) entry += 12;
    if (entry == end) return false;
    // A SHORT value fills the first half of its field, the rest is padding.
    std::memcpy(bytes.data() + entry + (change.count ? 4 : 8), &change.number, 4);
  }
  write_file(path, bytes);
  return true;
}

}  // namespace tool_test

#endif  // OQA_TESTS_TOOL_TOOL_TEST_SUPPORT_H
