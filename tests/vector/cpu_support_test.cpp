// The processor check on synthetic identification words: a complete
// processor passes at every level, and taking away any one feature bit, any
// register state the OS saves or leaf 7 declines exactly the levels that
// need it.
#include "cpu_support.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace {

using oqa_vector::Processor_words;

constexpr std::uint32_t bit(unsigned index) { return std::uint32_t{1} << index; }

// The feature bits each level adds to the one below: SSE, SSE2 (leaf 1 EDX),
// SSE3, SSSE3, SSE4.1, SSE4.2, POPCNT (leaf 1 ECX); FMA, OSXSAVE, AVX, F16C,
// then BMI1, AVX2, BMI2 (leaf 7 EBX); AVX512F, DQ, BW and VL.
struct Needed_bits {
  std::uint32_t Processor_words::*word;
  std::uint32_t bits;
  int level;
};
constexpr Needed_bits needed[] = {
    {&Processor_words::leaf_1_edx, bit(25) | bit(26), 1},
    {&Processor_words::leaf_1_ecx, bit(0) | bit(9) | bit(19) | bit(20) | bit(23), 1},
    {&Processor_words::leaf_1_ecx, bit(12) | bit(27) | bit(28) | bit(29), 2},
    {&Processor_words::leaf_7_ebx, bit(3) | bit(5) | bit(8), 2},
    {&Processor_words::leaf_7_ebx, bit(16) | bit(17) | bit(30) | bit(31), 3},
};

Processor_words full_processor() {
  Processor_words words;
  words.max_leaf = 0xD;
  words.xcr0 = 0xE7;  // x87, XMM, YMM, opmask and both halves of the ZMM state
  for (auto const& n : needed) words.*n.word |= n.bits;
  return words;
}

// The words pass the check for every level up to `highest` and for no other.
void expect_levels_up_to(int highest, Processor_words const& words, char const* what) {
  for (int level = 1; level <= 3; ++level) {
    EXPECT_EQ(oqa_vector::processor_supports(static_cast<oqa_vector::Vector_level>(level), words),
              level <= highest)
        << what << ", level " << level;
  }
}

// Beyond the feature bits, the OS must save the wider registers, or a
// context switch would lose their contents; without XSAVE it keeps the XMM
// state with FXSAVE. Leaf 7 counts only when leaf 0 reports it.
TEST(Cpu_support, EachMissingFeatureOrStateDeclinesTheLevelsThatNeedIt) {
  expect_levels_up_to(3, full_processor(), "everything");
  expect_levels_up_to(0, Processor_words{}, "no words");
  for (auto const& n : needed) {
    for (unsigned index = 0; index < 32; ++index) {
      if ((n.bits & bit(index)) == 0) continue;
      Processor_words words = full_processor();
      words.*n.word &= ~bit(index);
      std::string const what = "needed[" + std::to_string(&n - needed) + "], bit ";
      expect_levels_up_to(n.level - 1, words, (what + std::to_string(index)).c_str());
    }
  }
  struct Variant {
    char const* what;
    std::uint64_t xcr0;
    bool osxsave;
    std::uint32_t max_leaf;
    int highest;
  } const variants[] = {{"no opmask or ZMM state", 0x7, true, 0xD, 2},
                        {"ZMM but no YMM state", 0xE3, true, 0xD, 1},
                        {"no XMM state", 0x1, true, 0xD, 0},
                        {"no XSAVE", 0, false, 0xD, 1},
                        {"leaf 7 not reported", 0xE7, true, 6, 1}};
  for (auto const& v : variants) {
    Processor_words words = full_processor();
    words.xcr0 = v.xcr0;
    if (!v.osxsave) words.leaf_1_ecx &= ~bit(27);
    words.max_leaf = v.max_leaf;
    expect_levels_up_to(v.highest, words, v.what);
  }
}

}  // namespace
