// Whole-frame demosaic time at every instruction-set level and output
// format, through the public test entry (the library is initialised once),
// beside OpenCV's bilinear 16-bit Bayer demosaic on one thread and a plain
// std::fill of the same output buffer (the memory roof). A summary of the
// ratios, with a yes/no per performance target, follows the table; it is
// taken from the paired runs (paired/<size>), which time every contestant
// in turn within each round, so that the ratios hold on a shared machine.
//
//   demosaic_bench [--threads=1,2,4] [--plans] [benchmark flags]
//
// --benchmark_filter=paired gives the summary alone in about ten seconds.
// --plans adds the kernels alone under every store plan (regular or
// non-temporal stores, 256- or 512-bit vectors), the measurements behind
// the companions' choice. Run it where the companion libraries can be found
// (their folder as the working directory, or on LD_LIBRARY_PATH). For
// medians of interleaved runs add --benchmark_repetitions=9
// --benchmark_enable_random_interleaving=true.
#include <benchmark/benchmark.h>
#include <emmintrin.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
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

// A frame size and the targets the best level must meet there: a speed-up
// over OpenCV and a ceiling on the time relative to the fill.
struct Frame_size {
  int width;
  int height;
  double opencv_factor;
  double fill_ceiling;
};
constexpr Frame_size frame_sizes[] = {
    {640, 480, 4.5, 1.5}, {1920, 1080, 4.5, 1.2}, {3840, 2160, 4.5, 1.1}, {7680, 4320, 4.0, 1.1}};
// Slack for "each level at least as fast as the one below" and for the
// formats' spread around BGR interleaved.
constexpr double level_tolerance = 1.02;
constexpr double format_tolerance = 1.10;

constexpr char const* level_names[] = {"scalar", "sse", "avx2", "avx512"};
constexpr char const* format_names[] = {"bgr_planar", "bgr_interleaved", "rgb_interleaved"};
constexpr int bgr_interleaved = 1;

// The mosaic (full-range random samples) and output of one frame; every
// thread of a threaded run has its own, so threads work on different frames.
struct Frame {
  explicit Frame(Frame_size size)
      : width(size.width),
        height(size.height),
        input(static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height)),
        output(3 * input.size(), 0) {
    std::mt19937 random(static_cast<unsigned>(size.width));
    std::uniform_int_distribution<unsigned> sample(0, 65535);
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

int best_usable_level() {
  int level = 3;
  while (level > 0 && !level_usable(level)) {
    --level;
  }
  return level;
}

// Input and output bytes of one pixel.
constexpr std::int64_t transform_bytes_per_pixel = 2 + 6;

void count_frame(benchmark::State& state, Frame const& frame, std::int64_t bytes_per_pixel) {
  auto const pixels =
      static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(frame.pixels());
  state.SetItemsProcessed(pixels);
  state.SetBytesProcessed(pixels * bytes_per_pixel);
}

// The contestants, one call on a frame each: the separate runs and the
// paired rounds call these same three.
void demosaic_frame(Frame& frame, int level, QN_COLOR_FORMAT format) {
  qn_demosaic_transform_test_16_to_48(frame.width, frame.height, 0, 0, QN_CFA_PHASE_RED, format,
                                      QN_COLOR_FILTER_TYPE_BAYER, 16, frame.input.data(),
                                      frame.output.data(), level);
}

// OpenCV's bilinear 16-bit demosaic on one thread, red at the origin as
// phase 0.
class Opencv_demosaic {
 public:
  explicit Opencv_demosaic(Frame& frame)
      : mosaic_(frame.height, frame.width, CV_16UC1, frame.input.data()),
        bgr_(frame.height, frame.width, CV_16UC3, frame.output.data()) {
    cv::setNumThreads(1);
  }
  void operator()() { cv::demosaicing(mosaic_, bgr_, cv::COLOR_BayerBG2BGR); }

 private:
  cv::Mat mosaic_;
  cv::Mat bgr_;
};

// std::fill of the output, a new value every call.
class Output_fill {
 public:
  explicit Output_fill(Frame& frame) : frame_(frame) {}
  void operator()() {
    std::fill(frame_.output.begin(), frame_.output.end(), value_);
    ++value_;
  }

 private:
  Frame& frame_;
  std::uint16_t value_ = 1;
};

// The memory traffic of a transform without its arithmetic: every input
// sample read once and the output written with non-temporal stores, as the
// companions stream large frames. Nothing can demosaic a frame that is not
// already in the caches faster than this. Timed in runs of its own: within
// the paired rounds its streams slowed the next calls of other contestants
// (the fill at 640x480 by half).
void bm_roof(benchmark::State& state, Frame_size size) {
  Frame frame(size);
  auto const* in = reinterpret_cast<__m128i const*>(frame.input.data());
  auto* out = reinterpret_cast<__m128i*>(frame.output.data());
  // Eight samples in, twenty-four out; the output, from the allocator, is
  // 16-byte aligned, and the tail of an odd size is left out.
  std::size_t const vectors = frame.input.size() / 8;
  for (auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores): loop idiom
    for (std::size_t i = 0; i < vectors; ++i) {
      __m128i const samples = _mm_loadu_si128(in + i);
      _mm_stream_si128(out + 3 * i, samples);
      _mm_stream_si128(out + 3 * i + 1, samples);
      _mm_stream_si128(out + 3 * i + 2, samples);
    }
    _mm_sfence();
    benchmark::ClobberMemory();
  }
  count_frame(state, frame, transform_bytes_per_pixel);
}

