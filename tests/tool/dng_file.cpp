#include "dng_file.h"

#include <tiffio.h>

#include <algorithm>
#include <cstring>

namespace tool_test {

bool write_dng(const std::string& path, const Dng_description& dng) {
  TIFF* tiff = TIFFOpen(path.c_str(), "w");
  if (tiff == nullptr) {
    return false;
  }
  const std::uint8_t version[4] = {1, 4, 0, 0};
  const std::uint16_t repeat[2] = {2, 2};
  // Identity-like matrix: LibRaw wants some colour matrix to call it a camera.
  const float matrix[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  const float neutral[3] = {1, 1, 1};
  TIFFSetField(tiff, TIFFTAG_SUBFILETYPE, 0);
  TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(dng.raw_width));
  TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, static_cast<std::uint32_t>(dng.raw_height));
  TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 16);
  TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
  TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
  TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_CFA);
  TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, static_cast<std::uint32_t>(dng.raw_height));
  TIFFSetField(tiff, TIFFTAG_MAKE, "Testmaker");
  TIFFSetField(tiff, TIFFTAG_MODEL, "Bench 1");
  TIFFSetField(tiff, TIFFTAG_DNGVERSION, version);
  TIFFSetField(tiff, TIFFTAG_DNGBACKWARDVERSION, version);
  TIFFSetField(tiff, TIFFTAG_UNIQUECAMERAMODEL, "Testmaker Bench 1");
  TIFFSetField(tiff, TIFFTAG_CFAREPEATPATTERNDIM, repeat);
  TIFFSetField(tiff, TIFFTAG_CFAPATTERN, 4, dng.cfa_pattern.data());
  TIFFSetField(tiff, TIFFTAG_COLORMATRIX1, 9, matrix);
  TIFFSetField(tiff, TIFFTAG_ASSHOTNEUTRAL, 3, neutral);
  // libtiff takes the rational BlackLevel as float.
  const float black = dng.black_level;
  TIFFSetField(tiff, TIFFTAG_BLACKLEVEL, 1, &black);
  TIFFSetField(tiff, TIFFTAG_WHITELEVEL, 1, &dng.white_level);
  if (dng.active_area[2] != 0) {
    TIFFSetField(tiff, TIFFTAG_ACTIVEAREA, dng.active_area.data());
  }
  bool written = true;
  std::vector<std::uint16_t> row(static_cast<std::size_t>(dng.raw_width));
  for (int y = 0; y < dng.raw_height && written; ++y) {
    row.assign(dng.samples.begin() + static_cast<std::ptrdiff_t>(y) * dng.raw_width,
               dng.samples.begin() + static_cast<std::ptrdiff_t>(y + 1) * dng.raw_width);
    written = TIFFWriteScanline(tiff, row.data(), static_cast<std::uint32_t>(y), 0) == 1;
  }
  TIFFClose(tiff);
  return written;
}

bool write_tiff(const std::string& path, const Tiff_layout& layout,
                const std::vector<std::uint16_t>& samples) {
  TIFF* tiff = TIFFOpen(path.c_str(), layout.mode);
  if (tiff == nullptr) {
    return false;
  }
  TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, tiff_width);
  TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, tiff_height);
  TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, layout.samples_per_pixel);
  TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, layout.bits);
  TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC,
               layout.samples_per_pixel == 1 ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB);
  TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(tiff, TIFFTAG_COMPRESSION, layout.compression);
  const std::size_t row_bytes =
      std::size_t{tiff_width} * layout.samples_per_pixel * layout.bits / 8;
  std::vector<std::uint8_t> raw(row_bytes * tiff_height);
  std::memcpy(raw.data(), samples.data(), std::min(raw.size(), samples.size() * 2));
  bool written = true;
  if (layout.tiled) {
    TIFFSetField(tiff, TIFFTAG_TILEWIDTH, 16);
    TIFFSetField(tiff, TIFFTAG_TILELENGTH, 16);
    std::vector<std::uint16_t> tile(16 * 16);
    for (int top = 0; top < tiff_height; top += 16) {
      for (int left = 0; left < tiff_width; left += 16) {
        for (int i = 0; i < 16 * 16; ++i) {
          const int y = top + i / 16;
          const int x = left + i % 16;
          tile[i] = y < tiff_height && x < tiff_width ? samples[y * tiff_width + x] : 0;
        }
        written = written && TIFFWriteTile(tiff, tile.data(), left, top, 0, 0) >= 0;
      }
    }
  } else {
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, 4);
    for (int y = 0; y < tiff_height; ++y) {
      written = written && TIFFWriteScanline(tiff, raw.data() + y * row_bytes, y, 0) == 1;
    }
  }
  TIFFClose(tiff);
  return written;
}

bool rewrite_tiff_entry(std::vector<std::uint8_t>& bytes, std::uint16_t tag, Tiff_field field,
                        std::uint32_t number) {
  const auto get = [&](std::size_t at, std::size_t size) {
    std::uint32_t value = 0;
    std::memcpy(&value, bytes.data() + at, size);  // little-endian host and file
    return value;
  };
  const std::uint32_t directory = get(4, 4);
  const std::uint32_t entries = get(directory, 2);
  for (std::uint32_t i = 0; i < entries; ++i) {
    const std::size_t entry = directory + 2 + 12 * std::size_t{i};
    if (get(entry, 2) == tag) {
      const bool is_short = field == Tiff_field::value && get(entry + 2, 2) == TIFF_SHORT;
      std::memcpy(bytes.data() + entry + (field == Tiff_field::count ? 4 : 8), &number,
                  is_short ? 2 : 4);
      return true;
    }
  }
  return false;
}

}  // namespace tool_test
