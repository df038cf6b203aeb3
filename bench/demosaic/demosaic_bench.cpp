// Whole-frame demosaic throughput at every instruction-set level and output
// format, through the public test entry (the library is initialised once),
// beside OpenCV's bilinear 16-bit Bayer demosaic and a plain fill of the same
// output buffer (the memory roof). Also compares regular against
// non-temporal stores in the kernels, and runs one transform per thread for
// aggregate throughput.
//
//   demosaic_bench [--threads=1,2,4] [benchmark flags]
//
// Run it where the companion libraries can be found (their folder as the
// working directory, or on LD_LIBRARY_PATH). A summary of ratios follows the
// table.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <map>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <random>
#include <string>
#include <vector>

#include "cpu_support.h"
#include "interior_geometry.h"
#include "interior_kernel.h"
#include "modules/unique_ptr_reference_counted.h"
#include "modules/vector_demosaic_module.h"
#include "ostrevan_oqa_demosaic.h"

extern unique_ptr_reference_counted<Vector_sse_demosaic_module> vector_sse_demosaic_module;
extern unique_ptr_reference_counted<Vector_avx2_demosaic_module> vector_avx2_demosaic_module;
extern unique_ptr_reference_counted<Vector_avx512_demosaic_module> vector_avx512_demosaic_module;

namespace {

struct Frame_size {
  int width;
  int height;
};
constexpr Frame_size frame_sizes[] = {{640, 480}, {1920, 1080}, {3840, 2160}, {7680, 4320}};
constexpr char const* level_names[] = {"scalar", "sse", "avx2", "avx512"};
constexpr char const* format_names[] = {"bgr_planar", "bgr_interleaved", "rgb_interleaved"};

// The mosaic and output of one frame; every thread of a threaded run has its
// own, so threads work on different frames.
struct Frame {
  explicit Frame(Frame_size size)
      : width(size.width),
        height(size.height),
        input(static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height)),
        output(3 * input.size(), 0) {
    std::mt19937 random(static_cast<unsigned>(size.width));
    std::uniform_int_distribution<unsigned> sample(0, 4095);
    for (auto& value : input) {
      value = static_cast<std::uint16_t>(sample(random));
    }
  }
  std::size_t pixels() const { return input.size(); }

  int width;
  int height;
  std::vector<std::uint16_t> input;
  std::vector<std::uint16_t> output;
};

bool level_usable(int level) {
  switch (level) {
    case 1:
      return !vector_sse_demosaic_module.get()->load_failed;
    case 2:
      return !vector_avx2_demosaic_module.get()->load_failed;
    case 3:
      return !vector_avx512_demosaic_module.get()->load_failed;
    default:
      return true;
  }
}

void count_frame(benchmark::State& state, Frame const& frame, std::size_t bytes_per_pixel) {
  auto const iterations = static_cast<std::int64_t>(state.iterations());
  auto const pixels = static_cast<std::int64_t>(frame.pixels());
  state.SetItemsProcessed(iterations * pixels);
  state.SetBytesProcessed(iterations * pixels * static_cast<std::int64_t>(bytes_per_pixel));
}

// Input and output bytes of one pixel.
constexpr std::size_t transform_bytes_per_pixel = 2 + 6;

void bm_library(benchmark::State& state, int level, QN_COLOR_FORMAT format, Frame_size size) {
  if (!level_usable(level)) {
    state.SkipWithError(
        (std::string("level ") + level_names[level] + " is not usable on this processor").c_str());
    return;
  }
  Frame frame(size);
  for (auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores): loop idiom
    qn_demosaic_transform_test_16_to_48(frame.width, frame.height, 0, 0, QN_CFA_PHASE_RED, format,
                                        QN_COLOR_FILTER_TYPE_BAYER, 16, frame.input.data(),
                                        frame.output.data(), level);
    benchmark::ClobberMemory();
  }
  count_frame(state, frame, transform_bytes_per_pixel);
}

void bm_opencv(benchmark::State& state, Frame_size size) {
  cv::setNumThreads(1);
  Frame frame(size);
  cv::Mat const mosaic(frame.height, frame.width, CV_16UC1, frame.input.data());
  cv::Mat bgr(frame.height, frame.width, CV_16UC3, frame.output.data());
  for (auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores): loop idiom
    // Red at the origin, as phase 0.
    cv::demosaicing(mosaic, bgr, cv::COLOR_BayerBG2BGR);
    benchmark::ClobberMemory();
  }
  count_frame(state, frame, transform_bytes_per_pixel);
}

