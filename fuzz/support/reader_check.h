// What every file reader must do with any bytes: hand back a well-formed
// mosaic or throw Image_io_error; no other exception, no crash.
#ifndef OQA_FUZZ_SUPPORT_READER_CHECK_H
#define OQA_FUZZ_SUPPORT_READER_CHECK_H

#include <cstdio>
#include <cstdlib>
#include <exception>

#include "image_io_error.h"
#include "mosaic_image.h"

namespace oqa_fuzz {

[[noreturn]] inline void reader_failed(char const* what) {
  std::fprintf(stderr, "FAILED: %s\n", what);
  std::abort();
}

inline void check_mosaic(oqa_tool::Mosaic_image const& image) {
  if (image.width < 2 || image.height < 2) reader_failed("image smaller than 2x2");
  auto const pixels = static_cast<std::int64_t>(image.width) * image.height;
  if (pixels > oqa_tool::max_image_pixels) reader_failed("image above the size limit");
  if (static_cast<std::int64_t>(image.samples.size()) != pixels) {
    reader_failed("sample count differs from width x height");
  }
  if (image.phase && (*image.phase < 0 || *image.phase > 3)) reader_failed("invalid phase");
}

// Runs `read` and checks its result; Image_io_error is the one accepted refusal.
template <typename Read>
void check_reader(Read&& read) {
  try {
    check_mosaic(read());
  } catch (oqa_tool::Image_io_error const&) {
  } catch (std::exception const& error) {
    std::fprintf(stderr, "unexpected exception: %s\n", error.what());
    reader_failed("a reader threw something other than Image_io_error");
  }
}

}  // namespace oqa_fuzz

#endif  // OQA_FUZZ_SUPPORT_READER_CHECK_H
