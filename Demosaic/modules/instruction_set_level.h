// Choice of the instruction-set level from the processor identification
// words and the usability of the companion modules. Kept a pure function so
// that every processor can be described in a test. The words are read by the
// companions' reader, the one place that executes CPUID; this rule reads
// fewer of them than the companions' own check does.
#ifndef OQA_DEMOSAIC_MODULES_INSTRUCTION_SET_LEVEL_H
#define OQA_DEMOSAIC_MODULES_INSTRUCTION_SET_LEVEL_H

#include "cpu_support.h"

enum Instruction_set_level : int {
  instruction_set_scalar = 0,
  instruction_set_sse = 1,
  instruction_set_avx2 = 2,
  instruction_set_avx512 = 3,
};

struct Module_usability {
  bool sse = false;
  bool avx2 = false;
  bool avx512 = false;
};

// Highest level whose instructions the words report and whose module is
// usable; a usable processor level with an unusable module falls through to
// the next lower one.
Instruction_set_level choose_instruction_set_level(oqa_vector::Processor_words const& words,
                                                   Module_usability const& modules);

#endif  // OQA_DEMOSAIC_MODULES_INSTRUCTION_SET_LEVEL_H
