// Fuzzer over the TIFF reader of oqa-demosaic (libtiff decoding from memory).
#include <cstddef>
#include <cstdint>
#include <span>

#include "support/reader_check.h"
#include "tiff_reader.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t size) {
  oqa_fuzz::check_reader(
      [&] { return oqa_tool::read_tiff(std::span<std::uint8_t const>(bytes, size)); });
  return 0;
}
