// Use of the installed library from C++: demosaic a frame through the
// default entry and at every instruction-set level, require identical
// output, and check that the companion and logger libraries installed beside
// the library were actually loaded by initialise (so the install is usable
// as it stands). Exit status 0 on success.
#include <dlfcn.h>
#include <link.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "ostrevan_oqa_demosaic.h"

namespace {

constexpr int width = 641;
constexpr int height = 479;

std::vector<std::uint16_t> demosaic(std::vector<std::uint16_t> const& mosaic, int level) {
  std::vector<std::uint16_t> image(std::size_t{3} * width * height);
  auto const phase = QN_CFA_PHASE_GREEN_IN_RED_ROW;
  auto const format = QN_COLOR_FORMAT_RGB_INTERLEAVED;
  int const result = level < 0 ? qn_demosaic_transform_16_to_48(width, height, 1, 0, phase, format,
                                                                QN_COLOR_FILTER_TYPE_BAYER, 16,
                                                                mosaic.data(), image.data())
                               : qn_demosaic_transform_test_16_to_48(
                                     width, height, 1, 0, phase, format, QN_COLOR_FILTER_TYPE_BAYER,
                                     16, mosaic.data(), image.data(), level);
  if (result != QN_DEMOSAIC_NO_ERROR) {
    std::fprintf(stderr, "level %d: result %d\n", level, result);
    image.clear();
  }
  return image;
}

// File names of every object mapped into the process.
std::set<std::string> loaded_file_names() {
  std::set<std::string> names;
  dl_iterate_phdr(
      [](dl_phdr_info* info, std::size_t, void* data) {
        if (info->dlpi_name != nullptr && info->dlpi_name[0] != '\0') {
          static_cast<std::set<std::string>*>(data)->insert(
              std::filesystem::path(info->dlpi_name).filename().string());
        }
        return 0;
      },
      &names);
  return names;
}

// Optional libraries that lie beside the demosaic library but are not loaded.
int missing_neighbours() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&qn_demosaic_module_initialize), &info) == 0 ||
      info.dli_fname == nullptr) {
    std::fprintf(stderr, "cannot locate the demosaic library\n");
    return 1;
  }
  auto const folder = std::filesystem::path(info.dli_fname).parent_path();
  auto const loaded = loaded_file_names();
  int missing = 0;
  for (char const* name :
       {"libostrevan_oqa_demosaic_vector_sse.so", "libostrevan_oqa_demosaic_vector_avx2.so",
        "libostrevan_oqa_demosaic_vector_avx512.so", "libostrevan_oqa_logger.so"}) {
    bool const installed = std::filesystem::exists(folder / name);
    bool const is_loaded = loaded.count(name) != 0;
    std::printf("  %-42s %s\n", name,
                is_loaded   ? "loaded"
                : installed ? "installed but NOT loaded"
                            : "not installed");
    if (installed && !is_loaded) ++missing;
  }
  return missing;
}

}  // namespace

int main() {
  std::mt19937 random(7);
  std::vector<std::uint16_t> mosaic(std::size_t{width} * height);
  for (auto& sample : mosaic) sample = static_cast<std::uint16_t>(random());

  qn_demosaic_module_initialize();
  int failures = missing_neighbours();
  auto const scalar = demosaic(mosaic, 0);
  if (scalar.empty()) ++failures;
  // -1 stands for the default entry, which runs the level initialise chose.
  for (int level : {-1, 1, 2, 3}) {
    if (demosaic(mosaic, level) != scalar) {
      std::fprintf(stderr, "level %d differs from the scalar output\n", level);
      ++failures;
    }
  }
  qn_demosaic_module_terminate();

  std::printf("C++ consumer: %s\n", failures == 0 ? "ok" : "FAILED");
  return failures == 0 ? 0 : 1;
}
