// Fuzzer over the FITS decode of oqa-demosaic (cfitsio from memory). It
// drives the decode in this process, not the tool's child process around
// it, so that coverage inside cfitsio guides it.
#include <cstddef>
#include <cstdint>
#include <span>

#include "fits_io.h"
#include "support/reader_check.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t size) {
  std::span<std::uint8_t const> const file(bytes, size);
  (void)oqa_tool::looks_like_fits(file);
  oqa_fuzz::check_reader([&] { return oqa_tool::decode_fits(file); });
  return 0;
}
