// Every companion against the scalar interior, byte for byte, through the
// companion's own transform entry. Output buffers carry guard zones, and the
// border pixels keep the sentinel because the scalar interior never writes
// them either.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <random>
#include <thread>
#include <utility>
#include <vector>

#include "vector_test_support.h"

namespace vector_test {
namespace {

constexpr std::uint16_t sentinel = 0xA5C3;

class Interior_equivalence : public ::testing::TestWithParam<Level> {
 protected:
  void SetUp() override {
    companion_ = std::make_unique<Companion>(GetParam());
    ASSERT_TRUE(companion_->loaded()) << "companion library for " << GetParam().isa << " missing";
    if (!companion_->usable) {
      GTEST_SKIP() << "level " << GetParam().isa << " (" << GetParam().number
                   << ") is not supported by this processor";
    }
  }

  // Runs both implementations on the same input and compares the whole
  // guarded output; returns false (after reporting) on the first mismatch.
  bool matches_scalar(std::vector<std::uint16_t> const& input, int width, int height, int origin_x,
                      int origin_y, QN_COLOR_FILTER_ARRAY_PHASE phase, QN_COLOR_FORMAT format) {
    Guarded_output expected(width, height, sentinel);
    Guarded_output actual(width, height, sentinel);
    scalar_interior(format, width, height, origin_x, origin_y, phase, input, expected.image());
    companion_->transform(width, height, origin_x, origin_y, phase, format, input.data(),
                          actual.image());
    if (expected.whole() == actual.whole()) {
      return true;
    }
    std::size_t first = 0;
    while (expected.whole()[first] == actual.whole()[first]) {
      ++first;
    }
    ADD_FAILURE() << GetParam().isa << ": " << width << "x" << height << " origin (" << origin_x
                  << "," << origin_y << ") phase " << phase << " format " << format
                  << ": first difference at buffer sample " << first << " (guard "
                  << Guarded_output::guard << ")";
    return false;
  }