void bm_library(benchmark::State& state, int level, QN_COLOR_FORMAT format, Frame_size size) {
  if (!level_usable(level)) {
    state.SkipWithError(
        (std::string("level ") + level_names[level] + " is not usable on this processor").c_str());
    return;
  }
  Frame frame(size);
  for (auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores): loop idiom
    demosaic_frame(frame, level, format);
    benchmark::ClobberMemory();
  }
  count_frame(state, frame, transform_bytes_per_pixel);
}

void bm_opencv(benchmark::State& state, Frame_size size) {
  Frame frame(size);
  Opencv_demosaic opencv(frame);
  for (auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores): loop idiom
    opencv();
    benchmark::ClobberMemory();
  }
  count_frame(state, frame, transform_bytes_per_pixel);
}

void bm_fill(benchmark::State& state, Frame_size size) {
  Frame frame(size);
  Output_fill fill(frame);
  for (auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores): loop idiom
    fill();
    benchmark::ClobberMemory();
  }
  count_frame(state, frame, 6);
}

// The kernel alone under one store plan, whatever the companion would
// choose for the size.
void bm_plan(benchmark::State& state, int level, QN_COLOR_FORMAT format, bool streaming,
             bool narrow, Frame_size size) {
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
  oqa_vector::Interior_request request =
      oqa_vector::describe_interior(frame.width, frame.height, 0, 0, QN_CFA_PHASE_RED, format,
                                    frame.input.data(), frame.output.data());
  request.streaming = streaming;
  request.narrow_vectors = narrow;
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
  Frame frame(size);
  for (auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores): loop idiom
    demosaic_frame(frame, level, QN_COLOR_FORMAT_BGR_INTERLEAVED);
    benchmark::ClobberMemory();
  }
  count_frame(state, frame, transform_bytes_per_pixel);
}

// Milliseconds per call of every level in every format, of OpenCV and of the
// fill, for one frame size, from the paired run.
struct Paired_times {
  std::vector<double> library[3][4];
  std::vector<double> opencv;
  std::vector<double> fill;
};

// Filled by bm_paired, read by the summary; keyed by the size's name.
std::map<std::string, Paired_times>& paired_times() {
  static std::map<std::string, Paired_times> times;
  return times;
}

