#include "camera_raw_data.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <ctime>
#include <optional>
#include <vector>

#include "image_io_error.h"
#include "tiff_memory.h"

namespace oqa_tool {

namespace {

// LibRaw's colour numbers: 0 red, 1 green, 2 blue, 3 the second green.
int channel_of(int libraw_colour) { return libraw_colour == 3 ? 1 : libraw_colour; }

// The mean black level of each channel's sites over one period of the
// Bayer cell and LibRaw's black pattern together.
std::array<float, 3> channel_blacks(LibRaw& raw) {
  const libraw_colordata_t& colour = raw.imgdata.color;
  const unsigned pattern_rows = std::max(colour.cblack[4], 1U);
  const unsigned pattern_columns = std::max(colour.cblack[5], 1U);
  const bool usable = pattern_rows * pattern_columns <= LIBRAW_CBLACK_SIZE - 6;
  const int rows = usable ? 2 * static_cast<int>(pattern_rows) : 2;
  const int columns = usable ? 2 * static_cast<int>(pattern_columns) : 2;
  std::array<double, 3> sum{};
  std::array<int, 3> count{};
  for (int row = 0; row < rows; ++row) {
    for (int column = 0; column < columns; ++column) {
      const int libraw_colour = raw.COLOR(row, column);
      const int channel = channel_of(libraw_colour);
      if (channel >= 0 && channel < 3) {
        sum[channel] += black_level(colour, libraw_colour, row, column);
        ++count[channel];
      }
    }
  }
  std::array<float, 3> black{};
  for (std::size_t channel = 0; channel < 3; ++channel) {
    black[channel] = count[channel] > 0 ? static_cast<float>(sum[channel] / count[channel]) : 0;
  }
  return black;
}

// DNG's DefaultCrop in raw sensor coordinates, from the full-resolution
// raw image's directory (IFD0 or one of its sub-IFDs).
std::optional<Crop> dng_default_crop(std::span<const std::uint8_t> bytes,
                                     const libraw_image_sizes_t& sizes) {
  if (!looks_like_tiff(bytes)) {
    return std::nullopt;
  }
  try {
    const Memory_tiff file(bytes);
    TIFF* tiff = file.get();
    void* version = nullptr;
    if (TIFFGetField(tiff, TIFFTAG_DNGVERSION, &version) != 1) {
      return std::nullopt;
    }
    const auto crop_here = [&]() -> std::optional<Crop> {
      std::uint32_t kind = 0;
      std::uint32_t width = 0;
      std::uint32_t height = 0;
      float* origin = nullptr;
      float* size = nullptr;
      std::uint32_t* active = nullptr;
      TIFFGetFieldDefaulted(tiff, TIFFTAG_SUBFILETYPE, &kind);
      TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &width);
      TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &height);
      if (kind != 0 || width != sizes.raw_width || height != sizes.raw_height ||
          TIFFGetField(tiff, TIFFTAG_DEFAULTCROPORIGIN, &origin) != 1 ||
          TIFFGetField(tiff, TIFFTAG_DEFAULTCROPSIZE, &size) != 1) {
        return std::nullopt;
      }
      const bool has_active = TIFFGetField(tiff, TIFFTAG_ACTIVEAREA, &active) == 1;
      const auto whole = [](float value) {
        return std::isfinite(value) ? static_cast<int>(std::clamp(value, 0.0F, 65535.0F)) : 0;
      };
      // The origin counts from the active area's top-left.
      return Crop{whole(origin[0]) + static_cast<int>(has_active ? std::min(active[1], 65535U) : 0),
                  whole(origin[1]) + static_cast<int>(has_active ? std::min(active[0], 65535U) : 0),
                  whole(std::round(size[0])), whole(std::round(size[1]))};
    };
    if (std::optional<Crop> crop = crop_here()) {
      return crop;
    }
    std::uint16_t count = 0;
    toff_t* offsets = nullptr;
    if (TIFFGetField(tiff, TIFFTAG_SUBIFD, &count, &offsets) == 1) {
      const std::vector<toff_t> subdirectories(offsets,
                                               offsets + std::min<std::uint16_t>(count, 16));
      for (const toff_t offset : subdirectories) {
        if (TIFFSetSubDirectory(tiff, offset) == 1) {
          if (std::optional<Crop> crop = crop_here()) {
            return crop;
          }
        }
      }
    }
  } catch (const Image_io_error&) {
    // LibRaw read the file; a directory libtiff cannot read just has no crop.
  }
  return std::nullopt;
}

}  // namespace

unsigned black_level(const libraw_colordata_t& colour, int libraw_colour, int row, int column) {
  unsigned black = colour.black;
  if (libraw_colour >= 0 && libraw_colour < 4) {
    black += colour.cblack[libraw_colour];
  }
  const unsigned rows = colour.cblack[4];
  const unsigned columns = colour.cblack[5];
  if (rows > 0 && columns > 0 && 6 + rows * columns <= LIBRAW_CBLACK_SIZE) {
    black += colour.cblack[6 + (static_cast<unsigned>(row) % rows) * columns +
                           static_cast<unsigned>(column) % columns];
  }
  return black;
}

Camera_data camera_data_of(LibRaw& raw, std::span<const std::uint8_t> bytes) {
  const libraw_colordata_t& colour = raw.imgdata.color;
  const libraw_image_sizes_t& sizes = raw.imgdata.sizes;
  Camera_data camera;
  camera.black = channel_blacks(raw);
  camera.white = static_cast<float>(colour.maximum);
  for (std::size_t channel = 0; channel < 3; ++channel) {
    camera.as_shot[channel] = colour.cam_mul[channel];
    camera.daylight[channel] = colour.pre_mul[channel];
    for (std::size_t input = 0; input < 3; ++input) {
      camera.camera_to_srgb[channel][input] = colour.rgb_cam[channel][input];
    }
  }
  camera.flip = sizes.flip;
  if (const std::optional<Crop> crop = dng_default_crop(bytes, sizes)) {
    camera.crop = {crop->left - sizes.left_margin, crop->top - sizes.top_margin, crop->width,
                   crop->height};
  } else if (const libraw_raw_inset_crop_t& inset = sizes.raw_inset_crop;
             inset.cwidth > 0 && inset.cheight > 0 && inset.cleft != 0xFFFF &&
             inset.ctop != 0xFFFF) {
    // LibRaw's own inset crop lies in the visible area.
    camera.crop = {inset.cleft, inset.ctop, inset.cwidth, inset.cheight};
  }
  return camera;
}

Shot_metadata shot_metadata_of(const LibRaw& raw) {
  const libraw_iparams_t& identity = raw.imgdata.idata;
  const libraw_imgother_t& other = raw.imgdata.other;
  Shot_metadata shot;
  std::memcpy(shot.make, identity.make, strnlen(identity.make, sizeof shot.make - 1));
  std::memcpy(shot.model, identity.model, strnlen(identity.model, sizeof shot.model - 1));
  // LibRaw made the time stamp from the camera's local time with mktime.
  std::tm local{};
  const std::time_t stamp = other.timestamp;
  if (stamp > 0 && ::localtime_r(&stamp, &local) != nullptr &&
      std::strftime(shot.date_time, sizeof shot.date_time, "%Y:%m:%d %H:%M:%S", &local) == 0) {
    shot.date_time[0] = '\0';  // a year beyond four digits
  }
  shot.exposure_seconds = other.shutter;
  shot.f_number = other.aperture;
  shot.iso = other.iso_speed;
  shot.focal_length_mm = other.focal_len;
  make_safe(shot);
  return shot;
}

}  // namespace oqa_tool
