// The element's work on one frame, in its parts: the library on the whole
// frame, the widening alone, and the element's strip-by-strip demosaic and
// widening, per strip height and widening path, and per thread count
// beside a plain fill of the output frame. Milliseconds per frame.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "band_workers.h"
#include "library_session.h"
#include "ostrevan_oqa_demosaic.h"
#include "rgba_output.h"

namespace {

struct Frame {
  int width;
  int height;
};

constexpr Frame frames[] = {{1920, 1080}, {3840, 2160}};
constexpr const char* path_names[] = {"scalar", "ssse3", "avx2", "avx2_streaming"};

std::size_t pixels(Frame frame) {
  return static_cast<std::size_t>(frame.width) * static_cast<std::size_t>(frame.height);
}

std::vector<std::uint16_t> mosaic(Frame frame) {
  std::vector<std::uint16_t> samples(pixels(frame));
  for (std::size_t index = 0; index < samples.size(); ++index) {
    samples[index] = static_cast<std::uint16_t>(index * 2654435761U >> 16);
  }
  return samples;
}

oqa_gst::Frame_request request(Frame frame) {
  return {frame.width, frame.height, 0, 0, QN_CFA_PHASE_RED, QN_COLOR_FORMAT_RGB_INTERLEAVED, -1};
}

void finish(benchmark::State& state, Frame frame) {
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * pixels(frame)));
}

// The library alone, whole frame, into a buffer of triples.
void library_whole_frame(benchmark::State& state, Frame frame) {
  const auto input = mosaic(frame);
  std::vector<std::uint16_t> triples(pixels(frame) * 3);
  for (auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores): loop idiom
    benchmark::DoNotOptimize(qn_demosaic_transform_16_to_48(
        frame.width, frame.height, 0, 0, QN_CFA_PHASE_RED, QN_COLOR_FORMAT_RGB_INTERLEAVED,
        QN_COLOR_FILTER_TYPE_BAYER, 16, input.data(), triples.data()));
    benchmark::ClobberMemory();
  }
  finish(state, frame);
}

// The widening alone, from a frame of triples already in memory.
void widening(benchmark::State& state, Frame frame, oqa_gst::Widening_path path) {
  const std::vector<std::uint16_t> triples(pixels(frame) * 3, 7);
  std::vector<std::byte> output(pixels(frame) * 8);
  for (auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores): loop idiom
    oqa_gst::widen_rows(triples.data(), output.data(), static_cast<std::size_t>(frame.width),
                        static_cast<std::size_t>(frame.height),
                        static_cast<std::size_t>(frame.width) * 8, path);
    benchmark::ClobberMemory();
  }
  finish(state, frame);
}

// What the element does per frame.
void element_work(benchmark::State& state, Frame frame, oqa_gst::Widening_path path,
                  std::size_t strip_rows) {
  const auto input = mosaic(frame);
  std::vector<std::byte> output(pixels(frame) * 8);
  std::vector<std::uint16_t> strip;
  for (auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores): loop idiom
    benchmark::DoNotOptimize(oqa_gst::demosaic_to_quadruples(
        request(frame), input.data(), output.data(), static_cast<std::size_t>(frame.width) * 8,
        {0, static_cast<std::size_t>(frame.height)}, strip_rows, path, strip));
    benchmark::ClobberMemory();
  }
  finish(state, frame);
}

// The element's work shared by threads, in bands as the element shares it,
// through the widening gate or, to show what it brings, without.
void element_threads(benchmark::State& state, Frame frame, unsigned threads, bool gated) {
  const auto input = mosaic(frame);
  std::vector<std::byte> output(pixels(frame) * 8);
  const auto width = static_cast<std::size_t>(frame.width);
  const auto height = static_cast<std::size_t>(frame.height);
  const oqa_gst::Widening_path path = oqa_gst::choose_widening_path(output.size());
  oqa_gst::Band_workers workers(threads);
  std::vector<std::vector<std::uint16_t>> strips(workers.threads());
  const std::size_t strip_rows = oqa_gst::rows_per_strip(width, workers.threads());
  for (auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores): loop idiom
    oqa_gst::Widening_gate gate(workers.threads());
    workers.run([&](unsigned band) {
      benchmark::DoNotOptimize(
          oqa_gst::demosaic_to_quadruples(request(frame), input.data(), output.data(), width * 8,
                                          oqa_gst::band_of(height, strips.size(), band), strip_rows,
                                          path, strips[band], gated ? &gate : nullptr));
    });
    benchmark::ClobberMemory();
  }
  finish(state, frame);
}

// The floor: a plain fill of the output frame.
void output_fill(benchmark::State& state, Frame frame) {
  std::vector<std::uint64_t> output(pixels(frame));
  for (auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores): loop idiom
    std::fill(output.begin(), output.end(), state.iterations());
    benchmark::ClobberMemory();
  }
  finish(state, frame);
}

}  // namespace

// Registers one benchmark named from its parts, timed in milliseconds.
template <typename... Arguments>
void add(const std::string& group, Frame frame, const std::string& variant,
         Arguments&&... arguments) {
  std::string name = group;
  name += '/';
  name += std::to_string(frame.width);
  name += 'x';
  name += std::to_string(frame.height);
  if (!variant.empty()) {
    name += '/';
    name += variant;
  }
  benchmark::RegisterBenchmark(name.c_str(), std::forward<Arguments>(arguments)...)
      ->Unit(benchmark::kMillisecond)
      ->UseRealTime();
}

int main(int argc, char** argv) {
  if (oqa_session::initialise_library() != QN_DEMOSAIC_NO_ERROR) {
    return 1;
  }
  const std::vector<oqa_gst::Widening_path> paths = oqa_gst::usable_widening_paths();
  for (const Frame frame : frames) {
    add("library_whole_frame", frame, "", library_whole_frame, frame);
    for (const oqa_gst::Widening_path path : paths) {
      add("widening", frame, path_names[static_cast<int>(path)], widening, frame, path);
    }
    const std::size_t element_rows =
        oqa_gst::rows_per_strip(static_cast<std::size_t>(frame.width), 1);
    for (const std::size_t rows : {std::size_t{32}, std::size_t{64}, std::size_t{128},
                                   std::size_t{256}, std::size_t{512}, element_rows}) {
      std::string variant = "strip_rows:" + std::to_string(rows);
      if (rows == element_rows) {
        variant += "(element)";
      }
      add("element", frame, variant, element_work, frame,
          oqa_gst::choose_widening_path(pixels(frame) * 8), rows);
    }
    add("output_fill", frame, "", output_fill, frame);
    for (unsigned threads = 1; threads <= std::thread::hardware_concurrency(); ++threads) {
      const std::string variant = "threads:" + std::to_string(threads);
      add("element_threads", frame, variant, element_threads, frame, threads, true);
      if (threads > 1) {
        add("element_threads", frame, variant + "/ungated", element_threads, frame, threads, false);
      }
    }
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  qn_demosaic_module_terminate();
  return 0;
}
