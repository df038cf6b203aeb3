// Shared helpers of the companion tests: loading a companion library as the
// main library does, the scalar reference, and guarded output buffers.
#ifndef OQA_TESTS_VECTOR_VECTOR_TEST_SUPPORT_H
#define OQA_TESTS_VECTOR_VECTOR_TEST_SUPPORT_H

#include <dlfcn.h>

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "engine/interior_demosaic.h"
#include "ostrevan_oqa_demosaic.h"

namespace vector_test {

struct Level {
  char const* isa;  // as in the library and entry names
  int number;       // the library's instruction-set level
};

inline std::string level_name(Level const& level) { return level.isa; }
inline void PrintTo(Level const& level, std::ostream* out) { *out << level.isa; }

using Transform_entry = int (*)(int, int, int, int, QN_COLOR_FILTER_ARRAY_PHASE, QN_COLOR_FORMAT,
                                const unsigned short*, unsigned short*);

// One companion opened from the build's library folder, its entries looked
// up by their contract names. `usable` mirrors the main library's test:
// loaded, all entries present, initialise returned 0.
class Companion {
 public:
  explicit Companion(Level const& level) {
    std::string const isa = level.isa;
    std::string const path =
        std::string(OQA_COMPANION_DIR) + "/libostrevan_oqa_demosaic_vector_" + isa + ".so";
    handle_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle_ == nullptr) {
      return;
    }
    auto* const initialize = reinterpret_cast<int (*)()>(
        dlsym(handle_, ("qn_demosaic_vector_" + isa + "_module_initialize").c_str()));
    transform = reinterpret_cast<Transform_entry>(
        dlsym(handle_, ("qn_demosaic_transform_interior_16_to_48_vector_" + isa).c_str()));
    terminate_ = reinterpret_cast<void (*)()>(
        dlsym(handle_, ("qn_demosaic_vector_" + isa + "_module_terminate").c_str()));
    usable =
        initialize != nullptr && transform != nullptr && terminate_ != nullptr && initialize() == 0;
  }
  ~Companion() {
    if (terminate_ != nullptr) {
      terminate_();
    }
    if (handle_ != nullptr) {
      dlclose(handle_);
    }
  }
  Companion(Companion const&) = delete;
  Companion& operator=(Companion const&) = delete;

  bool loaded() const { return handle_ != nullptr; }

  bool usable = false;
  Transform_entry transform = nullptr;

 private:
  void* handle_ = nullptr;
  void (*terminate_)() = nullptr;
};

inline void scalar_interior(QN_COLOR_FORMAT format, int width, int height, int origin_x,
                            int origin_y, QN_COLOR_FILTER_ARRAY_PHASE phase,
                            std::vector<std::uint16_t> const& input, std::uint16_t* output) {
  with_color_format(format, [&](auto f) {
    demosaic_interior_using_color_phase<f()>(width, height, origin_x, origin_y, input.data(),
                                             output, phase);
  });
}

// An output image with guard zones before and after it, all filled with a
// sentinel; comparing whole buffers also compares the guards.
class Guarded_output {
 public:
  static constexpr std::size_t guard = 64;

  Guarded_output(int width, int height, std::uint16_t sentinel)
      : samples_(3 * static_cast<std::size_t>(width) * static_cast<std::size_t>(height) + 2 * guard,
                 sentinel) {}

  std::uint16_t* image() { return samples_.data() + guard; }
  std::vector<std::uint16_t> const& whole() const { return samples_; }

 private:
  std::vector<std::uint16_t> samples_;
};

inline std::vector<std::uint16_t> random_mosaic(int width, int height, std::mt19937& random) {
  std::vector<std::uint16_t> mosaic(static_cast<std::size_t>(width) *
                                    static_cast<std::size_t>(height));
  std::uniform_int_distribution<unsigned> sample(0, 65535);
  for (auto& value : mosaic) {
    value = static_cast<std::uint16_t>(sample(random));
  }
  return mosaic;
}

}  // namespace vector_test

#endif  // OQA_TESTS_VECTOR_VECTOR_TEST_SUPPORT_H
