#include "demo_chart.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <string_view>

#include "bayer_pattern.h"

namespace oqa_tool {

namespace {

struct Rgb {
  double red;
  double green;
  double blue;
};

struct Rect {
  int left;
  int top;
  int width;
  int height;
};

// 5x7 glyphs, one byte per row, bit 4 leftmost.
struct Glyph {
  char character;
  std::array<std::uint8_t, 7> rows;
};

constexpr std::array<Glyph, 26> font{{
    {'0', {0x0E, 0x11, 0x13, 0x15, 0x19, 0x11, 0x0E}},
    {'1', {0x04, 0x0C, 0x04, 0x04, 0x04, 0x04, 0x0E}},
    {'2', {0x0E, 0x11, 0x01, 0x02, 0x04, 0x08, 0x1F}},
    {'3', {0x1F, 0x02, 0x04, 0x02, 0x01, 0x11, 0x0E}},
    {'4', {0x02, 0x06, 0x0A, 0x12, 0x1F, 0x02, 0x02}},
    {'5', {0x1F, 0x10, 0x1E, 0x01, 0x01, 0x11, 0x0E}},
    {'6', {0x06, 0x08, 0x10, 0x1E, 0x11, 0x11, 0x0E}},
    {'7', {0x1F, 0x01, 0x02, 0x04, 0x08, 0x08, 0x08}},
    {'8', {0x0E, 0x11, 0x11, 0x0E, 0x11, 0x11, 0x0E}},
    {'9', {0x0E, 0x11, 0x11, 0x0F, 0x01, 0x02, 0x0C}},
    {'A', {0x0E, 0x11, 0x11, 0x1F, 0x11, 0x11, 0x11}},
    {'B', {0x1E, 0x11, 0x11, 0x1E, 0x11, 0x11, 0x1E}},
    {'C', {0x0E, 0x11, 0x10, 0x10, 0x10, 0x11, 0x0E}},
    {'D', {0x1C, 0x12, 0x11, 0x11, 0x11, 0x12, 0x1C}},
    {'E', {0x1F, 0x10, 0x10, 0x1E, 0x10, 0x10, 0x1F}},
    {'G', {0x0E, 0x11, 0x10, 0x17, 0x11, 0x11, 0x0F}},
    {'I', {0x0E, 0x04, 0x04, 0x04, 0x04, 0x04, 0x0E}},
    {'M', {0x11, 0x1B, 0x15, 0x15, 0x11, 0x11, 0x11}},
    {'N', {0x11, 0x11, 0x19, 0x15, 0x13, 0x11, 0x11}},
    {'O', {0x0E, 0x11, 0x11, 0x11, 0x11, 0x11, 0x0E}},
    {'Q', {0x0E, 0x11, 0x11, 0x11, 0x15, 0x12, 0x0D}},
    {'R', {0x1E, 0x11, 0x11, 0x1E, 0x14, 0x12, 0x11}},
    {'S', {0x0F, 0x10, 0x10, 0x0E, 0x01, 0x01, 0x1E}},
    {'T', {0x1F, 0x04, 0x04, 0x04, 0x04, 0x04, 0x04}},
    {'V', {0x11, 0x11, 0x11, 0x11, 0x11, 0x0A, 0x04}},
    {' ', {0, 0, 0, 0, 0, 0, 0}},
}};

class Canvas {
 public:
  explicit Canvas(Colour_image& image) : image_(image) {}

  void set(int x, int y, Rgb colour) {
    if (x < 0 || y < 0 || x >= image_.width || y >= image_.height) {
      return;
    }
    std::uint16_t* pixel =
        image_.samples.data() + 3 * (static_cast<std::size_t>(y) * image_.width + x);
    pixel[0] = to_sample(colour.red);
    pixel[1] = to_sample(colour.green);
    pixel[2] = to_sample(colour.blue);
  }

  // Calls shade(u, v) with u, v in [0, 1) across the rectangle.
  template <typename Shade>
  void fill(Rect area, Shade shade) {
    for (int y = 0; y < area.height; ++y) {
      for (int x = 0; x < area.width; ++x) {
        set(area.left + x, area.top + y,
            shade(static_cast<double>(x) / area.width, static_cast<double>(y) / area.height));
      }
    }
  }

  void text(int left, int top, int scale, std::string_view line, const Rgb& ink) {
    for (const char character : line) {
      const auto glyph = std::find_if(font.begin(), font.end(),
                                      [&](const Glyph& g) { return g.character == character; });
      if (glyph != font.end()) {
        for (int row = 0; row < 7 * scale; ++row) {
          for (int column = 0; column < 5 * scale; ++column) {
            if ((glyph->rows[static_cast<std::size_t>(row / scale)] >> (4 - column / scale) & 1) !=
                0) {
              set(left + column, top + row, ink);
            }
          }
        }
      }
      left += 6 * scale;
    }
  }

