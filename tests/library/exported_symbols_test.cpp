// The library's dynamic interface is exactly the documented one.
#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <string>

namespace {

std::string run(std::string const& command) {
  std::string output;
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return output;
  char buffer[512];
  while (std::fgets(buffer, sizeof buffer, pipe) != nullptr) output += buffer;
  pclose(pipe);
  return output;
}

TEST(ExportedSymbols, ExactlyTheDocumentedOnes) {
  std::string const listing = run(std::string("nm -D --defined-only --demangle ") +
                                  DEMOSAIC_LIBRARY_PATH + " | cut -d' ' -f3-");
  std::set<std::string> symbols;
  std::size_t start = 0;
  while (start < listing.size()) {
    std::size_t const end = listing.find('\n', start);
    std::string const line = listing.substr(start, end - start);
    if (!line.empty()) symbols.insert(line);
    if (end == std::string::npos) break;
    start = end + 1;
  }
  std::set<std::string> const expected = {
      "qn_demosaic_module_initialize",
      "qn_demosaic_module_terminate",
      "qn_demosaic_transform_16_to_48",
      "qn_demosaic_transform_test_16_to_48",
      "load_shared_library(char const*)",
      "unload_shared_library(void*&)",
      "get_function_handle(void*, char const*)",
      std::string("determine_pixel_color(unsigned long, unsigned long, ") +
          "std::pair<unsigned long, unsigned long> const&, QN_COLOR_FILTER_ARRAY_PHASE)",
      "logger",
      "vector_sse_demosaic_module",
      "vector_avx2_demosaic_module",
      "vector_avx512_demosaic_module",
      "row_0_col_1",
      "row_1_col_0",
      "row_1_col_1",
  };
  EXPECT_EQ(symbols, expected) << listing;
}

TEST(ExportedSymbols, NoRunPath) {
  std::string const dynamic = run(std::string("readelf -d ") + DEMOSAIC_LIBRARY_PATH);
  ASSERT_NE(dynamic.find("SONAME"), std::string::npos) << dynamic;
  EXPECT_EQ(dynamic.find("RPATH"), std::string::npos) << dynamic;
  EXPECT_EQ(dynamic.find("RUNPATH"), std::string::npos) << dynamic;
}

}  // namespace
