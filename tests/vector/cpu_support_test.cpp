// The processor check on synthetic identification words: a complete
// processor passes at every level it has, and taking away any one feature
// bit or any one enabled register state declines exactly the levels that
// need it.
#include "cpu_support.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace {

using oqa_vector::Processor_words;
using oqa_vector::Vector_level;

// A processor with everything the AVX-512 kernel needs, state enabled.
Processor_words full_processor() {
  Processor_words words;
  words.max_leaf = 0xD;
  words.leaf_1_ecx = (1U << 0) | (1U << 9) | (1U << 12) | (1U << 19) | (1U << 20) | (1U << 23) |
                     (1U << 27) | (1U << 28) | (1U << 29);
  words.leaf_1_edx = (1U << 25) | (1U << 26);
  words.leaf_7_ebx =
      (1U << 3) | (1U << 5) | (1U << 8) | (1U << 16) | (1U << 17) | (1U << 30) | (1U << 31);
  words.xcr0 = 0xE7;
  return words;
}

bool supports(Vector_level level, Processor_words const& words) {
  return oqa_vector::processor_supports(level, words);
}

TEST(Cpu_support, FullProcessorSupportsEveryLevel) {
  EXPECT_TRUE(supports(Vector_level::sse, full_processor()));
  EXPECT_TRUE(supports(Vector_level::avx2, full_processor()));
  EXPECT_TRUE(supports(Vector_level::avx512, full_processor()));
}

TEST(Cpu_support, NoProcessorWordsSupportsNothing) {
  EXPECT_FALSE(supports(Vector_level::sse, Processor_words{}));
  EXPECT_FALSE(supports(Vector_level::avx2, Processor_words{}));
  EXPECT_FALSE(supports(Vector_level::avx512, Processor_words{}));
}

struct Missing_feature {
  char const* name;
  std::uint32_t Processor_words::*word;
  unsigned bit;
  Vector_level lowest_level_declined;
};

void PrintTo(Missing_feature const& feature, std::ostream* out) { *out << feature.name; }

class Cpu_support_missing : public ::testing::TestWithParam<Missing_feature> {};

TEST_P(Cpu_support_missing, DeclinesTheLevelsThatNeedIt) {
  Processor_words words = full_processor();
  words.*GetParam().word &= ~(std::uint32_t{1} << GetParam().bit);
  for (Vector_level const level : {Vector_level::sse, Vector_level::avx2, Vector_level::avx512}) {
    bool const needed =
        static_cast<int>(level) >= static_cast<int>(GetParam().lowest_level_declined);
    EXPECT_EQ(supports(level, words), !needed) << "level " << static_cast<int>(level);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Features, Cpu_support_missing,
    ::testing::Values(
        Missing_feature{"sse2", &Processor_words::leaf_1_edx, 26, Vector_level::sse},
        Missing_feature{"sse3", &Processor_words::leaf_1_ecx, 0, Vector_level::sse},
        Missing_feature{"ssse3", &Processor_words::leaf_1_ecx, 9, Vector_level::sse},
        Missing_feature{"sse41", &Processor_words::leaf_1_ecx, 19, Vector_level::sse},
        Missing_feature{"sse42", &Processor_words::leaf_1_ecx, 20, Vector_level::sse},
        Missing_feature{"popcnt", &Processor_words::leaf_1_ecx, 23, Vector_level::sse},
        Missing_feature{"fma", &Processor_words::leaf_1_ecx, 12, Vector_level::avx2},
        Missing_feature{"osxsave", &Processor_words::leaf_1_ecx, 27, Vector_level::avx2},
        Missing_feature{"avx", &Processor_words::leaf_1_ecx, 28, Vector_level::avx2},
        Missing_feature{"f16c", &Processor_words::leaf_1_ecx, 29, Vector_level::avx2},
        Missing_feature{"bmi1", &Processor_words::leaf_7_ebx, 3, Vector_level::avx2},
        Missing_feature{"avx2", &Processor_words::leaf_7_ebx, 5, Vector_level::avx2},
        Missing_feature{"bmi2", &Processor_words::leaf_7_ebx, 8, Vector_level::avx2},
        Missing_feature{"avx512f", &Processor_words::leaf_7_ebx, 16, Vector_level::avx512},
        Missing_feature{"avx512dq", &Processor_words::leaf_7_ebx, 17, Vector_level::avx512},
        Missing_feature{"avx512bw", &Processor_words::leaf_7_ebx, 30, Vector_level::avx512},
        Missing_feature{"avx512vl", &Processor_words::leaf_7_ebx, 31, Vector_level::avx512}),
    [](auto const& info) { return std::string(info.param.name); });

// The OS must save the wider registers, or their contents would be lost on
// a context switch; the instruction bits alone are not enough.
TEST(Cpu_support, RegisterStateNotEnabledByTheOs) {
  Processor_words words = full_processor();
  words.xcr0 = 0x7;  // x87, XMM, YMM: no opmask or ZMM state
  EXPECT_TRUE(supports(Vector_level::avx2, words));
  EXPECT_FALSE(supports(Vector_level::avx512, words));
  words.xcr0 = 0xE3;  // ZMM state but no YMM state
  EXPECT_TRUE(supports(Vector_level::sse, words));
  EXPECT_FALSE(supports(Vector_level::avx2, words));
  EXPECT_FALSE(supports(Vector_level::avx512, words));
  words.xcr0 = 0x1;  // not even XMM state
  EXPECT_FALSE(supports(Vector_level::sse, words));
}

TEST(Cpu_support, LeafSevenBeyondTheReportedMaximumIsIgnored) {
  Processor_words words = full_processor();
  words.max_leaf = 6;
  EXPECT_TRUE(supports(Vector_level::sse, words));
  EXPECT_FALSE(supports(Vector_level::avx2, words));
  EXPECT_FALSE(supports(Vector_level::avx512, words));
}

// Pre-XSAVE processors and OSes manage XMM state with FXSAVE.
TEST(Cpu_support, SseWithoutXsave) {
  Processor_words words = full_processor();
  words.leaf_1_ecx &= ~(1U << 27);
  words.xcr0 = 0;
  EXPECT_TRUE(supports(Vector_level::sse, words));
  EXPECT_FALSE(supports(Vector_level::avx2, words));
}

}  // namespace
