// PNG written here rather than through libpng, whose one zlib stream keeps
// a single core busy: the stream is cut into bands of rows, each band
// deflated on its own thread and ended on a byte boundary with a full
// flush, so that the bands join into one valid stream (the way pigz works).
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string>
#include <vector>

#include "image_io_error.h"
#include "image_writer.h"
#include "parallel_work.h"
#include "stdio_file.h"

namespace oqa_tool {

namespace {

// Filtered bytes per band: big enough that zlib loses little at the cuts.
constexpr std::size_t band_bytes = std::size_t{1} << 20;

enum Filter : std::uint8_t { none = 0, sub = 1, up = 2, average = 3, paeth = 4 };

void put_u32(std::string& bytes, std::uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8) {
    bytes += static_cast<char>((value >> shift) & 0xFF);
  }
}

// A chunk: length, type, data, CRC of type and data.
void write_chunk(Stdio_file& file, const char* type, std::span<const std::uint8_t> data) {
  std::string head;
  put_u32(head, static_cast<std::uint32_t>(data.size()));
  head.append(type, 4);
  uLong crc = crc32(0, reinterpret_cast<const Bytef*>(type), 4);
  crc = crc32_z(crc, data.data(), data.size());
  std::string tail;
  put_u32(tail, static_cast<std::uint32_t>(crc));
  file.write(head.data(), head.size());
  file.write(data.data(), data.size());
  file.write(tail.data(), tail.size());
}

void write_chunk(Stdio_file& file, const char* type, const std::string& data) {
  write_chunk(file, type, {reinterpret_cast<const std::uint8_t*>(data.data()), data.size()});
}

std::uint8_t paeth_predictor(int left, int above, int above_left) {
  const int estimate = left + above - above_left;
  const int to_left = std::abs(estimate - left);
  const int to_above = std::abs(estimate - above);
  const int to_above_left = std::abs(estimate - above_left);
  if (to_left <= to_above && to_left <= to_above_left) {
    return static_cast<std::uint8_t>(left);
  }
  return static_cast<std::uint8_t>(to_above <= to_above_left ? above : above_left);
}

// Writes `row` filtered by `filter` after its filter byte; `above` is the
// previous row, zeros for the first.
template <Filter filter>
void filter_row_as(const std::uint8_t* row, const std::uint8_t* above, std::size_t size,
                   std::size_t pixel_bytes, std::uint8_t* out) {
  *out++ = filter;
  for (std::size_t i = 0; i < size; ++i) {
    const int left = i >= pixel_bytes ? row[i - pixel_bytes] : 0;
    int prediction = 0;
    if constexpr (filter == sub) {
      prediction = left;
    } else if constexpr (filter == up) {
      prediction = above[i];
    } else if constexpr (filter == average) {
      prediction = (left + above[i]) / 2;
    } else if constexpr (filter == paeth) {
      prediction = paeth_predictor(left, above[i], i >= pixel_bytes ? above[i - pixel_bytes] : 0);
    }
    out[i] = static_cast<std::uint8_t>(row[i] - prediction);
  }
}

void filter_row(Filter filter, const std::uint8_t* row, const std::uint8_t* above, std::size_t size,
                std::size_t pixel_bytes, std::uint8_t* out) {
  switch (filter) {
    case none:
      filter_row_as<none>(row, above, size, pixel_bytes, out);
      return;
    case sub:
      filter_row_as<sub>(row, above, size, pixel_bytes, out);
      return;
    case up:
      filter_row_as<up>(row, above, size, pixel_bytes, out);
      return;
    case average:
      filter_row_as<average>(row, above, size, pixel_bytes, out);
      return;
    case paeth:
      filter_row_as<paeth>(row, above, size, pixel_bytes, out);
      return;
  }
}

// The filter whose bytes, read as signed, sum smallest in magnitude.
Filter best_filter(const std::uint8_t* row, const std::uint8_t* above, std::size_t size,
                   std::size_t pixel_bytes, std::vector<std::uint8_t>& trial) {
  Filter best = none;
  std::uint64_t best_sum = UINT64_MAX;
  trial.resize(size + 1);
  for (const Filter filter : {none, sub, up, average, paeth}) {
    filter_row(filter, row, above, size, pixel_bytes, trial.data());
    std::uint64_t sum = 0;
    for (std::size_t i = 1; i <= size; ++i) {
      sum += static_cast<std::uint64_t>(
          std::abs(static_cast<int>(static_cast<std::int8_t>(trial[i]))));
    }
    if (sum < best_sum) {
      best_sum = sum;
      best = filter;
    }
  }
  return best;
}

class Band_encoder {
 public:
  Band_encoder(const Colour_image& image, const Compression_choice& choice, int rows_per_band,
               std::vector<uLong>& checksums)
      : image_(image),
        choice_(choice),
        rows_per_band_(rows_per_band),
        sample_bytes_(image.bits > 8 ? 2 : 1),
        row_bytes_(static_cast<std::size_t>(image.width) * 3 * sample_bytes_),
        checksums_(checksums) {}

  std::span<const std::uint8_t> operator()(std::size_t band, Bytes& output, Bytes& filtered) const {
    const int first = static_cast<int>(band) * rows_per_band_;
    const int end = std::min(first + rows_per_band_, image_.height);
    std::vector<std::uint8_t> above(row_bytes_, 0);
    std::vector<std::uint8_t> row(row_bytes_);
    std::vector<std::uint8_t> trial;
    if (first > 0) {
      stored_row(first - 1, above.data());
    }
    filtered.resize((row_bytes_ + 1) * static_cast<std::size_t>(end - first));
    std::uint8_t* out = filtered.data();
    const Filter plain = choice_.png.level > 0 ? sub : none;
    for (int y = first; y < end; ++y, out += row_bytes_ + 1) {
      stored_row(y, row.data());
      const Filter filter =
          choice_.adaptive_png_filter
              ? best_filter(row.data(), above.data(), row_bytes_, pixel_bytes(), trial)
              : plain;
      filter_row(filter, row.data(), above.data(), row_bytes_, pixel_bytes(), out);
      row.swap(above);
    }
    checksums_[band] = adler32_z(1, filtered.data(), filtered.size());
    return deflate_band(filtered, end == image_.height, output);
  }

