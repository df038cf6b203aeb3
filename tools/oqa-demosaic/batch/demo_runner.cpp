#include "demo_runner.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>

#include "bayer_pattern.h"
#include "demo_chart.h"
#include "image_io_error.h"
#include "image_writer.h"
#include "output_file.h"
#include "processor_levels.h"

namespace oqa_tool {

namespace {

constexpr int chart_width = 1920;
constexpr int chart_height = 1080;
// The best of a few runs: the first one also pays for page faults.
constexpr int runs_per_level = 5;

double best_seconds(const Mosaic_image& mosaic, const Demosaic_request& request,
                    Colour_image& result) {
  double best = 0.0;
  for (int run = 0; run < runs_per_level; ++run) {
    const auto start = std::chrono::steady_clock::now();
    demosaic(mosaic, request, result);
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    best = run == 0 ? seconds.count() : std::min(best, seconds.count());
  }
  return best;
}

std::string not_offered_levels() {
  std::string names;
  for (const Level level : {Level::sse, Level::avx2, Level::avx512}) {
    if (!processor_offers(level)) {
      names += (names.empty() ? "" : ", ") + level_name(level);
    }
  }
  return names;
}

}  // namespace

int run_demo(const Tool_options& options) {
  const std::string& target = *options.demo_output;
  const std::optional<Output_type> by_name = output_type_of_path(target);
  if (!by_name && !options.type_given) {
    std::fprintf(stderr,
                 "oqa-demosaic: %s: cannot tell the output type from the name; end it in .tif, "
                 ".tiff, .png, .ppm, .fits or .raw, or give --type\n",
                 target.c_str());
    return 1;
  }
  const Output_type type = by_name.value_or(options.type);
  try {
    // Claim the output first: an existing file should stop the demo at once.
    const Output_place place = place_of(target);
    const Output_folder folder(place.folder);
    Atomic_output_file output(folder, place.name, options.force);
    const QN_COLOR_FILTER_ARRAY_PHASE phase = options.pattern.value_or(QN_CFA_PHASE_RED);
    const Mosaic_image mosaic = mosaic_of(make_demo_chart(chart_width, chart_height), phase);
    std::printf("Demosaicing a %dx%d %s test chart (colour bars, gradients, zone plate, text)\n",
                chart_width, chart_height, pattern_name(phase).c_str());

    Demosaic_request request{phase, 0, 0, format_for(type, options.buffer_layout), Level::scalar};
    Colour_image reference;
    Colour_image result;
    bool agree = true;
    const std::vector<Level> levels = offered_levels();
    for (const Level level : levels) {
      request.level = level;
      Colour_image& destination = level == Level::scalar ? reference : result;
      const double seconds = best_seconds(mosaic, request, destination);
      const bool same = level == Level::scalar || destination.samples == reference.samples;
      agree = agree && same;
      std::printf("  %-7s %8.3f ms  %8.1f Mpixel/s%s\n", level_name(level).c_str(), seconds * 1e3,
                  chart_width * static_cast<double>(chart_height) / seconds / 1e6,
                  same ? "" : "  DIFFERS from scalar");
    }
    const std::string missing = not_offered_levels();
    if (!missing.empty()) {
      std::printf("  (cannot run here: %s)\n", missing.c_str());
    }
    if (!agree) {
      std::fprintf(stderr, "oqa-demosaic: the levels disagree; %s not written\n", target.c_str());
      return 1;
    }
    if (levels.size() > 1) {
      std::printf("All %zu levels agree byte for byte.\n", levels.size());
    }
    Write_settings settings = options.write;
    settings.threads = std::max(1U, std::thread::hardware_concurrency());
    write_image(type, output.descriptor(), reference, settings);
    output.commit();
    std::printf("Wrote %s\n", target.c_str());
  } catch (const Image_io_error& error) {
    std::fprintf(stderr, "oqa-demosaic: %s: %s\n", target.c_str(), error.what());
    return 1;
  }
  return 0;
}

}  // namespace oqa_tool
