#include <fitsio.h>

#include <cstdlib>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "fits_io.h"
#include "image_io_error.h"
#include "image_writer.h"
#include "stdio_file.h"

namespace oqa_tool {

namespace {

// cfitsio writes into memory, which it grows with realloc; it cannot write
// through a descriptor.
struct Memory_file {
  void* bytes = nullptr;
  std::size_t size = 0;
  Memory_file() = default;
  Memory_file(const Memory_file&) = delete;
  Memory_file& operator=(const Memory_file&) = delete;
  ~Memory_file() { std::free(bytes); }
};

class Fits_output {
 public:
  explicit Fits_output(Memory_file& memory) : memory_(memory) {
    if (fits_create_memfile(&fits_, &memory.bytes, &memory.size, 1 << 20, std::realloc, &status_) !=
        0) {
      fail();
    }
  }
  Fits_output(const Fits_output&) = delete;
  Fits_output& operator=(const Fits_output&) = delete;
  ~Fits_output() {
    if (fits_ != nullptr) {
      int ignored = 0;
      fits_close_file(fits_, &ignored);
    }
  }

  fitsfile* get() const { return fits_; }
  int* status() { return &status_; }

  void check() const {
    if (status_ != 0) {
      fail();
    }
  }
  [[noreturn]] void fail() const {
    char text[FLEN_STATUS] = {};
    fits_get_errstatus(status_, text);
    throw Image_io_error(std::string("cannot write FITS output: ") + text);
  }

  // Closes the file and returns its length in memory.
  std::size_t close() {
    LONGLONG header_start = 0;
    LONGLONG data_start = 0;
    LONGLONG data_end = 0;
    fits_get_hduaddrll(fits_, &header_start, &data_start, &data_end, &status_);
    fits_close_file(fits_, &status_);
    fits_ = nullptr;
    check();
    if (data_end < 0 || static_cast<std::uint64_t>(data_end) > memory_.size) {
      throw Image_io_error("cannot write FITS output: the file is not where cfitsio put it");
    }
    return static_cast<std::size_t>(data_end);
  }

 private:
  Memory_file& memory_;
  fitsfile* fits_ = nullptr;
  int status_ = 0;
};

std::string keyword_of(const Header_card& card) {
  const std::string text(card.data(), 8);
  return text.substr(0, text.find_last_not_of(' ') + 1);
}

// The input's own cards, each taken as it is where cfitsio accepts it.
std::set<std::string> carry_cards(fitsfile* fits, const std::vector<Header_card>& cards) {
  std::set<std::string> keywords;
  for (const Header_card& card : cards) {
    const std::string text(card.data(), card.size());
    int status = 0;
    if (fits_write_record(fits, text.c_str(), &status) == 0) {
      keywords.insert(keyword_of(card));
    } else {
      fits_clear_errmsg();
    }
  }
  return keywords;
}

// The shot, in the cards astronomy software reads, unless the input
// already has them.
void describe_shot(fitsfile* fits, const Shot_metadata& shot, const std::set<std::string>& taken,
                   int* status) {
  const auto text = [&](const char* keyword, const std::string& value, const char* comment) {
    if (!value.empty() && !taken.contains(keyword)) {
      fits_update_key_str(fits, keyword, value.c_str(), comment, status);
    }
  };
  const auto number = [&](const char* keyword, float value, const char* comment) {
    if (value > 0 && !taken.contains(keyword)) {
      fits_update_key_dbl(fits, keyword, value, -6, comment, status);
    }
  };
  std::string camera = shot.make;
  if (!camera.empty() && shot.model[0] != '\0') {
    camera += ' ';
  }
  camera += shot.model;
  text("INSTRUME", camera, "camera");
  std::string date = shot.date_time;
  if (date.size() == 19) {  // "YYYY:MM:DD HH:MM:SS" to "YYYY-MM-DDTHH:MM:SS"
    date[4] = '-';
    date[7] = '-';
    date[10] = 'T';
  }
  text("DATE-OBS", date, "camera's local time of the shot");
  number("EXPTIME", shot.exposure_seconds, "[s] exposure time");
  number("ISOSPEED", shot.iso, "ISO speed");
  number("FOCALLEN", shot.focal_length_mm, "[mm] focal length");
  number("FOCRATIO", shot.f_number, "f-number");
}

}  // namespace

void write_fits(int descriptor, const Colour_image& image) {
  Memory_file memory;
  std::size_t length = 0;
  {
    const std::unique_lock lock = lock_cfitsio();
    Fits_output output(memory);
    fitsfile* fits = output.get();
    const bool wide = image.bits > 8;
    long sizes[3] = {image.width, image.height, 3};
    fits_create_img(fits, wide ? USHORT_IMG : BYTE_IMG, 3, sizes, output.status());
    output.check();
    const std::set<std::string> taken = carry_cards(fits, image.notes.fits_cards);
    fits_update_key_str(fits, "ROWORDER", "TOP-DOWN", "first row is the top of the picture",
                        output.status());
    fits_write_comment(fits, "Planes 1, 2, 3: red, green, blue, demosaiced by oqa-demosaic",
                       output.status());
    if (image.notes.shot) {
      describe_shot(fits, *image.notes.shot, taken, output.status());
    }
    output.check();
    // One plane of rows at a time out of the interleaved samples.
    const std::size_t row = static_cast<std::size_t>(image.width);
    const std::size_t plane = row * static_cast<std::size_t>(image.height);
    std::vector<std::uint16_t> values(row);
    for (std::size_t channel = 0; channel < 3; ++channel) {
      for (int y = 0; y < image.height && *output.status() == 0; ++y) {
        const std::uint16_t* source = image.samples.data() + 3 * row * static_cast<std::size_t>(y);
        for (std::size_t x = 0; x < row; ++x) {
          values[x] = source[3 * x + channel];
        }
        const std::size_t first = channel * plane + static_cast<std::size_t>(y) * row + 1;
        fits_write_img(fits, TUSHORT, static_cast<LONGLONG>(first), static_cast<LONGLONG>(row),
                       values.data(), output.status());
      }
    }
    output.check();
    length = output.close();
  }
  Stdio_file file(descriptor);
  file.write(memory.bytes, length);
  file.close();
}

}  // namespace oqa_tool