 private:
  std::size_t pixel_bytes() const { return 3 * sample_bytes_; }

  // Big-endian samples, as PNG stores them.
  void stored_row(int y, std::uint8_t* out) const {
    const std::size_t samples = static_cast<std::size_t>(image_.width) * 3;
    const std::uint16_t* row = image_.samples.data() + static_cast<std::size_t>(y) * samples;
    for (std::size_t i = 0; i < samples; ++i) {
      if (sample_bytes_ == 2) {
        out[2 * i] = static_cast<std::uint8_t>(row[i] >> 8);
        out[2 * i + 1] = static_cast<std::uint8_t>(row[i]);
      } else {
        out[i] = static_cast<std::uint8_t>(row[i]);
      }
    }
  }

  // Raw deflate, ended with a full flush (the last band: finished).
  std::span<const std::uint8_t> deflate_band(const Bytes& filtered, bool last,
                                             Bytes& output) const {
    z_stream stream{};
    if (deflateInit2(&stream, choice_.png.level, Z_DEFLATED, -15, 8, choice_.png.strategy) !=
        Z_OK) {
      throw std::bad_alloc();
    }
    output.resize(deflateBound(&stream, filtered.size()) + 16);
    stream.next_in = const_cast<Bytef*>(filtered.data());  // zlib only reads it
    stream.avail_in = static_cast<uInt>(filtered.size());
    stream.next_out = output.data();
    stream.avail_out = static_cast<uInt>(output.size());
    const int result = ::deflate(&stream, last ? Z_FINISH : Z_FULL_FLUSH);
    const std::size_t length = output.size() - stream.avail_out;
    deflateEnd(&stream);
    if (result != (last ? Z_STREAM_END : Z_OK) || stream.avail_in != 0 || stream.avail_out == 0) {
      throw std::bad_alloc();  // the buffer holds the bound; only memory can fail
    }
    return {output.data(), length};
  }

  const Colour_image& image_;
  const Compression_choice& choice_;
  int rows_per_band_;
  std::size_t sample_bytes_;
  std::size_t row_bytes_;
  std::vector<uLong>& checksums_;
};

std::string text_chunk(const char* keyword, const std::string& text) {
  return std::string(keyword) + '\0' + text;
}

std::string number_text(float value) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", static_cast<double>(value));
  return text;
}

}  // namespace

void write_png(int descriptor, const Colour_image& image, const Compression_choice& choice,
               unsigned threads) {
  Stdio_file file(descriptor);
  static constexpr std::uint8_t signature[] = {137, 80, 78, 71, 13, 10, 26, 10};
  file.write(signature, sizeof signature);
  std::string header;
  put_u32(header, static_cast<std::uint32_t>(image.width));
  put_u32(header, static_cast<std::uint32_t>(image.height));
  header += {static_cast<char>(image.bits > 8 ? 16 : 8), 2, 0, 0, 0};  // RGB, no interlace
  write_chunk(file, "IHDR", header);
  if (image.srgb) {
    write_chunk(file, "sRGB", std::string(1, '\0'));  // perceptual intent
  }
  if (image.notes.shot) {
    const Shot_metadata& shot = *image.notes.shot;
    for (const auto& [keyword, text] :
         {std::pair{"Make", shot.make}, std::pair{"Model", shot.model},
          std::pair{"Creation Time", shot.date_time}}) {
      if (text[0] != '\0') {
        write_chunk(file, "tEXt", text_chunk(keyword, text));
      }
    }
    for (const auto& [keyword, value] :
         {std::pair{"ExposureTime", shot.exposure_seconds}, std::pair{"FNumber", shot.f_number},
          std::pair{"ISOSpeedRatings", shot.iso}, std::pair{"FocalLength", shot.focal_length_mm}}) {
      if (value > 0) {
        write_chunk(file, "tEXt", text_chunk(keyword, number_text(value)));
      }
    }
  }
  write_chunk(file, "tEXt", text_chunk("Software", "oqa-demosaic"));

  const std::size_t row_bytes =
      static_cast<std::size_t>(image.width) * 3 * (image.bits > 8 ? 2 : 1);
  const int rows_per_band =
      static_cast<int>(std::clamp<std::size_t>(band_bytes / (row_bytes + 1), 1, image.height));
  const std::size_t bands = (image.height + rows_per_band - 1) / rows_per_band;
  std::vector<uLong> checksums(bands);
  uLong checksum = 1;
  // The zlib header: deflate with a 32 KiB window, no dictionary.
  write_chunk(file, "IDAT", std::string{0x78, 0x01});
  encode_in_order(bands, threads, Band_encoder(image, choice, rows_per_band, checksums),
                  [&](std::size_t band, std::span<const std::uint8_t> bytes) {
                    const std::size_t rows =
                        std::min<std::size_t>(rows_per_band, image.height - band * rows_per_band);
                    checksum = adler32_combine(checksum, checksums[band],
                                               static_cast<z_off_t>(rows * (row_bytes + 1)));
                    write_chunk(file, "IDAT", bytes);
                  });
  std::string trailer;
  put_u32(trailer, static_cast<std::uint32_t>(checksum));
  write_chunk(file, "IDAT", trailer);
  write_chunk(file, "IEND", std::string());
  file.close();
}

}  // namespace oqa_tool
