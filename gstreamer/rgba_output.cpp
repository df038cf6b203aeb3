#include "rgba_output.h"

#include <immintrin.h>

#include <algorithm>
#include <cstring>

#include "cpu_support.h"
#include "library_session.h"

namespace oqa_gst {
namespace {

constexpr std::size_t triple_bytes = 6;
constexpr std::size_t quadruple_bytes = 8;
// Small enough for the strip to be still in the last-level cache when it is
// widened, large enough that the library's border pass over the two extra
// rows costs little: 271 rows a strip at 1920 pixels, 134 at 3840, both
// measured near the best with gstreamer_rgba_output_bench. Threads sharing a
// frame take strips that stay in a core's own cache: behind the widening
// gate, the first strip's demosaic is time in which nothing is written.
constexpr std::size_t strip_budget_bytes = 3 * 1024 * 1024;
constexpr std::size_t shared_strip_budget_bytes = 1024 * 1024;
// Output frames of this range of sizes are written with streaming stores,
// as measured in pipelines: faster at 1920x1080 (16 MB), slower at 640x480
// (2.5 MB) and at 3840x2160 (66 MB).
constexpr std::size_t streaming_from_bytes = 8 * 1024 * 1024;
constexpr std::size_t streaming_below_bytes = 32 * 1024 * 1024;

// Each function below widens `count` pixels from `source` to `destination`.

void widen_scalar(const std::byte* source, std::byte* destination, std::size_t count) {
  constexpr std::uint64_t opaque = std::uint64_t{0xFFFF} << 48;
  for (std::size_t pixel = 0; pixel < count; ++pixel) {
    std::uint32_t first_two = 0;
    std::uint16_t third = 0;
    std::memcpy(&first_two, source + pixel * triple_bytes, sizeof(first_two));
    std::memcpy(&third, source + pixel * triple_bytes + 4, sizeof(third));
    const std::uint64_t quadruple = first_two | std::uint64_t{third} << 32 | opaque;
    std::memcpy(destination + pixel * quadruple_bytes, &quadruple, sizeof(quadruple));
  }
}

// Four pixels per step: two 16-byte loads cover the 24 source bytes.
__attribute__((target("ssse3"))) void widen_ssse3(const std::byte* source, std::byte* destination,
                                                  std::size_t count) {
  const __m128i first_pair = _mm_setr_epi8(0, 1, 2, 3, 4, 5, -1, -1, 6, 7, 8, 9, 10, 11, -1, -1);
  const __m128i second_pair =
      _mm_setr_epi8(4, 5, 6, 7, 8, 9, -1, -1, 10, 11, 12, 13, 14, 15, -1, -1);
  const __m128i alpha = _mm_setr_epi16(0, 0, 0, -1, 0, 0, 0, -1);
  std::size_t pixel = 0;
  for (; pixel + 4 <= count; pixel += 4) {
    const std::byte* in = source + pixel * triple_bytes;
    const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in));
    const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + 8));
    auto* out = reinterpret_cast<__m128i*>(destination + pixel * quadruple_bytes);
    _mm_storeu_si128(out, _mm_or_si128(_mm_shuffle_epi8(low, first_pair), alpha));
    _mm_storeu_si128(out + 1, _mm_or_si128(_mm_shuffle_epi8(high, second_pair), alpha));
  }
  widen_scalar(source + pixel * triple_bytes, destination + pixel * quadruple_bytes, count - pixel);
}

// Eight pixels per step: each 32-byte load holds four pixels, which a dword
// permutation splits into two 12-byte groups, one per 128-bit lane. Streaming
// stores skip reading the output's cache lines first and leave the cache to
// the strips; they need 32-byte aligned destinations, which a few pixels
// reach from any 8-byte aligned start.
template <bool streaming>
__attribute__((target("avx2"))) void widen_avx2(const std::byte* source, std::byte* destination,
                                                std::size_t count) {
  const __m256i low_groups = _mm256_setr_epi32(0, 1, 2, 0, 3, 4, 5, 0);
  const __m256i high_groups = _mm256_setr_epi32(2, 3, 4, 0, 5, 6, 7, 0);
  const __m256i spread = _mm256_setr_epi8(0, 1, 2, 3, 4, 5, -1, -1, 6, 7, 8, 9, 10, 11, -1, -1, 0,
                                          1, 2, 3, 4, 5, -1, -1, 6, 7, 8, 9, 10, 11, -1, -1);
  const __m256i alpha = _mm256_setr_epi16(0, 0, 0, -1, 0, 0, 0, -1, 0, 0, 0, -1, 0, 0, 0, -1);
  const auto address = reinterpret_cast<std::uintptr_t>(destination);
  if (streaming && address % quadruple_bytes != 0) {
    widen_avx2<false>(source, destination, count);
    return;
  }
  std::size_t pixel = streaming ? std::min(count, (0 - address) % 32 / quadruple_bytes) : 0;
  widen_scalar(source, destination, pixel);
  for (; pixel + 8 <= count; pixel += 8) {
    const std::byte* in = source + pixel * triple_bytes;
    const __m256i low = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in));
    const __m256i high = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + 16));
    const __m256i first = _mm256_or_si256(
        _mm256_shuffle_epi8(_mm256_permutevar8x32_epi32(low, low_groups), spread), alpha);
    const __m256i second = _mm256_or_si256(
        _mm256_shuffle_epi8(_mm256_permutevar8x32_epi32(high, high_groups), spread), alpha);
    auto* out = reinterpret_cast<__m256i*>(destination + pixel * quadruple_bytes);
    if constexpr (streaming) {
      _mm256_stream_si256(out, first);
      _mm256_stream_si256(out + 1, second);
    } else {
      _mm256_storeu_si256(out, first);
      _mm256_storeu_si256(out + 1, second);
    }
  }
  widen_scalar(source + pixel * triple_bytes, destination + pixel * quadruple_bytes, count - pixel);
  if constexpr (streaming) {
    // Streaming stores are weakly ordered: make them visible before the
    // buffer goes to another thread.
    _mm_sfence();
  }
}