  std::unique_ptr<Companion> companion_;
};

TEST_P(Interior_equivalence, EverySizeUpTo40) {
  std::mt19937 random(1);
  for (int height = 2; height <= 40; ++height) {
    for (int width = 2; width <= 40; ++width) {
      auto const input = random_mosaic(width, height, random);
      ASSERT_TRUE(matches_scalar(input, width, height, 0, 0, QN_CFA_PHASE_RED,
                                 QN_COLOR_FORMAT_BGR_INTERLEAVED));
    }
  }
}

TEST_P(Interior_equivalence, RandomSizesEveryPhaseFormatAndOriginParity) {
  std::mt19937 random(2);
  std::uniform_int_distribution<int> long_side(2, 1000);
  std::uniform_int_distribution<int> short_side(2, 40);
  std::uniform_int_distribution<int> origin(-3, 3);
  for (int phase = 0; phase < 4; ++phase) {
    for (int format = 0; format < 3; ++format) {
      for (int parities = 0; parities < 4; ++parities) {
        int const origin_x = 2 * origin(random) + (parities & 1);
        int const origin_y = 2 * origin(random) + (parities >> 1);
        for (bool const wide : {true, false}) {
          int const width = wide ? long_side(random) : short_side(random);
          int const height = wide ? short_side(random) : long_side(random);
          auto const input = random_mosaic(width, height, random);
          ASSERT_TRUE(matches_scalar(input, width, height, origin_x, origin_y,
                                     static_cast<QN_COLOR_FILTER_ARRAY_PHASE>(phase),
                                     static_cast<QN_COLOR_FORMAT>(format)));
        }
      }
    }
  }
}

// Interior widths (width - 2) around every multiple of the vector widths in
// 16-bit lanes (8, 16, 32): whole vectors, overlapped last vectors of both
// parities, and rows shorter than one vector.
TEST_P(Interior_equivalence, WidthsAroundVectorBoundaries) {
  std::mt19937 random(3);
  for (int const lanes : {8, 16, 32}) {
    for (int multiple = 1; multiple <= 3; ++multiple) {
      for (int delta = -2; delta <= 2; ++delta) {
        int const width = lanes * multiple + delta + 2;
        for (int format = 0; format < 3; ++format) {
          for (int phase = 0; phase < 4; ++phase) {
            auto const input = random_mosaic(width, 7, random);
            ASSERT_TRUE(matches_scalar(input, width, 7, phase & 1, phase >> 1,
                                       static_cast<QN_COLOR_FILTER_ARRAY_PHASE>(phase),
                                       static_cast<QN_COLOR_FORMAT>(format)));
          }
        }
      }
    }
  }
}

// Frames past the smallest sizes at which the entry may switch to
// non-temporal stores (whether it does depends on this processor's cache;
// the kernels' streaming path is tested on its own in streaming_store_test).
TEST_P(Interior_equivalence, FramesLargeEnoughForStreamingStores) {
  std::mt19937 random(9);
  auto const wide = random_mosaic(2402, 1210, random);
  ASSERT_TRUE(matches_scalar(wide, 2402, 1210, 0, 0, QN_CFA_PHASE_GREEN_IN_BLUE_ROW,
                             QN_COLOR_FORMAT_RGB_INTERLEAVED));
  auto const tall = random_mosaic(3001, 2400, random);
  ASSERT_TRUE(matches_scalar(tall, 3001, 2400, 1, 1, QN_CFA_PHASE_RED, QN_COLOR_FORMAT_BGR_PLANAR));
}

// Saturated and alternating samples exercise the rounding at the top of the
// 16-bit range, where a wider sum would carry.
TEST_P(Interior_equivalence, ExtremeSamples) {
  int const width = 71;
  int const height = 9;
  std::size_t const count = static_cast<std::size_t>(width) * height;
  std::vector<std::vector<std::uint16_t>> inputs(5, std::vector<std::uint16_t>(count));
  for (std::size_t i = 0; i < count; ++i) {
    std::size_t const row = i / width;
    std::size_t const column = i % width;
    inputs[0][i] = 0;
    inputs[1][i] = 65535;
    inputs[2][i] = (row + column) % 2 == 0 ? 65535 : 0;
    inputs[3][i] = column % 2 == 0 ? 65535 : 65534;
    inputs[4][i] = row % 2 == 0 ? 1 : 65535;
  }
  for (auto const& input : inputs) {
    for (int format = 0; format < 3; ++format) {
      for (int phase = 0; phase < 4; ++phase) {
        ASSERT_TRUE(matches_scalar(input, width, height, 0, 0,
                                   static_cast<QN_COLOR_FILTER_ARRAY_PHASE>(phase),
                                   static_cast<QN_COLOR_FORMAT>(format)));
      }
    }
  }
}

// Two different sentinels: a border sample that happened to equal the
// sentinel cannot hide a write.
TEST_P(Interior_equivalence, BorderPixelsAreNeverWritten) {
  std::mt19937 random(4);
  int const width = 67;
  int const height = 5;
  auto const input = random_mosaic(width, height, random);
  for (std::uint16_t const fill : {std::uint16_t{0}, std::uint16_t{0xFFFF}}) {
    for (int format = 0; format < 3; ++format) {
      Guarded_output output(width, height, fill);
      companion_->transform(width, height, 0, 0, QN_CFA_PHASE_GREEN_IN_BLUE_ROW,
                            static_cast<QN_COLOR_FORMAT>(format), input.data(), output.image());
      std::size_t const plane = static_cast<std::size_t>(width) * height;
      for (std::size_t pixel = 0; pixel < plane; ++pixel) {
        std::size_t const row = pixel / width;
        std::size_t const column = pixel % width;
        if (row != 0 && column != 0 && row + 1 != static_cast<std::size_t>(height) &&
            column + 1 != static_cast<std::size_t>(width)) {
          continue;
        }
        for (std::size_t channel = 0; channel < 3; ++channel) {
          std::size_t const index = format == 0 ? channel * plane + pixel : 3 * pixel + channel;
          ASSERT_EQ(output.image()[index], fill) << "format " << format << " pixel " << pixel;
        }
      }
    }
  }
}

TEST_P(Interior_equivalence, WidthOrHeightTwoWritesNothing) {
  std::vector<std::uint16_t> const input(2 * 50, 1234);
  for (auto const& [width, height] : {std::pair{2, 50}, std::pair{50, 2}, std::pair{2, 2}}) {
    Guarded_output output(width, height, sentinel);
    auto const before = output.whole();
    companion_->transform(width, height, 0, 0, QN_CFA_PHASE_RED, QN_COLOR_FORMAT_BGR_PLANAR,
                          input.data(), output.image());
    EXPECT_EQ(output.whole(), before) << width << "x" << height;
  }
}

TEST_P(Interior_equivalence, RejectsBadArgumentsWithoutWriting) {
  std::vector<std::uint16_t> const input(16, 7);
  Guarded_output output(4, 4, sentinel);
  auto const before = output.whole();
  auto* const out = output.image();
  EXPECT_EQ(companion_->transform(1, 4, 0, 0, QN_CFA_PHASE_RED, QN_COLOR_FORMAT_BGR_PLANAR,
                                  input.data(), out),
            QN_DEMOSAIC_INVALID_IMAGE_WIDTH);
  EXPECT_EQ(
      companion_->transform(4, 4, 0, 0, QN_CFA_PHASE_RED, QN_COLOR_FORMAT_BGR_PLANAR, nullptr, out),
      QN_DEMOSAIC_NULL_INPUT_BUFFER);
  EXPECT_EQ(companion_->transform(4, 4, 0, 0, static_cast<QN_COLOR_FILTER_ARRAY_PHASE>(4),
                                  QN_COLOR_FORMAT_BGR_PLANAR, input.data(), out),
            QN_DEMOSAIC_INVALID_COLOR_FILTER_ARRAY_PHASE);
  EXPECT_EQ(companion_->transform(4, 4, 0, 0, QN_CFA_PHASE_RED, static_cast<QN_COLOR_FORMAT>(3),
                                  input.data(), out),
            QN_DEMOSAIC_INVALID_OUTPUT_COLOR_FORMAT);
  EXPECT_EQ(output.whole(), before);
}

// The entry keeps all its state on the stack: concurrent calls on different
// images give the single-threaded results (ThreadSanitizer watches the rest).
TEST_P(Interior_equivalence, ConcurrentCallsOnDifferentImages) {
  int const width = 301;
  int const height = 37;
  std::mt19937 random(5);
  std::vector<std::vector<std::uint16_t>> inputs;
  std::vector<std::vector<std::uint16_t>> expected;
  inputs.reserve(3);
  expected.reserve(3);
  for (int format = 0; format < 3; ++format) {
    inputs.push_back(random_mosaic(width, height, random));
    expected.emplace_back(3 * static_cast<std::size_t>(width) * height, 0);
    scalar_interior(static_cast<QN_COLOR_FORMAT>(format), width, height, 0, 0, QN_CFA_PHASE_BLUE,
                    inputs.back(), expected.back().data());
  }
  std::vector<std::vector<std::uint16_t>> outputs(
      3, std::vector<std::uint16_t>(3 * static_cast<std::size_t>(width) * height, 0));
  std::vector<std::thread> threads;
  threads.reserve(3);
  for (int format = 0; format < 3; ++format) {
    threads.emplace_back([&, format] {
      for (int repeat = 0; repeat < 20; ++repeat) {
        companion_->transform(width, height, 0, 0, QN_CFA_PHASE_BLUE,
                              static_cast<QN_COLOR_FORMAT>(format), inputs[format].data(),
                              outputs[format].data());
      }
    });
  }
  for (auto& thread : threads) {
    thread.join();
  }
  for (int format = 0; format < 3; ++format) {
    EXPECT_EQ(outputs[format], expected[format]) << "format " << format;
  }
}

INSTANTIATE_TEST_SUITE_P(Sse, Interior_equivalence, ::testing::Values(Level{"sse", 1}),
                         [](auto const& info) { return level_name(info.param); });
INSTANTIATE_TEST_SUITE_P(Avx2, Interior_equivalence, ::testing::Values(Level{"avx2", 2}),
                         [](auto const& info) { return level_name(info.param); });
INSTANTIATE_TEST_SUITE_P(Avx512, Interior_equivalence, ::testing::Values(Level{"avx512", 3}),
                         [](auto const& info) { return level_name(info.param); });

}  // namespace
}  // namespace vector_test