// One round per iteration: each usable level in each format, OpenCV and the
// fill, each called twice in a row and the second call timed, on the same
// buffers, starting one contestant later every round. The summary's ratios
// then come from calls made within milliseconds of each other, which a
// shared machine whose speed drifts from minute to minute would otherwise
// skew by 10-20%.
void bm_paired(benchmark::State& state, Frame_size size, std::string const& key) {
  Frame frame(size);
  Paired_times& times = paired_times()[key];
  std::vector<std::pair<std::vector<double>*, std::function<void()>>> contestants;
  for (int format = 0; format < 3; ++format) {
    for (int level = 0; level <= 3; ++level) {
      if (level_usable(level)) {
        contestants.emplace_back(&times.library[format][level], [&frame, format, level] {
          demosaic_frame(frame, level, static_cast<QN_COLOR_FORMAT>(format));
        });
      }
    }
  }
  contestants.emplace_back(&times.opencv, Opencv_demosaic(frame));
  contestants.emplace_back(&times.fill, Output_fill(frame));
  std::size_t first = 0;
  for (auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores): loop idiom
    for (std::size_t k = 0; k < contestants.size(); ++k) {
      auto& [samples, call] = contestants[(first + k) % contestants.size()];
      // Untimed first, so that the timed call finds the caches as its own
      // previous call left them, as in a stream of frames.
      call();
      benchmark::ClobberMemory();
      auto const start = std::chrono::steady_clock::now();
      call();
      benchmark::ClobberMemory();
      samples->push_back(
          std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
              .count());
    }
    first = (first + 1) % contestants.size();
  }
}

std::string size_name(Frame_size size) {
  return std::to_string(size.width) + "x" + std::to_string(size.height);
}

std::string library_run(int level, int format, Frame_size const& size) {
  return std::string("demosaic/") + level_names[level] + "/" + format_names[format] + "/" +
         size_name(size);
}

benchmark::internal::Benchmark* in_milliseconds(benchmark::internal::Benchmark* benchmark) {
  return benchmark->Unit(benchmark::kMillisecond)->UseRealTime();
}

void register_benchmarks(std::vector<int> const& thread_counts, bool plans) {
  for (Frame_size const size : frame_sizes) {
    for (int format = 0; format < 3; ++format) {
      for (int level = 0; level <= 3; ++level) {
        std::string const name = library_run(level, format, size);
        in_milliseconds(benchmark::RegisterBenchmark(name.c_str(), bm_library, level,
                                                     static_cast<QN_COLOR_FORMAT>(format), size));
      }
    }
    std::string const opencv = "opencv/bgr_interleaved/" + size_name(size);
    in_milliseconds(benchmark::RegisterBenchmark(opencv.c_str(), bm_opencv, size));
    std::string const fill = "fill/" + size_name(size);
    in_milliseconds(benchmark::RegisterBenchmark(fill.c_str(), bm_fill, size));
    std::string const roof = "roof/" + size_name(size);
    in_milliseconds(benchmark::RegisterBenchmark(roof.c_str(), bm_roof, size));
    // A few seconds of rounds at every size, and never fewer than fifteen:
    // the largest frames are bound by memory, where the levels are within a few
    // per cent of each other.
    std::string const paired = "paired/" + size_name(size);
    auto const rounds = std::max<std::int64_t>(
        15, std::int64_t{150'000'000} / (std::int64_t{size.width} * size.height));
    in_milliseconds(benchmark::RegisterBenchmark(paired.c_str(), bm_paired, size, size_name(size)))
        ->Iterations(rounds)
        ->Repetitions(1);
    if (!plans) {
      continue;
    }
    for (int level = 1; level <= 3; ++level) {
      for (int format = 0; format < 2; ++format) {
        for (bool const streaming : {false, true}) {
          for (bool const narrow : {false, true}) {
            if (narrow && level != 3) {
              continue;
            }
            std::string const name = std::string("plan/") + level_names[level] + "/" +
                                     format_names[format] +
                                     (streaming ? "/streaming" : "/regular") +
                                     (narrow ? "/256" : "") + "/" + size_name(size);
            in_milliseconds(benchmark::RegisterBenchmark(name.c_str(), bm_plan, level,
                                                         static_cast<QN_COLOR_FORMAT>(format),
                                                         streaming, narrow, size));
          }
        }
      }
    }
  }
  // An odd width and height take the scalar traversals that handle an
  // unpaired last column and row; beside 1920x1080 they show whether those
  // keep up.
  Frame_size const odd_size{1919, 1079, 0, 0};
  std::string const odd = library_run(0, bgr_interleaved, odd_size);
  in_milliseconds(benchmark::RegisterBenchmark(odd.c_str(), bm_library, 0,
                                               QN_COLOR_FORMAT_BGR_INTERLEAVED, odd_size));
  Frame_size const threaded_size{3840, 2160, 0, 0};
  int const level = best_usable_level();
  std::string const name =
      std::string("threads/") + level_names[level] + "/bgr_interleaved/" + size_name(threaded_size);
  auto* threaded =
      in_milliseconds(benchmark::RegisterBenchmark(name.c_str(), bm_threads, level, threaded_size));
  for (int const threads : thread_counts) {
    threaded->Threads(threads);
  }
}