using Widen_function = void (*)(const std::byte*, std::byte*, std::size_t);

Widen_function widen_function(Widening_path path) {
  switch (path) {
    case Widening_path::avx2_streaming:
      return widen_avx2<true>;
    case Widening_path::avx2:
      return widen_avx2<false>;
    case Widening_path::ssse3:
      return widen_ssse3;
    case Widening_path::scalar:
      break;
  }
  return widen_scalar;
}

}  // namespace

// The companions' processor check decides here too: its SSE level includes
// SSSE3, and its AVX2 level the OS's saving of the YMM registers.
std::vector<Widening_path> usable_widening_paths() {
  const oqa_vector::Processor_words words = oqa_vector::read_processor_words();
  std::vector<Widening_path> paths{Widening_path::scalar};
  if (oqa_vector::processor_supports(oqa_vector::Vector_level::sse, words)) {
    paths.push_back(Widening_path::ssse3);
  }
  if (oqa_vector::processor_supports(oqa_vector::Vector_level::avx2, words)) {
    paths.push_back(Widening_path::avx2);
    paths.push_back(Widening_path::avx2_streaming);
  }
  return paths;
}

Widening_path choose_widening_path(std::size_t output_bytes) {
  const Widening_path best = usable_widening_paths().back();
  if (best == Widening_path::avx2_streaming &&
      (output_bytes < streaming_from_bytes || output_bytes >= streaming_below_bytes)) {
    return Widening_path::avx2;
  }
  return best;
}

std::size_t rows_per_strip(std::size_t width, unsigned threads) {
  const std::size_t budget = threads > 1 ? shared_strip_budget_bytes : strip_budget_bytes;
  const std::size_t rows = budget / (width * triple_bytes);
  return rows > 3 ? rows - 2 : 1;
}

void widen_rows(const std::uint16_t* triples, std::byte* output, std::size_t width,
                std::size_t rows, std::size_t stride, Widening_path path) {
  const Widen_function widen = widen_function(path);
  const auto* source = reinterpret_cast<const std::byte*>(triples);
  if (stride == width * quadruple_bytes) {
    widen(source, output, width * rows);
    return;
  }
  for (std::size_t row = 0; row < rows; ++row) {
    widen(source + row * width * triple_bytes, output + row * stride, width);
  }
}

void Widening_gate::enter() {
  for (;;) {
    int free = free_.load(std::memory_order_relaxed);
    if (free > 0 && free_.compare_exchange_weak(free, free - 1, std::memory_order_acquire)) {
      return;
    }
    _mm_pause();
  }
}

std::size_t strip_samples(const Frame_request& request, std::size_t strip_rows) {
  const auto height = static_cast<std::size_t>(request.height);
  return (std::clamp<std::size_t>(strip_rows, 1, height) + 2) *
         static_cast<std::size_t>(request.width) * 3;
}

Row_band band_of(std::size_t height, std::size_t count, std::size_t index) {
  return {height * index / count, height * (index + 1) / count};
}

int demosaic_to_quadruples(const Frame_request& request, const unsigned short* samples,
                           std::byte* output, std::size_t stride, Row_band band,
                           std::size_t strip_rows, Widening_path path,
                           std::vector<std::uint16_t>& strip, Widening_gate* gate) {
  const auto width = static_cast<std::size_t>(request.width);
  const auto height = static_cast<std::size_t>(request.height);
  strip_rows = std::clamp<std::size_t>(strip_rows, 1, height);
  strip.resize(strip_samples(request, strip_rows));
  for (std::size_t first = band.first; first < band.end; first += strip_rows) {
    const std::size_t end = std::min(first + strip_rows, band.end);
    // The rows around the strip, within the frame: always two rows or more.
    const std::size_t top = first == 0 ? 0 : first - 1;
    const std::size_t bottom = end == height ? height : end + 1;
    const auto rows = static_cast<int>(bottom - top);
    const int origin_y = (request.origin_y & 1) ^ static_cast<int>(top & 1);
    const unsigned short* input = samples + top * width;
    const int result =
        request.level == oqa_session::automatic_level
            ? qn_demosaic_transform_16_to_48(request.width, rows, request.origin_x, origin_y,
                                             request.phase, request.color_format,
                                             QN_COLOR_FILTER_TYPE_BAYER, 16, input, strip.data())
            : qn_demosaic_transform_test_16_to_48(request.width, rows, request.origin_x, origin_y,
                                                  request.phase, request.color_format,
                                                  QN_COLOR_FILTER_TYPE_BAYER, 16, input,
                                                  strip.data(), request.level);
    if (result != QN_DEMOSAIC_NO_ERROR) {
      return result;
    }
    if (gate != nullptr) {
      gate->enter();
    }
    widen_rows(strip.data() + (first - top) * width * 3, output + first * stride, width,
               end - first, stride, path);
    if (gate != nullptr) {
      gate->leave();
    }
  }
  return QN_DEMOSAIC_NO_ERROR;
}

}  // namespace oqa_gst