 private:
  static std::uint16_t to_sample(double value) {
    return static_cast<std::uint16_t>(std::lround(std::clamp(value, 0.0, 1.0) * 65535.0));
  }

  Colour_image& image_;
};

Rgb hue(double turn) {
  const auto channel = [turn](double offset) {
    const double distance = std::abs(std::fmod(turn * 6.0 + offset, 6.0) - 3.0);
    return std::clamp(distance - 1.0, 0.0, 1.0);
  };
  return {channel(0.0), channel(4.0), channel(2.0)};
}

void colour_bars(Canvas& canvas, Rect area) {
  constexpr std::array<Rgb, 8> bars{
      {{1, 1, 1}, {1, 1, 0}, {0, 1, 1}, {0, 1, 0}, {1, 0, 1}, {1, 0, 0}, {0, 0, 1}, {0, 0, 0}}};
  canvas.fill(area, [&](double u, double /*v*/) {
    return bars[std::min<std::size_t>(static_cast<std::size_t>(u * bars.size()), bars.size() - 1)];
  });
}

// Hue across, from full colour at the top through to a grey ramp below.
void gradients(Canvas& canvas, Rect area) {
  canvas.fill(area, [](double u, double v) {
    const Rgb colour = hue(u);
    const double saturation = std::clamp(1.0 - v * 1.25, 0.0, 1.0);
    return Rgb{u + (colour.red - u) * saturation, u + (colour.green - u) * saturation,
               u + (colour.blue - u) * saturation};
  });
}

// Circular chirp reaching half a cycle per pixel at the inscribed circle's edge.
void zone_plate(Canvas& canvas, Rect area) {
  const double radius = std::max(1, std::min(area.width, area.height) / 2);
  canvas.fill(area, [&](double u, double v) {
    const double x = u * area.width - area.width / 2.0;
    const double y = v * area.height - area.height / 2.0;
    const double level = 0.5 + 0.5 * std::cos(std::numbers::pi * (x * x + y * y) / (2.0 * radius));
    return Rgb{level, level, level};
  });
}

// Text at three sizes, one-pixel lines and a checkerboard: detail at the
// scale of the Bayer cell.
void fine_detail(Canvas& canvas, Rect area) {
  canvas.fill(area, [](double /*u*/, double /*v*/) { return Rgb{0.95, 0.95, 0.92}; });
  constexpr std::array<Rgb, 4> inks{{{0, 0, 0}, {0.8, 0, 0}, {0, 0.5, 0}, {0, 0, 0.8}}};
  int top = area.top + 4;
  for (int scale = 1; scale <= 3; ++scale) {
    for (std::size_t line = 0; line < inks.size() && top + 7 * scale < area.top + area.height;
         ++line) {
      canvas.text(area.left + 4, top, scale, "OSTREVAN QA DEMOSAIC 0123456789 RGGB BGGR GRBG GBRG",
                  inks[line]);
      top += 9 * scale;
    }
  }
  for (int y = top; y < area.top + area.height; ++y) {
    for (int x = area.left; x < area.left + area.width; ++x) {
      const int column = x - area.left;
      const bool dark = column < area.width / 3       ? (column & 1) == 0
                        : column < 2 * area.width / 3 ? (y & 1) == 0
                                                      : ((column ^ y) & 1) == 0;
      canvas.set(x, y, dark ? Rgb{0.05, 0.05, 0.05} : Rgb{0.95, 0.95, 0.95});
    }
  }
}

}  // namespace

Colour_image make_demo_chart(int width, int height) {
  Colour_image chart;
  chart.width = width;
  chart.height = height;
  chart.format = QN_COLOR_FORMAT_RGB_INTERLEAVED;
  chart.samples.assign(static_cast<std::size_t>(width) * height * 3, 0);
  Canvas canvas(chart);
  const int band = height / 4;
  const int half = width / 2;
  colour_bars(canvas, {0, 0, width, band});
  gradients(canvas, {0, band, width, band});
  zone_plate(canvas, {0, 2 * band, half, height - 2 * band});
  fine_detail(canvas, {half, 2 * band, width - half, height - 2 * band});
  return chart;
}

Mosaic_image mosaic_of(const Colour_image& chart, QN_COLOR_FILTER_ARRAY_PHASE phase) {
  Mosaic_image mosaic;
  mosaic.width = chart.width;
  mosaic.height = chart.height;
  mosaic.phase = phase;
  mosaic.samples.resize(static_cast<std::size_t>(chart.width) * chart.height);
  for (int y = 0; y < chart.height; ++y) {
    for (int x = 0; x < chart.width; ++x) {
      const std::size_t pixel = static_cast<std::size_t>(y) * chart.width + x;
      const auto channel = static_cast<std::size_t>(colour_at(phase, y, x));  // R, G, B order
      mosaic.samples[pixel] = chart.samples[3 * pixel + channel];
    }
  }
  return mosaic;
}

}  // namespace oqa_tool