void bm_fill(benchmark::State& state, Frame_size size, bool use_memset) {
  Frame frame(size);
  std::uint16_t value = 1;
  for (auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores): loop idiom
    if (use_memset) {
      std::memset(frame.output.data(), value & 0xFF, frame.output.size() * sizeof(std::uint16_t));
    } else {
      std::fill(frame.output.begin(), frame.output.end(), value);
    }
    ++value;
    benchmark::ClobberMemory();
  }
  count_frame(state, frame, 6);
}

// The kernel alone, with the store strategy forced either way, to find the
// size from which non-temporal stores win.
void bm_store_strategy(benchmark::State& state, int level, bool streaming, Frame_size size) {
  using Kernel = void (*)(oqa_vector::Interior_request const&);
  constexpr Kernel kernels[] = {nullptr, oqa_vector_sse::demosaic_interior,
                                oqa_vector_avx2::demosaic_interior,
                                oqa_vector_avx512::demosaic_interior};
  if (!oqa_vector::processor_supports(static_cast<oqa_vector::Vector_level>(level),
                                      oqa_vector::read_processor_words())) {
    state.SkipWithError("level not supported by this processor");
    return;
  }
  Frame frame(size);
  oqa_vector::Interior_request request = oqa_vector::describe_interior(
      frame.width, frame.height, 0, 0, QN_CFA_PHASE_RED, QN_COLOR_FORMAT_BGR_INTERLEAVED,
      frame.input.data(), frame.output.data());
  request.streaming = streaming;
  for (auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores): loop idiom
    kernels[level](request);
    if (streaming) {
      __builtin_ia32_sfence();
    }
    benchmark::ClobberMemory();
  }
  count_frame(state, frame, transform_bytes_per_pixel);
}

// One frame per thread, best usable level, BGR interleaved; the reported
// rate is the aggregate of all threads.
void bm_threads(benchmark::State& state, int level, Frame_size size) {
  if (!level_usable(level)) {
    state.SkipWithError("level not usable on this processor");
    return;
  }
  Frame frame(size);
  for (auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores): loop idiom
    qn_demosaic_transform_test_16_to_48(frame.width, frame.height, 0, 0, QN_CFA_PHASE_RED,
                                        QN_COLOR_FORMAT_BGR_INTERLEAVED, QN_COLOR_FILTER_TYPE_BAYER,
                                        16, frame.input.data(), frame.output.data(), level);
    benchmark::ClobberMemory();
  }
  count_frame(state, frame, transform_bytes_per_pixel);
}

std::string size_name(Frame_size size) {
  return std::to_string(size.width) + "x" + std::to_string(size.height);
}

// Appended rather than "/" + name: GCC 12 warns falsely (-Wrestrict) on
// that operator+ at -O3.
std::string size_suffix(Frame_size size) {
  std::string suffix("/");
  suffix += size_name(size);
  return suffix;
}

int best_level() {
  for (int level = 3; level > 0; --level) {
    if (level_usable(level)) {
      return level;
    }
  }
  return 0;
}

void register_benchmarks(std::vector<int> const& thread_counts) {
  for (Frame_size const size : frame_sizes) {
    std::string const suffix = size_suffix(size);
    for (int format = 0; format < 3; ++format) {
      for (int level = 0; level <= 3; ++level) {
        benchmark::RegisterBenchmark(
            (std::string("demosaic/") + level_names[level] + "/" + format_names[format] + suffix)
                .c_str(),
            bm_library, level, static_cast<QN_COLOR_FORMAT>(format), size)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
      }
    }
    benchmark::RegisterBenchmark(("opencv/bgr_interleaved" + suffix).c_str(), bm_opencv, size)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
    benchmark::RegisterBenchmark(("fill/std_fill" + suffix).c_str(), bm_fill, size, false)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
    benchmark::RegisterBenchmark(("fill/memset" + suffix).c_str(), bm_fill, size, true)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
    for (int level = 1; level <= 3; ++level) {
      for (bool const streaming : {false, true}) {
        benchmark::RegisterBenchmark((std::string("stores/") + level_names[level] +
                                      (streaming ? "/streaming" : "/regular") + suffix)
                                         .c_str(),
                                     bm_store_strategy, level, streaming, size)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
      }
    }
  }
  Frame_size const threaded_size{3840, 2160};
  auto* threaded =
      benchmark::RegisterBenchmark((std::string("threads/") + level_names[best_level()] +
                                    "/bgr_interleaved/" + size_name(threaded_size))
                                       .c_str(),
                                   bm_threads, best_level(), threaded_size);
  threaded->Unit(benchmark::kMillisecond)->UseRealTime();
  for (int const threads : thread_counts) {
    threaded->Threads(threads);
  }
}

