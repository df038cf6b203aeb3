#include <fcntl.h>
#include <tiffio.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

#include "image_io_error.h"
#include "image_writer.h"
#include "parallel_work.h"

namespace oqa_tool {

namespace {

// Strip bytes before compression: large enough for zlib to find its
// matches and for few strips, small enough to keep every thread busy.
constexpr std::size_t strip_bytes = std::size_t{2} << 20;

// Strips go out as they lie in memory, in the file's (native) byte order.
static_assert(std::endian::native == std::endian::little);

int capture_error(TIFF* /*tiff*/, void* user_data, const char* /*module*/, const char* format,
                  va_list arguments) {
  char text[512];
  std::vsnprintf(text, sizeof text, format, arguments);
  *static_cast<std::string*>(user_data) = text;
  return 1;
}

int ignore_warning(TIFF* /*tiff*/, void* /*user_data*/, const char* /*module*/,
                   const char* /*format*/, va_list /*arguments*/) {
  return 1;
}

class Tiff_output {
 public:
  // On a copy of `descriptor`: TIFFClose closes the one it was given.
  explicit Tiff_output(int descriptor) {
    TIFFOpenOptions* options = TIFFOpenOptionsAlloc();
    if (options == nullptr) {
      throw std::bad_alloc();
    }
    TIFFOpenOptionsSetErrorHandlerExtR(options, &capture_error, &error_);
    TIFFOpenOptionsSetWarningHandlerExtR(options, &ignore_warning, nullptr);
    const int copy = ::fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
    if (copy < 0) {
      error_ = std::strerror(errno);
    } else {
      tiff_ = TIFFFdOpenExt(copy, "output", "w", options);
      if (tiff_ == nullptr) {
        ::close(copy);
      }
    }
    TIFFOpenOptionsFree(options);
    if (tiff_ == nullptr) {
      fail();
    }
  }
  Tiff_output(const Tiff_output&) = delete;
  Tiff_output& operator=(const Tiff_output&) = delete;
  ~Tiff_output() {
    if (tiff_ != nullptr) {
      TIFFClose(tiff_);
    }
  }

  TIFF* get() const { return tiff_; }

  [[noreturn]] void fail() const {
    throw Image_io_error("cannot write TIFF output" + (error_.empty() ? "" : ": " + error_));
  }
  void check(bool done) const {
    if (!done) {
      fail();
    }
  }

  // TIFFClose writes the directory; a failure there must still be reported.
  void close() {
    const bool flushed = TIFFFlush(tiff_) == 1;
    TIFFClose(tiff_);
    tiff_ = nullptr;
    check(flushed);
  }

 private:
  std::string error_;
  TIFF* tiff_ = nullptr;
};

// Whether the EXIF directory has anything to hold: libtiff cannot write an
// empty one.
bool has_exif(const Colour_image& image) {
  const std::optional<Shot_metadata>& shot = image.notes.shot;
  return image.srgb || (shot && (shot->date_time[0] != '\0' || shot->exposure_seconds > 0 ||
                                 shot->f_number > 0 || shot->iso > 0 || shot->focal_length_mm > 0));
}

// Make, model and time in the image's directory, which is where readers
// look for them first.
void describe_camera(TIFF* tiff, const Colour_image& image) {
  TIFFSetField(tiff, TIFFTAG_SOFTWARE, "oqa-demosaic");
  if (!image.notes.shot) {
    return;
  }
  const Shot_metadata& shot = *image.notes.shot;
  for (const auto& [tag, text] :
       {std::pair{TIFFTAG_MAKE, shot.make}, std::pair{TIFFTAG_MODEL, shot.model},
        std::pair{TIFFTAG_DATETIME, shot.date_time}}) {
    if (text[0] != '\0') {
      TIFFSetField(tiff, tag, text);
    }
  }
}

// The EXIF directory goes after the image's: libtiff writes it on its own,
// then the image's directory is written again pointing to it.
void write_exif(const Tiff_output& output, const Colour_image& image) {
  TIFF* tiff = output.get();
  std::uint64_t exif_offset = 0;
  output.check(TIFFWriteDirectory(tiff) == 1 && TIFFCreateEXIFDirectory(tiff) == 0);
  if (image.srgb) {
    TIFFSetField(tiff, EXIFTAG_COLORSPACE, 1);  // sRGB
  }
  if (image.notes.shot) {
    const Shot_metadata& shot = *image.notes.shot;
    for (const auto& [tag, value] : {std::pair{EXIFTAG_EXPOSURETIME, shot.exposure_seconds},
                                     std::pair{EXIFTAG_FNUMBER, shot.f_number},
                                     std::pair{EXIFTAG_FOCALLENGTH, shot.focal_length_mm}}) {
      if (value > 0) {
        TIFFSetField(tiff, tag, static_cast<double>(value));
      }
    }
    if (shot.iso > 0) {
      const auto iso = static_cast<std::uint16_t>(std::min(shot.iso, 65535.0F));
      TIFFSetField(tiff, EXIFTAG_ISOSPEEDRATINGS, 1, &iso);
    }
    if (shot.date_time[0] != '\0') {
      TIFFSetField(tiff, EXIFTAG_DATETIMEORIGINAL, shot.date_time);
    }
  }
  output.check(TIFFWriteCustomDirectory(tiff, &exif_offset) == 1 && TIFFSetDirectory(tiff, 0) == 1);
  TIFFSetField(tiff, TIFFTAG_EXIFIFD, exif_offset);
  output.check(TIFFWriteDirectory(tiff) == 1);
}

// One strip as the file stores it: the samples at their depth, with the
// horizontal predictor and deflate when compressed.
class Strip_encoder {
 public:
  Strip_encoder(const Colour_image& image, Deflate_setting deflate, std::uint32_t rows_per_strip)
      : image_(image), deflate_(deflate), rows_per_strip_(rows_per_strip) {}

