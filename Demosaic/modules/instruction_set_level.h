// Choice of the instruction-set level from the processor identification
// words and the usability of the companion modules. Kept a pure function so
// that every processor can be described in a test.
#ifndef OQA_DEMOSAIC_MODULES_INSTRUCTION_SET_LEVEL_H
#define OQA_DEMOSAIC_MODULES_INSTRUCTION_SET_LEVEL_H

#include <cstdint>

enum Instruction_set_level : int {
  instruction_set_scalar = 0,
  instruction_set_sse = 1,
  instruction_set_avx2 = 2,
  instruction_set_avx512 = 3,
};

// The processor identification words the choice depends on.
struct Cpuid_words {
  std::int32_t max_leaf = 0;     // leaf 0, EAX
  std::uint32_t leaf_1_ecx = 0;  // leaf 1, sub-leaf 0
  std::uint32_t leaf_1_edx = 0;  // leaf 1, sub-leaf 0
  std::uint32_t leaf_7_ebx = 0;  // leaf 7, sub-leaf 0; 0 when max_leaf < 7
};

struct Module_usability {
  bool sse = false;
  bool avx2 = false;
  bool avx512 = false;
};

// Reads the words from this processor. Leaf 7 is read only when leaf 0
// reports it.
Cpuid_words read_cpuid_words();

// Highest level whose instructions the words report and whose module is
// usable; a usable processor level with an unusable module falls through to
// the next lower one.
Instruction_set_level choose_instruction_set_level(Cpuid_words const& words,
                                                   Module_usability const& modules);

#endif  // OQA_DEMOSAIC_MODULES_INSTRUCTION_SET_LEVEL_H
