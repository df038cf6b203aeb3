#include "dng_file.h"

#include <tiffio.h>

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

}  // namespace tool_test
