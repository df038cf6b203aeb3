// Shared pieces of the stress tests: the run time, the cases with their
// expected output, and what is mapped into the process.
#ifndef OQA_TESTS_STRESS_STRESS_SUPPORT_H
#define OQA_TESTS_STRESS_STRESS_SUPPORT_H

#include <link.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "bayer_reference_model.h"
#include "library_test_support.h"

namespace stress {

// Every stress loop runs this long; OQA_STRESS_SECONDS overrides the default.
inline std::chrono::steady_clock::time_point deadline(double default_seconds = 3.0) {
  double seconds = default_seconds;
  if (char const* text = std::getenv("OQA_STRESS_SECONDS")) seconds = std::atof(text);
  return std::chrono::steady_clock::now() +
         std::chrono::duration_cast<std::chrono::steady_clock::duration>(
             std::chrono::duration<double>(seconds));
}

struct Case {
  int width;
  int height;
  int origin_x;
  int origin_y;
  int phase;
  int format;
  std::vector<std::uint16_t> input;
  std::vector<std::uint16_t> expected;  // from the independent per-pixel model
};

// Sizes with both parities, every phase and format, odd and negative origins.
inline std::vector<Case> make_cases(int count) {
  std::vector<Case> cases;
  for (int i = 0; i < count; ++i) {
    Case c{2 + (i * 37) % 131, 2 + (i * 53) % 97, i % 3 - 1, (i / 3) % 2, i % 4, i % 3, {}, {}};
    c.input = test_support::random_mosaic(c.width, c.height, 1000 + static_cast<unsigned>(i));
    c.expected = reference::model_image(c.input, c.width, c.height, c.origin_x, c.origin_y, c.phase,
                                        c.format);
    cases.push_back(std::move(c));
  }
  return cases;
}

inline bool transform_is_exact(Case const& c, int level) {
  return test_support::transform(c.input, c.width, c.height, c.phase, c.format, level, c.origin_x,
                                 c.origin_y) == c.expected;
}

// True while any mapped object's file name contains `part`.
inline bool is_mapped(std::string const& part) {
  struct Search {
    std::string const* part;
    bool found;
  } search{&part, false};
  dl_iterate_phdr(
      [](dl_phdr_info* info, std::size_t, void* data) {
        auto* s = static_cast<Search*>(data);
        if (info->dlpi_name != nullptr &&
            std::string(info->dlpi_name).find(*s->part) != std::string::npos) {
          s->found = true;
        }
        return 0;
      },
      &search);
  return search.found;
}

}  // namespace stress

#endif  // OQA_TESTS_STRESS_STRESS_SUPPORT_H
