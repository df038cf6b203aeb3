#include <fitsio.h>
#include <pthread.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "bayer_pattern.h"
#include "decoder_process.h"
#include "fits_io.h"
#include "image_io_error.h"
#include "library_session.h"

namespace oqa_tool {

namespace {

std::mutex cfitsio_mutex;

// Registered before main, so that every fork waits for cfitsio to be free.
[[maybe_unused]] const int fork_guard = ::pthread_atfork(
    [] { cfitsio_mutex.lock(); }, [] { cfitsio_mutex.unlock(); }, [] { cfitsio_mutex.unlock(); });

// The header and the decoder's working room beside a file's own bytes.
constexpr std::uint64_t decoder_base_memory = std::uint64_t{256} << 20;
constexpr std::chrono::minutes decoder_time_limit{2};

// Cards that describe the stored layout, which the output sets itself.
constexpr std::array<std::string_view, 17> layout_keywords{
    "SIMPLE",   "BITPIX",   "NAXIS",    "EXTEND",   "BZERO",    "BSCALE",
    "BLANK",    "PCOUNT",   "GCOUNT",   "END",      "BAYERPAT", "COLORTYP",
    "XBAYROFF", "YBAYROFF", "ROWORDER", "CHECKSUM", "DATASUM"};

std::string status_text(int status) {
  char text[FLEN_STATUS] = {};
  fits_get_errstatus(status, text);
  return text;
}

struct Fits_closer {
  void operator()(fitsfile* fits) const {
    int status = 0;
    fits_close_file(fits, &status);
  }
};
using Fits_file = std::unique_ptr<fitsfile, Fits_closer>;

// Reads keyword values from the raw card text. cfitsio's typed readers are
// not used: their error path overflows a message buffer on a long malformed
// value, which aborts the process.
class Header {
 public:
  explicit Header(fitsfile* fits) : fits_(fits) {}

  // The keyword's text, or nothing when absent; throws when it is no text.
  std::optional<std::string> text(const char* keyword) const {
    const std::optional<std::string> value = raw(keyword);
    if (!value) {
      return std::nullopt;
    }
    if (value->size() < 2 || value->front() != '\'') {
      refuse(keyword);
    }
    std::string unquoted;
    for (std::size_t index = 1; index < value->size(); ++index) {
      const char character = (*value)[index];
      if (character != '\'') {
        unquoted += character;
      } else if (index + 1 < value->size() && (*value)[index + 1] == '\'') {
        unquoted += '\'';  // a doubled quote stands for one
        ++index;
      } else if (index + 1 == value->size()) {
        return trimmed(printable(unquoted, 68));
      } else {
        refuse(keyword);
      }
    }
    refuse(keyword);
  }

  // The keyword's integer, or `absent`; throws when it is no integer.
  long long integer(const char* keyword, long long absent) const {
    const std::optional<std::string> value = raw(keyword);
    if (!value) {
      return absent;
    }
    long long number = 0;
    parse(keyword, *value, number);
    return number;
  }

  double number(const char* keyword, double absent) const {
    std::optional<std::string> value = raw(keyword);
    if (!value) {
      return absent;
    }
    std::replace_if(
        value->begin(), value->end(), [](char c) { return c == 'D' || c == 'd'; }, 'E');
    double number = 0;
    parse(keyword, *value, number);
    return number;
  }

 private:
  // The value as the card holds it, quotes kept, spaces around it removed.
  std::optional<std::string> raw(const char* keyword) const {
    char value[FLEN_VALUE] = {};
    int status = 0;
    fits_read_keyword(fits_, keyword, value, nullptr, &status);
    if (status == KEY_NO_EXIST) {
      return std::nullopt;
    }
    if (status != 0) {
      refuse(keyword, " (" + status_text(status) + ")");
    }
    return trimmed(std::string(value, strnlen(value, sizeof value)));
  }

  template <typename Number>
  static void parse(const char* keyword, std::string_view text, Number& number) {
    if (text.starts_with('+')) {
      text.remove_prefix(1);
    }
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (text.empty() || error != std::errc{} || stop != end) {
      refuse(keyword);
    }
  }

