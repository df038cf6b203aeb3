#include "tiff_reader.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "image_io_error.h"

namespace oqa_tool {

namespace {

struct Layout {
  std::uint16_t samples_per_pixel = 1;
  std::uint16_t bits_per_sample = 1;
  std::uint16_t sample_format = SAMPLEFORMAT_UINT;
  std::uint16_t photometric = 0;
  bool has_photometric = false;
};

Layout layout_of(TIFF* tiff) {
  Layout layout;
  TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLESPERPIXEL, &layout.samples_per_pixel);
  TIFFGetFieldDefaulted(tiff, TIFFTAG_BITSPERSAMPLE, &layout.bits_per_sample);
  TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLEFORMAT, &layout.sample_format);
  layout.has_photometric = TIFFGetField(tiff, TIFFTAG_PHOTOMETRIC, &layout.photometric) == 1;
  return layout;
}

bool is_dng(TIFF* tiff) {
  void* version = nullptr;
  return TIFFGetField(tiff, TIFFTAG_DNGVERSION, &version) == 1;
}

[[noreturn]] void throw_corrupt(const Memory_tiff& tiff, const char* what) {
  throw Image_io_error(std::string(what) +
                       (tiff.last_error().empty() ? "" : ": " + tiff.last_error()));
}

// Densest coding of 16-bit samples any libtiff codec reaches, with a margin:
// a run of 128 KiB in 4 bytes (zstd); deflate stops at 1032 to 1.
constexpr std::uint64_t max_expansion = 1 << 16;

// Sample bytes the file can hold: uncompressed samples are all stored, and
// compressed ones cannot expand beyond max_expansion.
std::uint64_t most_sample_bytes(TIFF* tiff, std::size_t file_bytes) {
  std::uint16_t compression = COMPRESSION_NONE;
  TIFFGetFieldDefaulted(tiff, TIFFTAG_COMPRESSION, &compression);
  return file_bytes * (compression == COMPRESSION_NONE ? 1 : max_expansion);
}

// Refuses, before anything is allocated, an image the file cannot hold.
void check_fits(TIFF* tiff, std::uint32_t width, std::uint32_t height, std::size_t file_bytes) {
  const std::uint64_t needed = std::uint64_t{2} * width * height;
  if (needed > most_sample_bytes(tiff, file_bytes)) {
    throw Image_io_error("truncated or corrupt TIFF: " + std::to_string(width) + "x" +
                         std::to_string(height) + " samples need " + std::to_string(needed) +
                         " bytes, more than a file of " + std::to_string(file_bytes) +
                         " bytes holds");
  }
}

// A tile may reach past the image by its padding, not by more: each side at
// most the image's rounded up to the tile grain of 16, or 1024 for small images.
bool tile_fits(std::uint32_t tile, std::uint32_t image) {
  return tile <= std::max<std::uint64_t>((std::uint64_t{image} + 15) / 16 * 16, 1024);
}

void read_strips(const Memory_tiff& tiff, Mosaic_image& image) {
  for (int row = 0; row < image.height; ++row) {
    void* destination = image.samples.data() + static_cast<std::size_t>(row) * image.width;
    if (TIFFReadScanline(tiff.get(), destination, static_cast<std::uint32_t>(row), 0) != 1) {
      throw_corrupt(tiff, "truncated or corrupt TIFF data");
    }
  }
}

void read_tiles(const Memory_tiff& tiff, std::size_t file_bytes, Mosaic_image& image) {
  std::uint32_t tile_width = 0;
  std::uint32_t tile_height = 0;
  TIFFGetField(tiff.get(), TIFFTAG_TILEWIDTH, &tile_width);
  TIFFGetField(tiff.get(), TIFFTAG_TILELENGTH, &tile_height);
  const auto width = static_cast<std::uint32_t>(image.width);
  const auto height = static_cast<std::uint32_t>(image.height);
  if (tile_width == 0 || tile_height == 0 || !tile_fits(tile_width, width) ||
      !tile_fits(tile_height, height)) {
    throw Image_io_error("corrupt TIFF tile layout: " + std::to_string(tile_width) + "x" +
                         std::to_string(tile_height) + " tiles for a " + std::to_string(width) +
                         "x" + std::to_string(height) + " image");
  }
  check_fits(tiff.get(), tile_width, tile_height, file_bytes);
  const tmsize_t tile_bytes = TIFFTileSize(tiff.get());
  if (tile_bytes < static_cast<tmsize_t>(tile_width) * tile_height * 2) {
    throw_corrupt(tiff, "corrupt TIFF tile layout");
  }
  std::vector<std::uint16_t> tile(static_cast<std::size_t>(tile_bytes) / 2);
  for (std::uint32_t top = 0; top < height; top += tile_height) {
    for (std::uint32_t left = 0; left < width; left += tile_width) {
      if (TIFFReadTile(tiff.get(), tile.data(), left, top, 0, 0) < 0) {
        throw_corrupt(tiff, "truncated or corrupt TIFF data");
      }
      const std::uint32_t columns = std::min(tile_width, width - left);
      const std::uint32_t rows = std::min(tile_height, height - top);
      for (std::uint32_t row = 0; row < rows; ++row) {
        std::memcpy(image.samples.data() + static_cast<std::size_t>(top + row) * width + left,
                    tile.data() + static_cast<std::size_t>(row) * tile_width, columns * 2);
      }
    }
  }
}

}  // namespace

bool is_single_channel_16_bit(const Memory_tiff& tiff) {
  const Layout layout = layout_of(tiff.get());
  return !is_dng(tiff.get()) && layout.samples_per_pixel == 1 && layout.bits_per_sample == 16;
}

Mosaic_image read_tiff(std::span<const std::uint8_t> bytes) {
  const Memory_tiff tiff(bytes);
  const Layout layout = layout_of(tiff.get());
  if (layout.samples_per_pixel != 1 || layout.bits_per_sample != 16) {
    throw Image_io_error("unsupported TIFF: " + std::to_string(layout.samples_per_pixel) +
                         " sample(s) of " + std::to_string(layout.bits_per_sample) +
                         " bits per pixel, only single-channel 16-bit images are read");
  }
  if (layout.sample_format != SAMPLEFORMAT_UINT) {
    throw Image_io_error("unsupported TIFF: samples are not unsigned integers");
  }
  if (layout.has_photometric && layout.photometric != PHOTOMETRIC_MINISBLACK &&
      layout.photometric != PHOTOMETRIC_MINISWHITE && layout.photometric != PHOTOMETRIC_CFA) {
    throw Image_io_error("unsupported TIFF: photometric interpretation " +
                         std::to_string(layout.photometric) + " is not a grey or mosaic image");
  }
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  TIFFGetField(tiff.get(), TIFFTAG_IMAGEWIDTH, &width);
  TIFFGetField(tiff.get(), TIFFTAG_IMAGELENGTH, &height);
  check_image_size(width, height);
  check_fits(tiff.get(), width, height, bytes.size());

  Mosaic_image image;
  image.width = static_cast<int>(width);
  image.height = static_cast<int>(height);
  image.samples.resize(static_cast<std::size_t>(width) * height);
  if (TIFFIsTiled(tiff.get()) != 0) {
    read_tiles(tiff, bytes.size(), image);
  } else {
    if (TIFFScanlineSize64(tiff.get()) != static_cast<std::uint64_t>(width) * 2) {
      throw_corrupt(tiff, "corrupt TIFF strip layout");
    }
    read_strips(tiff, image);
  }
  return image;
}

}  // namespace oqa_tool
