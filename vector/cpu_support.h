// Whether this processor and its operating system can run the kernel of one
// companion library. Decided from the raw CPUID/XGETBV words by a pure
// function, so that every processor (and every missing feature) can be
// described in a test; only read_processor_words() touches the hardware, for
// the companions and for the library's own choice of level alike.
#ifndef OQA_VECTOR_CPU_SUPPORT_H
#define OQA_VECTOR_CPU_SUPPORT_H

#include <cstdint>

namespace oqa_vector {

enum class Vector_level : int { sse = 1, avx2 = 2, avx512 = 3 };

// The identification words the decision depends on.
struct Processor_words {
  std::uint32_t max_leaf = 0;    // CPUID leaf 0, EAX
  std::uint32_t leaf_1_ecx = 0;  // CPUID leaf 1, sub-leaf 0
  std::uint32_t leaf_1_edx = 0;
  std::uint32_t leaf_7_ebx = 0;  // CPUID leaf 7, sub-leaf 0; meaningful only when max_leaf >= 7
  std::uint64_t xcr0 = 0;        // XGETBV(0); meaningful only when leaf 1 reports OSXSAVE
};

// True when every instruction the level's kernel may contain is reported by
// the processor and the register state it needs is enabled by the OS.
bool processor_supports(Vector_level level, Processor_words const& words);

// Reads the words from the running processor. Executes CPUID, and XGETBV
// only where CPUID reports that the OS enabled it.
Processor_words read_processor_words();

}  // namespace oqa_vector

#endif  // OQA_VECTOR_CPU_SUPPORT_H
