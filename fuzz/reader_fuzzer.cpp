// Fuzzer over one file reader of oqa-demosaic, the one OQA_FUZZ_READER names
// (pgm, tiff, headerless, camera_raw or fits). Whatever the bytes, a reader
// hands back a well-formed mosaic or throws Image_io_error: no other
// exception, no crash. Camera raw (LibRaw) and FITS (cfitsio) are decoded in
// this process, not in the tool's child process around them, so that
// coverage inside the decoders guides the fuzzer: a crash inside LibRaw is
// one the tool survives, a crash in the tool's own code is a fault.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <span>
#include <string_view>

#include "camera_raw_reader.h"
#include "fits_io.h"
#include "headerless_reader.h"
#include "image_io_error.h"
#include "pgm_reader.h"
#include "tiff_reader.h"

namespace {

[[noreturn]] void reader_failed(char const* what) {
  std::fprintf(stderr, "FAILED: %s\n", what);
  std::abort();
}

// Runs `read` and checks its result; Image_io_error is the one accepted refusal.
template <typename Read>
void check_reader(Read&& read) {
  try {
    oqa_tool::Mosaic_image const image = read();
    auto const pixels = static_cast<std::int64_t>(image.width) * image.height;
    if (image.width < 2 || image.height < 2) reader_failed("image smaller than 2x2");
    if (pixels > oqa_tool::max_image_pixels) reader_failed("image above the size limit");
    if (static_cast<std::int64_t>(image.samples.size()) != pixels) {
      reader_failed("sample count differs from width x height");
    }
    if (image.phase && (*image.phase < 0 || *image.phase > 3)) reader_failed("invalid phase");
  } catch (oqa_tool::Image_io_error const&) {
  } catch (std::exception const& error) {
    std::fprintf(stderr, "unexpected exception: %s\n", error.what());
    reader_failed("a reader threw something other than Image_io_error");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t size) {
  std::string_view const reader = OQA_FUZZ_READER;
  std::span<std::uint8_t const> const file(bytes, size);
  if (reader == "pgm") {
    (void)oqa_tool::looks_like_pgm(file);
    check_reader([&] { return oqa_tool::read_pgm(file); });
  } else if (reader == "tiff") {
    check_reader([&] { return oqa_tool::read_tiff(file); });
  } else if (reader == "fits") {
    (void)oqa_tool::looks_like_fits(file);
    check_reader([&] { return oqa_tool::decode_fits(file); });
  } else if (reader == "camera_raw" && size > 0) {
    // The first byte chooses black and white level normalisation.
    oqa_tool::Camera_raw_options options;
    options.normalize = (bytes[0] & 1) != 0;
    check_reader([&] { return oqa_tool::decode_camera_raw(file.subspan(1), options); });
  } else if (reader == "headerless") {
    // The bytes up to a newline are the --raw size text, the rest is the file.
    auto const newline = std::find(file.begin(), file.end(), std::uint8_t{'\n'});
    std::string_view const size_text(reinterpret_cast<char const*>(bytes), newline - file.begin());
    auto const frame = oqa_tool::parse_frame_size(size_text);
    if (!frame) return 0;
    if (frame->width <= 0 || frame->height <= 0) reader_failed("parsed a non-positive size");
    auto const rest = file.subspan(std::min<std::size_t>(newline - file.begin() + 1, size));
    check_reader([&] { return oqa_tool::read_headerless(rest, *frame); });
  }
  return 0;
}
