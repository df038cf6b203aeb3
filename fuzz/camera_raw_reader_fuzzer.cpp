// Fuzzer over the camera raw reader of oqa-demosaic (LibRaw from memory),
// with and without black and white level normalisation.
#include <cstddef>
#include <cstdint>
#include <span>

#include "camera_raw_reader.h"
#include "support/reader_check.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t size) {
  if (size == 0) return 0;
  oqa_tool::Camera_raw_options options;
  options.normalize = (bytes[0] & 1) != 0;
  std::span<std::uint8_t const> const file(bytes + 1, size - 1);
  oqa_fuzz::check_reader([&] { return oqa_tool::read_camera_raw(file, options); });
  return 0;
}
