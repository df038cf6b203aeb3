#include "cpu_support.h"

#include <cpuid.h>

namespace oqa_vector {
namespace {

constexpr std::uint32_t bit(unsigned index) { return std::uint32_t{1} << index; }

// Leaf 1, ECX.
constexpr std::uint32_t ecx_sse3 = bit(0);
constexpr std::uint32_t ecx_ssse3 = bit(9);
constexpr std::uint32_t ecx_fma = bit(12);
constexpr std::uint32_t ecx_sse41 = bit(19);
constexpr std::uint32_t ecx_sse42 = bit(20);
constexpr std::uint32_t ecx_popcnt = bit(23);
constexpr std::uint32_t ecx_osxsave = bit(27);
constexpr std::uint32_t ecx_avx = bit(28);
constexpr std::uint32_t ecx_f16c = bit(29);
// Leaf 1, EDX.
constexpr std::uint32_t edx_sse = bit(25);
constexpr std::uint32_t edx_sse2 = bit(26);
// Leaf 7, EBX.
constexpr std::uint32_t ebx_bmi1 = bit(3);
constexpr std::uint32_t ebx_avx2 = bit(5);
constexpr std::uint32_t ebx_bmi2 = bit(8);
constexpr std::uint32_t ebx_avx512f = bit(16);
constexpr std::uint32_t ebx_avx512dq = bit(17);
constexpr std::uint32_t ebx_avx512bw = bit(30);
constexpr std::uint32_t ebx_avx512vl = bit(31);
// XCR0: register state the OS saves and restores.
constexpr std::uint64_t xcr0_sse = 1U << 1;
constexpr std::uint64_t xcr0_avx = 1U << 2;
constexpr std::uint64_t xcr0_avx512 =
    (1U << 5) | (1U << 6) | (1U << 7);  // opmask, ZMM0-15 upper, ZMM16-31

// The kernels are compiled with Highway's target flags, so each level needs
// everything in its target string, not only the instruction set it is named
// after (its compiler may emit any of them). POPCNT comes with SSE4.2 in the
// compiler's implied set.
constexpr std::uint32_t sse_ecx = ecx_sse3 | ecx_ssse3 | ecx_sse41 | ecx_sse42 | ecx_popcnt;
constexpr std::uint32_t sse_edx = edx_sse | edx_sse2;
constexpr std::uint32_t avx2_ecx = sse_ecx | ecx_osxsave | ecx_avx | ecx_fma | ecx_f16c;
constexpr std::uint32_t avx2_ebx = ebx_avx2 | ebx_bmi1 | ebx_bmi2;
constexpr std::uint32_t avx512_ebx =
    avx2_ebx | ebx_avx512f | ebx_avx512vl | ebx_avx512dq | ebx_avx512bw;

constexpr bool has_all(std::uint64_t word, std::uint64_t wanted) {
  return (word & wanted) == wanted;
}

bool os_saves(Processor_words const& words, std::uint64_t state) {
  return has_all(words.leaf_1_ecx, ecx_osxsave) && has_all(words.xcr0, state);
}

bool supports_sse(Processor_words const& words) {
  if (words.max_leaf < 1 || !has_all(words.leaf_1_ecx, sse_ecx) ||
      !has_all(words.leaf_1_edx, sse_edx)) {
    return false;
  }
  // Without XSAVE the OS manages XMM state with FXSAVE, which every x86-64
  // OS does; with it, XCR0 says whether the XMM state is enabled.
  return !has_all(words.leaf_1_ecx, ecx_osxsave) || has_all(words.xcr0, xcr0_sse);
}

bool supports_avx2(Processor_words const& words) {
  return supports_sse(words) && words.max_leaf >= 7 && has_all(words.leaf_1_ecx, avx2_ecx) &&
         has_all(words.leaf_7_ebx, avx2_ebx) && os_saves(words, xcr0_sse | xcr0_avx);
}

bool supports_avx512(Processor_words const& words) {
  return supports_avx2(words) && has_all(words.leaf_7_ebx, avx512_ebx) &&
         os_saves(words, xcr0_sse | xcr0_avx | xcr0_avx512);
}

}  // namespace

bool processor_supports(Vector_level level, Processor_words const& words) {
  switch (level) {
    case Vector_level::sse:
      return supports_sse(words);
    case Vector_level::avx2:
      return supports_avx2(words);
    case Vector_level::avx512:
      return supports_avx512(words);
  }
  return false;
}

Processor_words read_processor_words() {
  Processor_words words;
  unsigned eax = 0;
  unsigned ebx = 0;
  unsigned ecx = 0;
  unsigned edx = 0;
  __cpuid(0, eax, ebx, ecx, edx);
  words.max_leaf = eax;
  // Leaf 1 exists on every x86-64 processor; the library's rule reads it
  // without asking leaf 0.
  __cpuid_count(1, 0, eax, ebx, ecx, edx);
  words.leaf_1_ecx = ecx;
  words.leaf_1_edx = edx;
  if (words.max_leaf >= 7) {
    __cpuid_count(7, 0, eax, ebx, ecx, edx);
    words.leaf_7_ebx = ebx;
  }
  if ((words.leaf_1_ecx & ecx_osxsave) != 0) {
    // Encoded as bytes so no XSAVE compiler flag is needed: this file is
    // baseline code and XGETBV runs only where CPUID promised it.
    unsigned xcr0_low = 0;
    unsigned xcr0_high = 0;
    __asm__ volatile(".byte 0x0f, 0x01, 0xd0" : "=a"(xcr0_low), "=d"(xcr0_high) : "c"(0));
    words.xcr0 = (std::uint64_t{xcr0_high} << 32) | xcr0_low;
  }
  return words;
}

}  // namespace oqa_vector
