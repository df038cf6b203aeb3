// What logging costs: one timing record written to a file, one dropped by
// the level, and the share the timing record adds to a 640x480 transform at
// the best instruction-set level.
//
// Run with the libraries on the loader's path:
//   LD_LIBRARY_PATH=build/lib build/bin/logger_bench
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "ostrevan_oqa_demosaic.h"
#include "ostrevan_oqa_logger.h"

namespace {

constexpr char const* timing_message = "demosaic takes 1234.000000 microseconds.";

// A scratch folder with a configuration, named through the environment for
// as long as it is in scope.
class Logger_configuration {
 public:
  explicit Logger_configuration(std::string const& text) {
    std::string pattern =
        (std::filesystem::temp_directory_path() / "oqa_logger_bench_XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) return;
    folder_ = pattern;
    std::ofstream(folder_ / "logger.cfg") << text;
    setenv("OSTREVAN_OQA_LOGGER_CONFIG", (folder_ / "logger.cfg").c_str(), 1);
  }
  ~Logger_configuration() {
    unsetenv("OSTREVAN_OQA_LOGGER_CONFIG");
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }
  Logger_configuration(Logger_configuration const&) = delete;
  Logger_configuration& operator=(Logger_configuration const&) = delete;

 private:
  std::filesystem::path folder_;
};

std::string file_config(int level, char const* format) {
  return "output = bench.log\nlevel = " + std::to_string(level) + "\nformat = " + format + "\n";
}

void BM_TimingRecordToFile(benchmark::State& state, char const* format) {
  Logger_configuration const config(file_config(7, format));
  void* const log = oqa_get_log("OSTREVAN_OQA_DEMOSAIC", "", "ostrevan_oqa_logger.cfg");
  if (log == nullptr) {
    state.SkipWithError("no log");
    return;
  }
  for (auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores): loop idiom
    benchmark::DoNotOptimize(
        oqa_log(log, 7, __FILE__, __LINE__, "demosaic_transform_impl", timing_message));
  }
  oqa_free_log("OSTREVAN_OQA_DEMOSAIC", "");
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK_CAPTURE(BM_TimingRecordToFile, text, "text");
BENCHMARK_CAPTURE(BM_TimingRecordToFile, json, "json");

void BM_TimingRecordDroppedByLevel(benchmark::State& state) {
  Logger_configuration const config(file_config(6, "text"));
  void* const log = oqa_get_log("OSTREVAN_OQA_DEMOSAIC", "", "ostrevan_oqa_logger.cfg");
  for (auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores): loop idiom
    benchmark::DoNotOptimize(
        oqa_log(log, 7, __FILE__, __LINE__, "demosaic_transform_impl", timing_message));
  }
  oqa_free_log("OSTREVAN_OQA_DEMOSAIC", "");
}
BENCHMARK(BM_TimingRecordDroppedByLevel);

// A 640x480 transform at the level initialise chose. "dropped": a
// configuration at level 6, so the timing record is formatted by the
// demosaic library and dropped by the logger; "to_file_*": level 7, one
// record per transform in the file.
void BM_Transform640x480(benchmark::State& state, int level, char const* format) {
  constexpr int width = 640;
  constexpr int height = 480;
  std::vector<unsigned short> input(width * height);
  std::uint32_t seed = 12345;
  for (unsigned short& sample : input) {
    seed = seed * 1664525U + 1013904223U;
    sample = static_cast<unsigned short>(seed >> 20);
  }
  std::vector<unsigned short> output(3 * width * height);
  Logger_configuration const config(file_config(level, format));
  qn_demosaic_module_initialize();
  for (auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores): loop idiom
    int const result = qn_demosaic_transform_16_to_48(
        width, height, 0, 0, QN_CFA_PHASE_RED, QN_COLOR_FORMAT_BGR_INTERLEAVED,
        QN_COLOR_FILTER_TYPE_BAYER, 16, input.data(), output.data());
    benchmark::DoNotOptimize(result);
    benchmark::ClobberMemory();
  }
  qn_demosaic_module_terminate();
  state.SetBytesProcessed(state.iterations() * width * height * 2);
}
BENCHMARK_CAPTURE(BM_Transform640x480, dropped, 6, "text")->UseRealTime();
BENCHMARK_CAPTURE(BM_Transform640x480, to_file_text, 7, "text")->UseRealTime();
BENCHMARK_CAPTURE(BM_Transform640x480, to_file_json, 7, "json")->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