char const* yes_no(bool value) { return value ? "yes" : "no"; }

// Keeps the pixel rate of the threaded runs (the median when there are
// repetitions) for the summary, whose times come from the paired rounds.
class Summary_reporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(std::vector<Run> const& runs) override {
    for (Run const& run : runs) {
      bool const median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
      if (run.error_occurred || (run.run_type == Run::RT_Aggregate && !median)) {
        continue;
      }
      std::string const name = run.run_name.str();
      if (median || items_per_second_.count(name) == 0 || run.repetitions <= 1) {
        auto const rate = run.counters.find("items_per_second");
        items_per_second_[name] = rate != run.counters.end() ? rate->second.value : 0.0;
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }

  void print_summary() const {
    std::printf(
        "\nSummary of the paired rounds: BGR interleaved, medians in ms per frame; best = the "
        "fastest level; planar, rgb = those formats at their fastest level.\n"
        "Targets: best >= 4.5x OpenCV (4x at 7680x4320); best / fill <= 1.5 at 640x480, 1.2 "
        "at 1920x1080, 1.1 above; every level at most 2%% slower than the one below, in every "
        "format; scalar at least as fast as OpenCV; planar and RGB within 10%% of BGR at the "
        "best level. roof = the input read and the output streamed, no arithmetic, in runs of "
        "its own (--benchmark_filter='paired|roof').\n");
    std::printf(
        "%-10s %8s %8s %8s %8s %8s %8s %8s %8s %-7s %8s %8s %8s %8s %8s | %-6s %-6s %-7s %-7s "
        "%-7s\n",
        "size", "opencv", "fill", "roof", "scalar", "sse", "avx2", "avx512", "best", "level",
        "planar", "rgb", "ocv/best", "best/fil", "best/rof", "opencv", "fill", "levels", "scalar",
        "formats");
    // A "no" under levels names its slower levels below the table.
    std::string disorders;
    for (Frame_size const size : frame_sizes) {
      Size_times const measured = times_of(size);
      auto const& times = measured.library;
      double const opencv = measured.opencv;
      double const fill = measured.fill;
      double const roof = roof_milliseconds(size);
      int const best = fastest(times[bgr_interleaved]);
      double const best_time = times[bgr_interleaved][best];
      std::string disorder;
      bool formats_close = true;
      double format_best[3];
      for (int format = 0; format < 3; ++format) {
        for (int level = 1; level <= 3; ++level) {
          if (level_usable(level) &&
              !(times[format][level] <= times[format][level - 1] * level_tolerance)) {
            char line[96];
            std::snprintf(line, sizeof line, " %s %s %.3f > %s %.3f;", format_names[format],
                          level_names[level], times[format][level], level_names[level - 1],
                          times[format][level - 1]);
            disorder += line;
          }
        }
        format_best[format] = times[format][fastest(times[format])];
        formats_close = formats_close && format_best[format] <= best_time * format_tolerance;
      }
      std::printf(
          "%-10s %8.3f %8.3f %8.3f %8.3f %8.3f %8.3f %8.3f %8.3f %-7s %8.3f %8.3f %8.2f %8.2f "
          "%8.2f | %-6s %-6s %-7s %-7s %-7s\n",
          size_name(size).c_str(), opencv, fill, roof, times[bgr_interleaved][0],
          times[bgr_interleaved][1], times[bgr_interleaved][2], times[bgr_interleaved][3],
          best_time, level_names[best], format_best[0], format_best[2], opencv / best_time,
          best_time / fill, best_time / roof, yes_no(opencv / best_time >= size.opencv_factor),
          yes_no(best_time / fill <= size.fill_ceiling), yes_no(disorder.empty()),
          yes_no(times[bgr_interleaved][0] <= opencv), yes_no(formats_close));
      disorders += disorder.empty() ? "" : size_name(size) + ":" + disorder + "\n";
    }
    std::printf("%s", disorders.c_str());
    for (auto const& [name, rate] : items_per_second_) {
      if (name.rfind("threads/", 0) == 0) {
        std::printf("%s: %.2f Gpixel/s aggregate\n", name.c_str(), rate / 1e9);
      }
    }
  }

 private:
  struct Size_times {
    double library[3][4];
    double opencv;
    double fill;
  };

  // The medians of the size's paired rounds; NaN where they did not run.
  static Size_times times_of(Frame_size const& size) {
    Paired_times const& paired = paired_times()[size_name(size)];
    Size_times times{};
    for (int format = 0; format < 3; ++format) {
      for (int level = 0; level <= 3; ++level) {
        times.library[format][level] = median_of(paired.library[format][level]);
      }
    }
    times.opencv = median_of(paired.opencv);
    times.fill = median_of(paired.fill);
    return times;
  }

  // The roof's time per frame from its own run (the median of repetitions).
  double roof_milliseconds(Frame_size const& size) const {
    auto const run = items_per_second_.find("roof/" + size_name(size) + "/real_time");
    if (run == items_per_second_.end() || run->second <= 0) {
      return std::numeric_limits<double>::quiet_NaN();
    }
    return 1e3 * size.width * size.height / run->second;
  }

  static double median_of(std::vector<double> samples) {
    if (samples.empty()) {
      return std::numeric_limits<double>::quiet_NaN();
    }
    auto const middle = samples.begin() + static_cast<std::ptrdiff_t>(samples.size() / 2);
    std::nth_element(samples.begin(), middle, samples.end());
    return *middle;
  }

  // The fastest usable level among one format's times.
  static int fastest(double const (&times)[4]) {
    int best = 0;
    for (int level = 1; level <= 3; ++level) {
      if (level_usable(level) && !(times[level] >= times[best])) {
        best = level;
      }
    }
    return best;
  }

  std::map<std::string, double> items_per_second_;
};

// Takes --flag=value options of this program out of argv before the
// benchmark library sees them.
bool take_option(int& argc, char** argv, char const* prefix, std::string& value) {
  std::size_t const length = std::strlen(prefix);
  for (int i = 1; i < argc; ++i) {
    if (std::strncmp(argv[i], prefix, length) == 0) {
      value = argv[i] + length;
      for (int j = i; j + 1 < argc; ++j) {
        argv[j] = argv[j + 1];
      }
      --argc;
      return true;
    }
  }
  return false;
}

std::vector<int> thread_counts(std::string const& list) {
  std::vector<int> counts;
  for (char const* cursor = list.c_str(); *cursor != '\0';) {
    char* end = nullptr;
    long const count = std::strtol(cursor, &end, 10);
    if (end == cursor || count < 1) {
      break;
    }
    counts.push_back(static_cast<int>(count));
    cursor = *end == ',' ? end + 1 : end;
  }
  return counts;
}

}  // namespace

int main(int argc, char** argv) {
  std::string threads = "1,2";
  take_option(argc, argv, "--threads=", threads);
  std::string unused;
  bool const plans = take_option(argc, argv, "--plans", unused);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 1;
  }
  qn_demosaic_module_initialize();
  register_benchmarks(thread_counts(threads), plans);
  Summary_reporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.print_summary();
  benchmark::Shutdown();
  qn_demosaic_module_terminate();
  return 0;
}
