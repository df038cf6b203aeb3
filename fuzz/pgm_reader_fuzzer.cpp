// Fuzzer over the PGM reader of oqa-demosaic.
#include <cstddef>
#include <cstdint>
#include <span>

#include "pgm_reader.h"
#include "support/reader_check.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t size) {
  std::span<std::uint8_t const> const file(bytes, size);
  (void)oqa_tool::looks_like_pgm(file);
  oqa_fuzz::check_reader([&] { return oqa_tool::read_pgm(file); });
  return 0;
}
