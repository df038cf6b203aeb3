// From a 16-bit Bayer frame to RGBA64_LE or BGRA64_LE through the library,
// which writes three samples per pixel where those formats have four.
//
// The frame is demosaiced in horizontal strips into a scratch buffer that
// stays in the processor's cache, and each strip is widened into the output
// frame, so the library's output never makes a round trip through memory. A strip
// is demosaiced together with the row above and the row below it, which the
// library treats as its top and bottom border and which are dropped: every
// other row gets the value a whole-frame call gives it, because a pixel's
// value depends only on its 3x3 neighbourhood and on whether it lies on the
// frame's border.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "ostrevan_oqa_demosaic.h"

namespace oqa_gst {

enum class Widening_path { scalar, ssse3, avx2, avx2_streaming };

// The paths this processor can run.
std::vector<Widening_path> usable_widening_paths();

// The path for output frames of `output_bytes`.
Widening_path choose_widening_path(std::size_t output_bytes);

// Writes `rows` rows of `width` packed triples of 16-bit samples (row r at
// sample r * width * 3) as rows of quadruples whose fourth sample is 65535,
// row r at byte r * stride of `output`. Requires stride >= width * 8.
void widen_rows(const std::uint16_t* triples, std::byte* output, std::size_t width,
                std::size_t rows, std::size_t stride, Widening_path path);

struct Frame_request {
  int width;
  int height;
  int origin_x;
  int origin_y;
  QN_COLOR_FILTER_ARRAY_PHASE phase;
  QN_COLOR_FORMAT color_format;  // one of the two interleaved formats
  int level;                     // a level of the test entry, or -1 for the library's choice
};

// Output rows per strip for frames `width` pixels wide shared by `threads`
// threads: as many as keep the strip's triples, with the two extra rows,
// within the scratch budget for that many threads.
std::size_t rows_per_strip(std::size_t width, unsigned threads);

// Rows [first, end) of a frame.
struct Row_band {
  std::size_t first;
  std::size_t end;
};

// Lets at most half of the threads that share a frame widen at once. The
// widening is bound by the memory's write bandwidth, which one thread in two
// already fills. Left alone, the threads fall into step: all demosaic while
// the memory idles, then all widen at a share of its bandwidth each. Kept
// out of the gate, a thread waits for one strip, and from then on the
// others demosaic while one widens.
class Widening_gate {
 public:
  explicit Widening_gate(unsigned threads) : free_(static_cast<int>(std::max(1U, threads / 2))) {}
  // Waits, spinning, for a free place: a strip's widening is far shorter
  // than the wake-up of a sleeping thread.
  void enter();
  void leave() { free_.fetch_add(1, std::memory_order_release); }

 private:
  std::atomic<int> free_;
};

// Samples of the scratch strip that demosaic_to_quadruples needs for
// `request` in strips of `strip_rows` rows.
std::size_t strip_samples(const Frame_request& request, std::size_t strip_rows);

// Band `index` of `count` bands of nearly equal height that cover `height` rows.
Row_band band_of(std::size_t height, std::size_t count, std::size_t index);

// Demosaics the rows `band` of `samples` (height packed rows of width
// samples) into the same rows of `output` (rows of quadruples, `stride`
// bytes apart) in strips of `strip_rows` rows, through `strip`. Bands of one
// frame may run at once, each with its own `strip`, widening through `gate`
// where one is given. Returns the library's result code; on failure the band
// is incomplete.
int demosaic_to_quadruples(const Frame_request& request, const unsigned short* samples,
                           std::byte* output, std::size_t stride, Row_band band,
                           std::size_t strip_rows, Widening_path path,
                           std::vector<std::uint16_t>& strip, Widening_gate* gate = nullptr);

}  // namespace oqa_gst
