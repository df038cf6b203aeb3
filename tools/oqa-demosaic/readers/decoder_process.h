// Runs a third-party decoder in a child process of its own, so that a crash,
// a hang or a runaway allocation on one file costs that file only.
#ifndef OQA_TOOLS_DECODER_PROCESS_H
#define OQA_TOOLS_DECODER_PROCESS_H

#include <chrono>
#include <cstdint>
#include <functional>

#include "mosaic_image.h"

namespace oqa_tool {

// Built with a sanitizer: its runtime reserves terabytes of shadow memory, so
// an address-space limit would stop it from starting anything, and its own
// allocator ignores glibc's tuning.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define OQA_TOOL_SANITIZED true
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define OQA_TOOL_SANITIZED true
#endif
#endif
#ifndef OQA_TOOL_SANITIZED
#define OQA_TOOL_SANITIZED false
#endif
inline constexpr bool sanitized_build = OQA_TOOL_SANITIZED;
#undef OQA_TOOL_SANITIZED

struct Decoder_limits {
  std::chrono::milliseconds time;
  // Address space the decoder may add to what the child starts with.
  std::uint64_t memory_bytes = 0;
};

// Lowers this process's soft address-space limit to what it maps now plus
// `extra` bytes; the hard limit stays, and a lower limit already set is
// kept. Does nothing in sanitized builds.
void limit_address_space(std::uint64_t extra);

// Runs `decode` in a forked child that does nothing else, then exits. The
// child's allocations start zeroed, so that a decoder which leaves part of
// its buffer unwritten hands back zeros, never memory inherited from this
// process (another file's samples). Its image comes back through a memory
// file and is checked again here; its Image_io_error comes back as the same
// error. A crash, the time limit or the memory limit throws Image_io_error
// ("the <decoder> crashed on this file", ...).
Mosaic_image run_decoder_process(const char* decoder, const Decoder_limits& limits,
                                 const std::function<Mosaic_image()>& decode);

}  // namespace oqa_tool

#endif  // OQA_TOOLS_DECODER_PROCESS_H
