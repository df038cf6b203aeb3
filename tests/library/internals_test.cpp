// The library's internal pieces on their own: the choice of level from
// processor words, the loader, the holder and the logger client.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "diagnostics/oqa_log_object.h"
#include "library_test_support.h"
#include "modules/instruction_set_level.h"
#include "modules/shared_library_loader.h"
#include "modules/unique_ptr_reference_counted.h"
#include "test_doubles_control.h"

namespace {

constexpr std::uint32_t bit(unsigned index) { return 1U << index; }

// A processor with everything: SSE and SSE2 (leaf 1 EDX), FMA and SSE4.1
// (leaf 1 ECX), AVX2, AVX512F, AVX512DQ and AVX512BW (leaf 7 EBX).
constexpr std::uint32_t all_edx = bit(25) | bit(26);
constexpr std::uint32_t all_ecx = bit(12) | bit(19);
constexpr std::uint32_t all_ebx = bit(5) | bit(16) | bit(17) | bit(30);
constexpr oqa_vector::Processor_words everything{13, all_ecx, all_edx, all_ebx};
constexpr Module_usability all{true, true, true};

TEST(InstructionSetLevel, HighestLevelOfTheProcessorWithAUsableModule) {
  constexpr auto scalar = instruction_set_scalar, sse = instruction_set_sse,
                 avx2 = instruction_set_avx2, avx512 = instruction_set_avx512;
  struct Choice {
    char const* name;
    oqa_vector::Processor_words words;
    Module_usability modules;
    Instruction_set_level expected;
  } const choices[] = {
      {"everything", everything, all, avx512},
      {"no AVX-512 module", everything, {true, true, false}, avx2},
      {"SSE module only", everything, {true, false, false}, sse},
      {"no module", everything, {false, false, false}, scalar},
      {"AVX-512 module only", everything, {false, false, true}, avx512},
      {"no processor words", {}, all, scalar},
      {"no AVX512F", {13, all_ecx, all_edx, all_ebx & ~bit(16)}, all, avx2},
      {"no AVX512DQ", {13, all_ecx, all_edx, all_ebx & ~bit(17)}, all, avx2},
      {"no AVX512BW", {13, all_ecx, all_edx, all_ebx & ~bit(30)}, all, avx2},
      {"AVX2 and FMA", {13, all_ecx, all_edx, bit(5)}, all, avx2},
      {"AVX2 without FMA", {13, bit(19), all_edx, bit(5)}, all, sse},
      // Leaf 7 counts only when leaf 0 reports it; SSE is read from leaf 1
      // whatever leaf 0 reports.
      {"leaf 7 not reported", {6, all_ecx, all_edx, all_ebx}, all, sse},
      {"leaf 0 reports 0", {0, all_ecx, all_edx, all_ebx}, all, sse},
      {"no SSE", {6, all_ecx, bit(26), 0}, all, scalar},
      {"no SSE2", {6, all_ecx, bit(25), 0}, all, scalar},
      {"no SSE4.1", {6, bit(12), all_edx, 0}, all, scalar},
  };
  for (auto const& choice : choices) {
    EXPECT_EQ(choose_instruction_set_level(choice.words, choice.modules), choice.expected)
        << choice.name;
  }
}

TEST(InstructionSetLevel, ThisProcessorIsRead) {
  EXPECT_EQ(choose_instruction_set_level(oqa_vector::read_processor_words(), all),
            test_support::processor_level());
}

// The working directory holds the complete fake companions; the broken set
// (whose AVX2 companion lacks the initialise entry) and the capture logger
// are on the search path.
TEST(SharedLibraryLoader, WorkingDirectoryFirstThenTheSearchPath) {
  void* handle = load_shared_library("ostrevan_oqa_demosaic_vector_avx2");
  ASSERT_NE(handle, nullptr);
  EXPECT_NE(get_function_handle(handle, "qn_demosaic_vector_avx2_module_initialize"), nullptr);
  unload_shared_library(handle);
  handle = load_shared_library("ostrevan_oqa_logger");
  ASSERT_NE(handle, nullptr);
  unload_shared_library(handle);
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(load_shared_library("libostrevan_oqa_demosaic_vector_sse.so"), nullptr)
      << "prefix and suffix are added, never stripped";
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

// A vector longer than it can be throws on creation.
TEST(UniquePtrReferenceCounted, FailedCreationIsNotCounted) {
  unique_ptr_reference_counted<std::vector<char>> holder;
  EXPECT_ANY_THROW(holder.acquire(std::vector<char>().max_size() + 1));
  EXPECT_EQ(holder.get(), nullptr);
  holder.acquire(1U);
  EXPECT_NE(holder.get(), nullptr);
  holder.release();
  EXPECT_EQ(holder.get(), nullptr) << "the failed acquire was counted";
}

TEST(LogObject, PassesMessagesOfAnyLengthWholeAndUnchanged) {
  test_doubles::reset();
  Oqa_log_object const log("MODULE");
  ASSERT_TRUE(log.ready);
  std::string const long_text(10000, 'x');
  EXPECT_TRUE(log.log(OQA_LOG_TIMING, "file.cpp", 12, "f", "%s|%d", long_text.c_str(), 5));
  EXPECT_TRUE(log.log(OQA_LOG_ERROR, "g.cpp", 3, "g", "%s", ""));
  auto const& records = test_doubles::state().records;
  ASSERT_EQ(records.size(), 2U);
  EXPECT_EQ(records[0].message, long_text + "|5");
  EXPECT_EQ(records[1].message, "");
}

}  // namespace