  static std::string trimmed(std::string text) {
    text.erase(0, text.find_first_not_of(' '));
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
  }

  [[noreturn]] static void refuse(const char* keyword, const std::string& detail = {}) {
    throw Image_io_error(std::string("unsupported FITS: ") + keyword + " has no usable value" +
                         detail);
  }

  fitsfile* fits_;
};

// The phase at pixel (0, 0) of a mosaic whose colour at (x, y) is
// pattern[(y + y_offset) mod 2][(x + x_offset) mod 2].
QN_COLOR_FILTER_ARRAY_PHASE shifted(QN_COLOR_FILTER_ARRAY_PHASE pattern, long long x_offset,
                                    long long y_offset) {
  const int x = static_cast<int>(x_offset & 1);
  const int y = static_cast<int>(y_offset & 1);
  return *phase_of_cell({colour_at(pattern, y, x), colour_at(pattern, y, x + 1),
                         colour_at(pattern, y + 1, x), colour_at(pattern, y + 1, x + 1)});
}

std::optional<QN_COLOR_FILTER_ARRAY_PHASE> pattern_of(const Header& header) {
  // Checked even without a pattern: a file that says something wrong is refused.
  const long long x_offset = header.integer("XBAYROFF", 0);
  const long long y_offset = header.integer("YBAYROFF", 0);
  std::optional<std::string> name = header.text("BAYERPAT");
  const char* keyword = "BAYERPAT";
  if (!name) {
    name = header.text("COLORTYP");
    keyword = "COLORTYP";
  }
  if (!name) {
    return std::nullopt;
  }
  const std::optional<QN_COLOR_FILTER_ARRAY_PHASE> pattern = oqa_session::parse_pattern(*name);
  if (!pattern) {
    throw Image_io_error(std::string("unsupported FITS: ") + keyword + " '" + *name +
                         "' is not RGGB, BGGR, GRBG or GBRG");
  }
  return shifted(*pattern, x_offset, y_offset);
}

bool bottom_up(const Header& header) {
  const std::optional<std::string> order = header.text("ROWORDER");
  if (order && *order != "TOP-DOWN" && *order != "BOTTOM-UP") {
    throw Image_io_error("unsupported FITS: ROWORDER '" + *order +
                         "' is neither TOP-DOWN nor BOTTOM-UP");
  }
  return order == "BOTTOM-UP";
}

std::vector<Header_card> carried_cards(fitsfile* fits) {
  int count = 0;
  int status = 0;
  fits_get_hdrspace(fits, &count, nullptr, &status);
  std::vector<Header_card> cards;
  for (int index = 1; status == 0 && index <= count && cards.size() < max_fits_cards; ++index) {
    char record[FLEN_CARD] = {};
    if (fits_read_record(fits, index, record, &status) != 0) {
      break;
    }
    const std::string_view text(record, strnlen(record, 80));
    const std::string_view keyword =
        text.substr(0, std::min<std::size_t>(text.find_first_of(" ="), 8));
    const bool layout =
        std::any_of(layout_keywords.begin(), layout_keywords.end(), [&](std::string_view name) {
          return keyword == name ||
                 (name == "NAXIS" && keyword.starts_with("NAXIS") && keyword.size() > 5);
        });
    if (!layout && !keyword.empty()) {
      Header_card card;
      card.fill(' ');
      std::copy(text.begin(), text.end(), card.begin());
      make_safe(card);
      cards.push_back(card);
    }
  }
  return cards;
}

}  // namespace

bool looks_like_fits(std::span<const std::uint8_t> bytes) {
  constexpr std::string_view start = "SIMPLE  =";
  return bytes.size() >= start.size() && std::equal(start.begin(), start.end(), bytes.begin());
}

std::unique_lock<std::mutex> lock_cfitsio() { return std::unique_lock(cfitsio_mutex); }

Mosaic_image decode_fits(std::span<const std::uint8_t> bytes) {
  const std::unique_lock lock = lock_cfitsio();
  // cfitsio reads whole 2880-byte records, past the end of a file whose
  // last record is short, so it gets a copy padded to whole records. The
  // size checks below still use the file's own length.
  constexpr std::size_t record = 2880;
  std::vector<std::uint8_t> padded((bytes.size() + record - 1) / record * record, 0);
  std::copy(bytes.begin(), bytes.end(), padded.begin());
  void* memory = padded.data();
  std::size_t size = padded.size();
  fitsfile* opened = nullptr;
  int status = 0;
  if (fits_open_memfile(&opened, "input", READONLY, &memory, &size, 0, nullptr, &status) != 0) {
    throw Image_io_error("corrupt FITS file: " + status_text(status));
  }
  const Fits_file fits(opened);
  int bitpix = 0;
  int axes = 0;
  LONGLONG sizes[3] = {};
  LONGLONG header_start = 0;
  LONGLONG data_start = 0;
  LONGLONG data_end = 0;
  if (fits_get_img_paramll(opened, 3, &bitpix, &axes, sizes, &status) != 0 ||
      fits_get_hduaddrll(opened, &header_start, &data_start, &data_end, &status) != 0) {
    throw Image_io_error("corrupt FITS file: " + status_text(status));
  }
  if (axes != 2) {
    throw Image_io_error("unsupported FITS: " + std::to_string(axes) +
                         " axes, only 2-D images (one mosaic plane) are read");
  }
  const Header header(opened);
  const double scale = header.number("BSCALE", 1);
  const double zero = header.number("BZERO", 0);
  if (bitpix != SHORT_IMG || scale != 1 || (zero != 0 && zero != 32768)) {
    throw Image_io_error("unsupported FITS: BITPIX " + std::to_string(bitpix) +
                         ", only 16-bit integer samples (BZERO 0 or 32768, BSCALE 1) are read");
  }
  check_image_size(sizes[0], sizes[1]);
  const auto width = static_cast<int>(sizes[0]);
  const auto height = static_cast<int>(sizes[1]);
  const std::uint64_t pixels = static_cast<std::uint64_t>(width) * height;
  if (static_cast<std::uint64_t>(data_start) + 2 * pixels > bytes.size()) {
    throw Image_io_error(
        "truncated FITS file: " + std::to_string(width) + "x" + std::to_string(height) +
        " samples need " + std::to_string(2 * pixels) + " bytes after the header, the file has " +
        std::to_string(bytes.size() - std::min<std::uint64_t>(data_start, bytes.size())));
  }
  // The header's claims (PCOUNT, GCOUNT and the axes) set where cfitsio
  // thinks the data ends; it reads up to there, so that must lie in the file.
  if (static_cast<std::uint64_t>(data_end) > padded.size()) {
    throw Image_io_error("truncated FITS file: the header describes " + std::to_string(data_end) +
                         " bytes, the file has " + std::to_string(bytes.size()));
  }
  Mosaic_image image;
  image.width = width;
  image.height = height;
  image.phase = pattern_of(header);
  const bool reversed = bottom_up(header);
  image.notes.fits_cards = carried_cards(opened);
  image.samples.resize(pixels);
  unsigned short blank = 0;
  int any_blank = 0;
  if (fits_read_img(opened, TUSHORT, 1, static_cast<LONGLONG>(pixels), &blank, image.samples.data(),
                    &any_blank, &status) != 0) {
    throw Image_io_error(status == NUM_OVERFLOW
                             ? "unsupported FITS: signed samples below zero"
                             : "truncated or corrupt FITS data: " + status_text(status));
  }
  if (reversed) {
    for (int top = 0, bottom = height - 1; top < bottom; ++top, --bottom) {
      std::swap_ranges(image.samples.begin() + static_cast<std::ptrdiff_t>(top) * width,
                       image.samples.begin() + static_cast<std::ptrdiff_t>(top + 1) * width,
                       image.samples.begin() + static_cast<std::ptrdiff_t>(bottom) * width);
    }
  }
  return image;
}

Mosaic_image read_fits(std::span<const std::uint8_t> bytes) {
  const Decoder_limits limits{decoder_time_limit, decoder_base_memory + 3 * bytes.size()};
  return run_decoder_process("FITS decoder", limits, [&] { return decode_fits(bytes); });
}

}  // namespace oqa_tool
