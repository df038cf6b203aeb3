#include <fcntl.h>
#include <tiffio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

#include "image_io_error.h"
#include "image_writer.h"

namespace oqa_tool {

namespace {

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

  // TIFFClose writes the directory; a failure there must still be reported.
  void close() {
    const bool flushed = TIFFFlush(tiff_) == 1;
    TIFFClose(tiff_);
    tiff_ = nullptr;
    if (!flushed) {
      fail();
    }
  }

 private:
  std::string error_;
  TIFF* tiff_ = nullptr;
};

}  // namespace

void write_tiff(int descriptor, const Colour_image& image) {
  Tiff_output output(descriptor);
  TIFF* tiff = output.get();
  const auto width = static_cast<std::uint32_t>(image.width);
  TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, width);
  TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, static_cast<std::uint32_t>(image.height));
  TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 3);
  TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 16);
  TIFFSetField(tiff, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT);
  TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
  TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(tiff, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
  TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE);
  // Differences between neighbours compress far better than the samples.
  TIFFSetField(tiff, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
  TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(tiff, 0));
  TIFFSetField(tiff, TIFFTAG_SOFTWARE, "oqa-demosaic");

  // TIFFWriteScanline may modify the row (the predictor works in place).
  const std::size_t row_samples = static_cast<std::size_t>(width) * 3;
  std::vector<std::uint16_t> row(row_samples);
  for (int y = 0; y < image.height; ++y) {
    const std::uint16_t* source = image.samples.data() + y * row_samples;
    row.assign(source, source + row_samples);
    if (TIFFWriteScanline(tiff, row.data(), static_cast<std::uint32_t>(y), 0) != 1) {
      output.fail();
    }
  }
  output.close();
}

}  // namespace oqa_tool
