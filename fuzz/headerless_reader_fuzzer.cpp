// Fuzzer over the headerless (raw samples) reader of oqa-demosaic: the first
// bytes, up to a newline, are the --raw size text, the rest is the file.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "headerless_reader.h"
#include "support/reader_check.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t size) {
  std::uint8_t const* const end = bytes + size;
  std::uint8_t const* const newline = std::find(bytes, end, std::uint8_t{'\n'});
  std::string_view const size_text(reinterpret_cast<char const*>(bytes),
                                   static_cast<std::size_t>(newline - bytes));
  auto const frame = oqa_tool::parse_frame_size(size_text);
  if (!frame) return 0;
  if (frame->width <= 0 || frame->height <= 0)
    oqa_fuzz::reader_failed("parsed a non-positive size");
  std::span<std::uint8_t const> const file(newline == end ? end : newline + 1, end);
  oqa_fuzz::check_reader([&] { return oqa_tool::read_headerless(file, *frame); });
  return 0;
}
