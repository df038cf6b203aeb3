// The library's internal pieces on their own: the choice of level from
// processor words, the loader, the companion module, the holder, the logger
// client and the timer.
#include <gtest/gtest.h>

#include <new>
#include <stdexcept>
#include <string>

#include "diagnostics/oqa_log_object.h"
#include "diagnostics/oqa_timer.h"
#include "modules/instruction_set_level.h"
#include "modules/shared_library_loader.h"
#include "modules/unique_ptr_reference_counted.h"
#include "modules/vector_demosaic_module.h"
#include "test_doubles_control.h"

namespace {

constexpr std::uint32_t bit(unsigned index) { return 1U << index; }

// A processor with everything: SSE, SSE2 (leaf 1 EDX), FMA, SSE4.1 (leaf 1
// ECX), AVX2, AVX512F, AVX512DQ, AVX512BW (leaf 7 EBX).
Cpuid_words full_processor() {
  Cpuid_words words;
  words.max_leaf = 13;
  words.leaf_1_edx = bit(25) | bit(26);
  words.leaf_1_ecx = bit(12) | bit(19);
  words.leaf_7_ebx = bit(5) | bit(16) | bit(17) | bit(30);
  return words;
}

constexpr Module_usability all_modules{true, true, true};

TEST(InstructionSetLevel, HighestLevelOfProcessorAndModules) {
  EXPECT_EQ(choose_instruction_set_level(full_processor(), all_modules), instruction_set_avx512);
  EXPECT_EQ(choose_instruction_set_level(full_processor(), {true, true, false}),
            instruction_set_avx2);
  EXPECT_EQ(choose_instruction_set_level(full_processor(), {true, false, false}),
            instruction_set_sse);
  EXPECT_EQ(choose_instruction_set_level(full_processor(), {false, false, false}),
            instruction_set_scalar);
  EXPECT_EQ(choose_instruction_set_level(full_processor(), {false, false, true}),
            instruction_set_avx512);
  EXPECT_EQ(choose_instruction_set_level(Cpuid_words{}, all_modules), instruction_set_scalar);
}

TEST(InstructionSetLevel, AvxFiveTwelveNeedsFoundationDqAndBw) {
  for (unsigned missing : {16U, 17U, 30U}) {
    Cpuid_words words = full_processor();
    words.leaf_7_ebx &= ~bit(missing);
    EXPECT_EQ(choose_instruction_set_level(words, all_modules), instruction_set_avx2) << missing;
  }
}

TEST(InstructionSetLevel, AvxTwoNeedsFma) {
  Cpuid_words words = full_processor();
  words.leaf_7_ebx = bit(5);
  EXPECT_EQ(choose_instruction_set_level(words, all_modules), instruction_set_avx2);
  words.leaf_1_ecx &= ~bit(12);
  EXPECT_EQ(choose_instruction_set_level(words, all_modules), instruction_set_sse);
}

TEST(InstructionSetLevel, LeafSevenCountsOnlyWhenReported) {
  Cpuid_words words = full_processor();
  words.max_leaf = 6;
  EXPECT_EQ(choose_instruction_set_level(words, all_modules), instruction_set_sse);
  // SSE is read from leaf 1 whatever leaf 0 reports.
  words.max_leaf = 0;
  EXPECT_EQ(choose_instruction_set_level(words, all_modules), instruction_set_sse);
}

TEST(InstructionSetLevel, SseNeedsSseSse2AndSse41) {
  for (auto [word, index] : {std::pair{0, 25U}, std::pair{0, 26U}, std::pair{1, 19U}}) {
    Cpuid_words words = full_processor();
    words.leaf_7_ebx = 0;
    (word == 0 ? words.leaf_1_edx : words.leaf_1_ecx) &= ~bit(index);
    EXPECT_EQ(choose_instruction_set_level(words, all_modules), instruction_set_scalar) << index;
  }
}

TEST(InstructionSetLevel, ThisProcessorIsRead) {
  Cpuid_words const words = read_cpuid_words();
  EXPECT_GT(words.max_leaf, 0);
  EXPECT_NE(words.leaf_1_edx & bit(26), 0U) << "every x86-64 processor has SSE2";
}

// The working directory holds the complete fake companions; the broken set
// (whose AVX2 library lacks the initialise entry) is on the search path.
TEST(SharedLibraryLoader, WorkingDirectoryComesFirst) {
  void* handle = load_shared_library("ostrevan_oqa_demosaic_vector_avx2");
  ASSERT_NE(handle, nullptr);
  EXPECT_NE(get_function_handle(handle, "qn_demosaic_vector_avx2_module_initialize"), nullptr);
  EXPECT_EQ(get_function_handle(handle, "no_such_entry"), nullptr);
  unload_shared_library(handle);
  EXPECT_EQ(handle, nullptr);
}

TEST(SharedLibraryLoader, SearchPathIsTheFallbackAndMissingGivesNull) {
  void* handle = load_shared_library("ostrevan_oqa_logger");
  EXPECT_NE(handle, nullptr);
  if (handle != nullptr) unload_shared_library(handle);
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(load_shared_library("no_such_library_anywhere"), nullptr);
  EXPECT_EQ(load_shared_library("libostrevan_oqa_demosaic_vector_sse.so"), nullptr)
      << "prefix and suffix are added, never stripped";
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

TEST(VectorDemosaicModule, DecliningModuleIsMarkedAndStillTerminated) {
  test_doubles::reset();
  test_doubles::companion_initialize_result(1) = 1;
  {
    Vector_sse_demosaic_module const module;
    EXPECT_TRUE(module.load_failed);
    EXPECT_NE(module.transform_function, nullptr);
    EXPECT_EQ(test_doubles::companion_counters(1).initialize.load(), 1);
  }
  EXPECT_EQ(test_doubles::companion_counters(1).terminate.load(), 1);
  test_doubles::reset();
  {
    Vector_avx512_demosaic_module const module;
    EXPECT_FALSE(module.load_failed);
  }
  Vector_demosaic_module const missing("no_such_companion", "a", "b", "c");
  EXPECT_TRUE(missing.load_failed);
  EXPECT_EQ(missing.library_handle, nullptr);
}

struct Counted {
  static inline int alive = 0;
  static inline int created = 0;
  explicit Counted(bool fail = false) {
    if (fail) throw std::bad_alloc();
    ++alive;
    ++created;
  }
  ~Counted() { --alive; }
  Counted(Counted const&) = delete;
  Counted& operator=(Counted const&) = delete;
};

TEST(UniquePtrReferenceCounted, FirstAcquireCreatesLastReleaseDestroys) {
  unique_ptr_reference_counted<Counted> holder;
  EXPECT_EQ(holder.get(), nullptr);
  holder.release();  // at zero: nothing happens, no wrap-around
  holder.acquire(false);
  Counted const* first = holder.get();
  holder.acquire(true);  // arguments of later acquires are ignored
  EXPECT_EQ(holder.get(), first);
  EXPECT_EQ(Counted::created, 1);
  holder.release();
  EXPECT_EQ(Counted::alive, 1);
  holder.release();
  EXPECT_EQ(Counted::alive, 0);
  EXPECT_EQ(holder.get(), nullptr);
  holder.release();
  holder.acquire(false);
  EXPECT_EQ(Counted::created, 2);
  holder.release();
  EXPECT_EQ(holder.get(), nullptr) << "a release at zero must not have wrapped the count";
}

TEST(UniquePtrReferenceCounted, FailedCreationLeavesTheCountAtZero) {
  unique_ptr_reference_counted<Counted> holder;
  EXPECT_THROW(holder.acquire(true), std::bad_alloc);
  EXPECT_EQ(holder.get(), nullptr);
  holder.acquire(false);
  holder.release();
  EXPECT_EQ(holder.get(), nullptr) << "the failed acquire must not have been counted";
}

TEST(UniquePtrReferenceCounted, DestructorDestroysWhatIsStillHeld) {
  int const alive_before = Counted::alive;
  {
    unique_ptr_reference_counted<Counted> holder;
    holder.acquire(false);
    holder.acquire(false);
  }
  EXPECT_EQ(Counted::alive, alive_before);
}

class LogObject : public ::testing::Test {
 protected:
  void SetUp() override { test_doubles::reset(); }
};

TEST_F(LogObject, PassesMessagesWholeAndUnchanged) {
  Oqa_log_object const log("MODULE");
  ASSERT_TRUE(log.ready);
  std::string const long_text(10000, 'x');
  EXPECT_TRUE(log.log(OQA_LOG_TIMING, "file.cpp", 12, "f", "%s|%d", long_text.c_str(), 5));
  EXPECT_TRUE(log.log(OQA_LOG_ERROR, "g.cpp", 3, "g", "no conversions"));
  EXPECT_TRUE(log.log(OQA_LOG_ERROR, "g.cpp", 4, "g", "%s", ""));
  auto const& records = test_doubles::logged_records();
  ASSERT_EQ(records.size(), 3U);
  EXPECT_EQ(records[0].message, long_text + "|5");
  EXPECT_EQ(records[0].priority, 7);
  EXPECT_EQ(records[0].file, "file.cpp");
  EXPECT_EQ(records[0].line, 12);
  EXPECT_EQ(records[0].function, "f");
  EXPECT_EQ(records[1].message, "no conversions");
  EXPECT_EQ(records[1].priority, 2);
  EXPECT_EQ(records[2].message, "");
  EXPECT_EQ(test_doubles::events().front(), "open MODULE [] ostrevan_oqa_logger.cfg");
}

TEST_F(LogObject, RefusedLogIsNotReadyButFreedOnDestruction) {
  test_doubles::logger_open_fails() = true;
  {
    Oqa_log_object const log("MODULE");
    EXPECT_FALSE(log.ready);
    // Not ready: the variadic arguments are never read, so a bad one is harmless.
    EXPECT_FALSE(log.log(OQA_LOG_ERROR, "f", 1, "f", "%d", 1));
  }
  EXPECT_EQ(test_doubles::events().back(), "free MODULE []");
  EXPECT_TRUE(test_doubles::logged_records().empty());
}

TEST(Timer, ReportsWholeMicrosecondsTruncatedTowardZero) {
  EXPECT_EQ(OQATimer::whole_microseconds(999), 0.0);
  EXPECT_EQ(OQATimer::whole_microseconds(1999), 1.0);
  EXPECT_EQ(OQATimer::whole_microseconds(1000000), 1000.0);
  EXPECT_EQ(OQATimer::whole_microseconds(1234567), 1234.0);
  EXPECT_EQ(OQATimer::whole_microseconds(-1999), -1.0);
}

TEST(Timer, WritesOneRecordWhenTheScopeEnds) {
  test_doubles::reset();
  Oqa_log_object const log("MODULE");
  {
    OQATimer const timer("work", &log, "here.cpp", 42, "caller");
    EXPECT_TRUE(test_doubles::logged_records().empty());
  }
  auto const& records = test_doubles::logged_records();
  ASSERT_EQ(records.size(), 1U);
  EXPECT_EQ(records[0].priority, 7);
  EXPECT_EQ(records[0].file, "here.cpp");
  EXPECT_EQ(records[0].line, 42);
  EXPECT_EQ(records[0].function, "caller");
  EXPECT_TRUE(records[0].message.starts_with("work takes "));
  EXPECT_TRUE(records[0].message.ends_with(".000000 microseconds."));
}

}  // namespace