  std::span<const std::uint8_t> operator()(std::size_t strip, Bytes& output, Bytes& work) const {
    const std::size_t row_samples = static_cast<std::size_t>(image_.width) * 3;
    const std::size_t first = strip * rows_per_strip_;
    const std::size_t rows =
        std::min<std::size_t>(rows_per_strip_, static_cast<std::size_t>(image_.height) - first);
    const std::uint16_t* samples = image_.samples.data() + first * row_samples;
    const std::size_t count = rows * row_samples;
    const bool wide = image_.bits > 8;
    if (wide && deflate_.level == 0) {
      return {reinterpret_cast<const std::uint8_t*>(samples), count * 2};
    }
    Bytes& stored = deflate_.level == 0 ? output : work;
    stored.resize(count * (wide ? 2 : 1));
    if (wide) {
      auto* predicted = reinterpret_cast<std::uint16_t*>(stored.data());
      std::copy(samples, samples + count, predicted);
      predict(predicted, rows, row_samples);
    } else {
      std::copy(samples, samples + count, stored.data());  // the samples run from 0 to 255
      if (deflate_.level > 0) {
        predict(stored.data(), rows, row_samples);
      }
    }
    return deflate_.level == 0 ? std::span<const std::uint8_t>(stored) : deflate(stored, output);
  }

 private:
  // Each sample minus its left neighbour's, modulo the sample size.
  template <class Sample>
  static void predict(Sample* samples, std::size_t rows, std::size_t row_samples) {
    for (std::size_t row = 0; row < rows; ++row) {
      Sample* line = samples + row * row_samples;
      for (std::size_t i = row_samples - 1; i >= 3; --i) {
        line[i] = static_cast<Sample>(line[i] - line[i - 3]);
      }
    }
  }

  std::span<const std::uint8_t> deflate(const Bytes& data, Bytes& output) const {
    z_stream stream{};
    if (deflateInit2(&stream, deflate_.level, Z_DEFLATED, 15, 8, deflate_.strategy) != Z_OK) {
      throw std::bad_alloc();  // zlib fails only for want of memory here
    }
    output.resize(deflateBound(&stream, data.size()));
    stream.next_in = const_cast<Bytef*>(data.data());  // zlib only reads it
    stream.avail_in = static_cast<uInt>(data.size());
    stream.next_out = output.data();
    stream.avail_out = static_cast<uInt>(output.size());
    const int result = ::deflate(&stream, Z_FINISH);
    const std::size_t length = output.size() - stream.avail_out;
    deflateEnd(&stream);
    if (result != Z_STREAM_END) {
      throw std::bad_alloc();  // the buffer holds the bound; only memory can fail
    }
    return {output.data(), length};
  }

  const Colour_image& image_;
  Deflate_setting deflate_;
  std::uint32_t rows_per_strip_;
};

}  // namespace

void write_tiff(int descriptor, const Colour_image& image, const Compression_choice& compression,
                unsigned threads) {
  Tiff_output output(descriptor);
  TIFF* tiff = output.get();
  const int level = compression.tiff.level;
  const std::size_t row_bytes =
      static_cast<std::size_t>(image.width) * 3 * (image.bits > 8 ? 2 : 1);
  const auto height = static_cast<std::uint32_t>(image.height);
  const auto rows_per_strip =
      static_cast<std::uint32_t>(std::clamp<std::size_t>(strip_bytes / row_bytes, 1, height));
  TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(image.width));
  TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, height);
  TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 3);
  TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, image.bits > 8 ? 16 : 8);
  TIFFSetField(tiff, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT);
  TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
  TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(tiff, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
  TIFFSetField(tiff, TIFFTAG_COMPRESSION, level > 0 ? COMPRESSION_ADOBE_DEFLATE : COMPRESSION_NONE);
  if (level > 0) {
    TIFFSetField(tiff, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
  }
  TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, rows_per_strip);
  describe_camera(tiff, image);
  if (has_exif(image)) {
    TIFFSetField(tiff, TIFFTAG_EXIFIFD,
                 std::uint64_t{0});  // set once the EXIF directory is written
  }
  const std::size_t strips = (height + rows_per_strip - 1) / rows_per_strip;
  encode_in_order(strips, threads, Strip_encoder(image, compression.tiff, rows_per_strip),
                  [&](std::size_t strip, std::span<const std::uint8_t> bytes) {
                    // libtiff only reads the strip; its interface lacks the const.
                    void* data = const_cast<std::uint8_t*>(bytes.data());
                    output.check(TIFFWriteRawStrip(tiff, static_cast<std::uint32_t>(strip), data,
                                                   static_cast<tmsize_t>(bytes.size())) >= 0);
                  });
  if (has_exif(image)) {
    write_exif(output, image);
  }
  output.close();
}

}  // namespace oqa_tool
