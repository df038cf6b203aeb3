// Fuzzer over the camera raw decode of oqa-demosaic (LibRaw from memory),
// with and without black and white level normalisation. It drives the decode
// in this process, not the tool's child process around it, so that coverage
// inside LibRaw guides it; a crash found inside LibRaw is one the tool
// survives, a crash in the tool's own code is a fault.
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
  oqa_fuzz::check_reader([&] { return oqa_tool::decode_camera_raw(file, options); });
  return 0;
}
