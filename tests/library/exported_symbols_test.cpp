// The library's dynamic interface is exactly the documented one, and it
// carries no run path.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

namespace {

std::string run(std::string const& command) {
  std::string output;
  FILE* const pipe = popen(command.c_str(), "r");
  for (int c = 0; pipe != nullptr && (c = std::fgetc(pipe)) != EOF;) output += static_cast<char>(c);
  if (pipe != nullptr) pclose(pipe);
  return output;
}

TEST(ExportedSymbols, ExactlyTheDocumentedOnes) {
  EXPECT_EQ(
      run(std::string("nm -D --defined-only --demangle ") + DEMOSAIC_LIBRARY_PATH +
          " | cut -d' ' -f3- | LC_ALL=C sort"),
      R"(determine_pixel_color(unsigned long, unsigned long, std::pair<unsigned long, unsigned long> const&, QN_COLOR_FILTER_ARRAY_PHASE)
get_function_handle(void*, char const*)
load_shared_library(char const*)
logger
qn_demosaic_module_initialize
qn_demosaic_module_terminate
qn_demosaic_transform_16_to_48
qn_demosaic_transform_test_16_to_48
row_0_col_1
row_1_col_0
row_1_col_1
unload_shared_library(void*&)
vector_avx2_demosaic_module
vector_avx512_demosaic_module
vector_sse_demosaic_module
)");
}

TEST(ExportedSymbols, NoRunPath) {
  std::string const dynamic = run(std::string("readelf -d ") + DEMOSAIC_LIBRARY_PATH);
  ASSERT_NE(dynamic.find("SONAME"), std::string::npos) << dynamic;
  EXPECT_EQ(dynamic.find("RPATH"), std::string::npos) << dynamic;
  EXPECT_EQ(dynamic.find("RUNPATH"), std::string::npos) << dynamic;
}

}  // namespace
