#include "modules/instruction_set_level.h"

#include <cstdint>

namespace {
constexpr bool bit(std::uint32_t word, unsigned index) { return ((word >> index) & 1U) != 0; }

constexpr unsigned leaf_7_ebx_avx2 = 5;
constexpr unsigned leaf_7_ebx_avx512f = 16;
constexpr unsigned leaf_7_ebx_avx512dq = 17;
constexpr unsigned leaf_7_ebx_avx512bw = 30;
constexpr unsigned leaf_1_ecx_fma = 12;
constexpr unsigned leaf_1_ecx_sse41 = 19;
constexpr unsigned leaf_1_edx_sse = 25;
constexpr unsigned leaf_1_edx_sse2 = 26;
}  // namespace

Instruction_set_level choose_instruction_set_level(oqa_vector::Processor_words const& words,
                                                   Module_usability const& modules) {
  // Leaf 0's EAX is compared as a signed value.
  auto const max_leaf = static_cast<std::int32_t>(words.max_leaf);
  if (max_leaf >= 7 && bit(words.leaf_7_ebx, leaf_7_ebx_avx512f) &&
      bit(words.leaf_7_ebx, leaf_7_ebx_avx512dq) && bit(words.leaf_7_ebx, leaf_7_ebx_avx512bw) &&
      modules.avx512) {
    return instruction_set_avx512;
  }
  bool const fma = max_leaf >= 1 && bit(words.leaf_1_ecx, leaf_1_ecx_fma);
  bool const avx2 = max_leaf >= 7 && bit(words.leaf_7_ebx, leaf_7_ebx_avx2);
  if (avx2 && fma && modules.avx2) {
    return instruction_set_avx2;
  }
  if (bit(words.leaf_1_edx, leaf_1_edx_sse) && bit(words.leaf_1_edx, leaf_1_edx_sse2) &&
      bit(words.leaf_1_ecx, leaf_1_ecx_sse41) && modules.sse) {
    return instruction_set_sse;
  }
  return instruction_set_scalar;
}
