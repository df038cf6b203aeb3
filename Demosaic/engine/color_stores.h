// Output stores: the one place that knows the output layout. The passes are
// templates over the store, so the layout costs nothing per pixel. Every
// triple is handed over as blue, green, red.
#ifndef OQA_DEMOSAIC_ENGINE_COLOR_STORES_H
#define OQA_DEMOSAIC_ENGINE_COLOR_STORES_H

#include <cstddef>
#include <type_traits>

#include "ostrevan_oqa_demosaic.h"

// Format 0: three planes of pixel_count samples each, blue first.
struct Store_bgr_16_planar_scalar_demosaic_data {
  unsigned short* blue_plane;
  unsigned short* green_plane;
  unsigned short* red_plane;
  std::size_t pixel_index;

  Store_bgr_16_planar_scalar_demosaic_data(unsigned short* output_buffer, std::size_t pixel_count)
      : blue_plane(output_buffer),
        green_plane(output_buffer + pixel_count),
        red_plane(output_buffer + 2 * pixel_count),
        pixel_index(0) {}

  void seek(std::size_t index) { pixel_index = index; }

  void store_pixel(unsigned short blue, unsigned short green, unsigned short red) {
    blue_plane[pixel_index] = blue;
    green_plane[pixel_index] = green;
    red_plane[pixel_index] = red;
    ++pixel_index;
  }

  void skip(std::size_t pixels) { pixel_index += pixels; }
};

// Formats 1 and 2: one triple per pixel, blue first when BlueFirst.
template <bool BlueFirst>
struct Interleaved_scalar {
  unsigned short* base;
  unsigned short* cursor;

  // The pixel count is taken only for a uniform interface: an interleaved
  // store must be positioned with seek() before its first write.
  Interleaved_scalar(unsigned short* output_buffer, std::size_t /*pixel_count*/)
      : base(output_buffer), cursor(nullptr) {}

  void seek(std::size_t index) { cursor = base + 3 * index; }

  void store_pixel(unsigned short blue, unsigned short green, unsigned short red) {
    cursor[0] = BlueFirst ? blue : red;
    cursor[1] = green;
    cursor[2] = BlueFirst ? red : blue;
    cursor += 3;
  }

  void skip(std::size_t pixels) { cursor += 3 * pixels; }
};

// The store that lays out format F.
template <QN_COLOR_FORMAT F>
struct Store_for_format;
template <>
struct Store_for_format<QN_COLOR_FORMAT_BGR_PLANAR> {
  using type = Store_bgr_16_planar_scalar_demosaic_data;
};
template <>
struct Store_for_format<QN_COLOR_FORMAT_BGR_INTERLEAVED> {
  using type = Interleaved_scalar<true>;
};
template <>
struct Store_for_format<QN_COLOR_FORMAT_RGB_INTERLEAVED> {
  using type = Interleaved_scalar<false>;
};
template <QN_COLOR_FORMAT F>
using Store_for_format_t = typename Store_for_format<F>::type;

// Calls visit(std::integral_constant<QN_COLOR_FORMAT, F>{}) for the run-time
// format: the one place where a format value becomes a template argument.
// Returns false, having called nothing, for a value that names no format.
template <typename Visitor>
[[nodiscard]] bool with_color_format(QN_COLOR_FORMAT format, Visitor&& visit) {
  switch (format) {
    case QN_COLOR_FORMAT_BGR_PLANAR:
      visit(std::integral_constant<QN_COLOR_FORMAT, QN_COLOR_FORMAT_BGR_PLANAR>{});
      break;
    case QN_COLOR_FORMAT_BGR_INTERLEAVED:
      visit(std::integral_constant<QN_COLOR_FORMAT, QN_COLOR_FORMAT_BGR_INTERLEAVED>{});
      break;
    case QN_COLOR_FORMAT_RGB_INTERLEAVED:
      visit(std::integral_constant<QN_COLOR_FORMAT, QN_COLOR_FORMAT_RGB_INTERLEAVED>{});
      break;
    default:
      return false;
  }
  return true;
}

#endif  // OQA_DEMOSAIC_ENGINE_COLOR_STORES_H