// Keeps the time per iteration of every run for the summary.
class Summary_reporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(std::vector<Run> const& runs) override {
    // With --benchmark_repetitions the summary uses the medians.
    for (Run const& run : runs) {
      bool const median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
      if (run.error_occurred || (run.run_type == Run::RT_Aggregate && !median)) {
        continue;
      }
      std::string const name = run.run_name.str();
      if (median || seconds_.count(name) == 0 || run.repetitions <= 1) {
        seconds_[name] = run.GetAdjustedRealTime();
        auto const rate = run.counters.find("items_per_second");
        items_per_second_[name] = rate != run.counters.end() ? rate->second.value : 0.0;
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }

  void print_summary() const {
    std::printf(
        "\nSummary, BGR interleaved unless noted (time ratios; best = fastest usable level)\n");
    std::printf("%-10s %9s %9s %9s %9s %11s %10s %11s %13s %s\n", "size", "opencv", "std_fill",
                "memset", "best", "opencv/best", "best/fill", "best/memset", "opencv/scalar",
                "levels 0>1>2>3 (planar bgr rgb)");
    for (Frame_size const size : frame_sizes) {
      std::string const suffix = size_suffix(size);
      double const opencv = time_of("opencv/bgr_interleaved" + suffix);
      double const fill = time_of("fill/std_fill" + suffix);
      double const memset = time_of("fill/memset" + suffix);
      std::string ordered;
      double best = 0;
      double scalar = 0;
      for (int format = 0; format < 3; ++format) {
        double level_time[4];
        for (int level = 0; level <= 3; ++level) {
          level_time[level] = time_of(std::string("demosaic/") + level_names[level] + "/" +
                                      format_names[format] + suffix);
        }
        bool in_order = true;
        for (int level = 1; level <= best_level(); ++level) {
          in_order = in_order && level_time[level] < level_time[level - 1];
        }
        ordered += in_order ? " yes" : " no";
        if (format == 1) {
          best = level_time[best_level()];
          scalar = level_time[0];
        }
      }
      std::printf("%-10s %9.3f %9.3f %9.3f %9.3f %11.2f %10.2f %11.2f %13.2f %s\n",
                  size_name(size).c_str(), opencv, fill, memset, best, opencv / best, best / fill,
                  best / memset, opencv / scalar, ordered.c_str());
    }
    std::printf("(times in ms per frame)\n");
    for (auto const& [name, rate] : items_per_second_) {
      if (name.rfind("threads/", 0) == 0) {
        std::printf("%s: %.2f Gpixel/s aggregate\n", name.c_str(), rate / 1e9);
      }
    }
  }

 private:
  // Milliseconds per iteration, or NaN where the run was skipped/filtered.
  double time_of(std::string const& prefix) const {
    for (auto const& [name, seconds] : seconds_) {
      if (name.rfind(prefix, 0) == 0) {
        return seconds;
      }
    }
    return std::numeric_limits<double>::quiet_NaN();
  }

  std::map<std::string, double> seconds_;
  std::map<std::string, double> items_per_second_;
};

// --threads=1,2,4 (taken out of argv before the benchmark library sees it).
std::vector<int> take_thread_counts(int& argc, char** argv) {
  std::vector<int> counts{1, 2};
  for (int i = 1; i < argc; ++i) {
    if (std::strncmp(argv[i], "--threads=", 10) != 0) {
      continue;
    }
    counts.clear();
    for (char const* cursor = argv[i] + 10; *cursor != '\0';) {
      char* end = nullptr;
      long const count = std::strtol(cursor, &end, 10);
      if (end == cursor || count < 1) {
        break;
      }
      counts.push_back(static_cast<int>(count));
      cursor = *end == ',' ? end + 1 : end;
    }
    for (int j = i; j + 1 < argc; ++j) {
      argv[j] = argv[j + 1];
    }
    --argc;
    --i;
  }
  return counts;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<int> const thread_counts = take_thread_counts(argc, argv);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 1;
  }
  qn_demosaic_module_initialize();
  register_benchmarks(thread_counts);
  Summary_reporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.print_summary();
  benchmark::Shutdown();
  qn_demosaic_module_terminate();
  return 0;
}
