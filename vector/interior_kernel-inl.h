// The interior kernel, written once and compiled by foreach_target.h for each
// enabled Highway target, each copy in its own target namespace (so no
// wide-instruction inline can be merged with a baseline copy).
//
// Per output row the kernel loads the 3x3 neighbourhood of a whole vector of
// pixels and forms every average the rules need; OddEven then picks, lane by
// lane, the rule of the pixel's class. Bayer rows hold two classes that
// alternate by column, so one row needs:
//   same  (the row's own red/blue): own sample at red/blue, left+right at green
//   green:                          the four edges at red/blue, own sample at green
//   other (the opposite colour):    the four corners at red/blue, above+below at green
// and a red row stores same as red and other as blue, a blue row the reverse.
// AverageRound is (a + b + 1) >> 1, the scalar two-sample rounding; the
// four-sample averages pair the samples as the scalar engine does.

#if defined(OQA_VECTOR_INTERIOR_KERNEL_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef OQA_VECTOR_INTERIOR_KERNEL_INL_H
#undef OQA_VECTOR_INTERIOR_KERNEL_INL_H
#else
#define OQA_VECTOR_INTERIOR_KERNEL_INL_H
#endif

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "hwy/highway.h"
#include "interior_request.h"

HWY_BEFORE_NAMESPACE();
namespace OQA_KERNEL_NAMESPACE {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Enough lanes for any vector of this target; sizes the stack buffers of
// the short-row path.
constexpr std::size_t max_lanes = HWY_MAX_BYTES / sizeof(std::uint16_t);

// Samples ahead of the loads that the row below is prefetched (1 KiB, best
// of 256 to 2048 measured at 4K). A prefetch past the row is harmless.
constexpr std::size_t prefetch_distance = 512;

// Column 0 of the rows above, at and below the output row.
struct Row_inputs {
  const std::uint16_t* up;
  const std::uint16_t* centre;
  const std::uint16_t* down;
};

template <class D>
struct Row_colours {
  hn::Vec<D> same;
  hn::Vec<D> green;
  hn::Vec<D> other;
};

// Colours of the pixels at columns column .. column + lanes - 1 of one row.
// RedBlueInEvenLanes: lane 0 (and every even lane) is a red/blue pixel.
template <bool RedBlueInEvenLanes, class D>
HWY_INLINE Row_colours<D> interpolate(D d, Row_inputs const& in, std::size_t column) {
  auto const up_left = hn::LoadU(d, in.up + column - 1);
  auto const up = hn::LoadU(d, in.up + column);
  auto const up_right = hn::LoadU(d, in.up + column + 1);
  auto const left = hn::LoadU(d, in.centre + column - 1);
  auto const own = hn::LoadU(d, in.centre + column);
  auto const right = hn::LoadU(d, in.centre + column + 1);
  auto const down_left = hn::LoadU(d, in.down + column - 1);
  auto const down = hn::LoadU(d, in.down + column);
  auto const down_right = hn::LoadU(d, in.down + column + 1);

  auto const horizontal = hn::AverageRound(left, right);
  auto const vertical = hn::AverageRound(up, down);
  auto const cross = hn::AverageRound(horizontal, vertical);
  auto const diagonal = hn::AverageRound(hn::AverageRound(up_left, up_right),
                                         hn::AverageRound(down_left, down_right));
  // OddEven(odd_lanes, even_lanes).
  if constexpr (RedBlueInEvenLanes) {
    return {hn::OddEven(horizontal, own), hn::OddEven(own, cross), hn::OddEven(vertical, diagonal)};
  } else {
    return {hn::OddEven(own, horizontal), hn::OddEven(cross, own), hn::OddEven(diagonal, vertical)};
  }
}

// Format 0: one pointer per plane, at column 1 of the row, already assigned
// to same/other by the row's colour.
struct Planar_row {
  std::uint16_t* same;
  std::uint16_t* green;
  std::uint16_t* other;

  template <class D>
  HWY_INLINE void store(D d, Row_colours<D> const& c, std::size_t x) const {
    hn::StoreU(c.same, d, same + x);
    hn::StoreU(c.green, d, green + x);
    hn::StoreU(c.other, d, other + x);
  }

  template <class D>
  HWY_INLINE void stream(D d, Row_colours<D> const& c, std::size_t x) const {
    hn::Stream(c.same, d, same + x);
    hn::Stream(c.green, d, green + x);
    hn::Stream(c.other, d, other + x);
  }

  // The planes lie width * height samples apart, so they need not share an
  // alignment; streaming needs all three aligned at the same pixel.
  template <class D>
  bool aligned(D d, std::size_t x) const {
    std::uintptr_t const mask = hn::Lanes(d) * sizeof(std::uint16_t) - 1;
    return ((reinterpret_cast<std::uintptr_t>(same + x) |
             reinterpret_cast<std::uintptr_t>(green + x) |
             reinterpret_cast<std::uintptr_t>(other + x)) &
            mask) == 0;
  }

  template <class D>
  void store_first(D d, Row_colours<D> const& c, std::size_t count) const {
    HWY_ALIGN std::uint16_t staged[3][max_lanes];
    hn::Store(c.same, d, staged[0]);
    hn::Store(c.green, d, staged[1]);
    hn::Store(c.other, d, staged[2]);
    std::memcpy(same, staged[0], count * sizeof(std::uint16_t));
    std::memcpy(green, staged[1], count * sizeof(std::uint16_t));
    std::memcpy(other, staged[2], count * sizeof(std::uint16_t));
  }
};

// Formats 1 and 2: the triple of column 1 of the row. SameFirst: the row's
// own colour goes into the first sample of each triple.
template <bool SameFirst>
struct Interleaved_row {
  std::uint16_t* out;

  template <class D>
  HWY_INLINE void store(D d, Row_colours<D> const& c, std::size_t x) const {
    hn::StoreInterleaved3(SameFirst ? c.same : c.other, c.green, SameFirst ? c.other : c.same, d,
                          out + 3 * x);
  }

  template <class D>
  HWY_INLINE void stream(D d, Row_colours<D> const& c, std::size_t x) const {
    std::size_t const lanes = hn::Lanes(d);
    HWY_ALIGN std::uint16_t staged[3 * max_lanes];
    store_staged(d, c, staged);
    hn::Stream(hn::Load(d, staged), d, out + 3 * x);
    hn::Stream(hn::Load(d, staged + lanes), d, out + 3 * x + lanes);
    hn::Stream(hn::Load(d, staged + 2 * lanes), d, out + 3 * x + 2 * lanes);
  }

  template <class D>
  bool aligned(D d, std::size_t x) const {
    std::uintptr_t const mask = hn::Lanes(d) * sizeof(std::uint16_t) - 1;
    return (reinterpret_cast<std::uintptr_t>(out + 3 * x) & mask) == 0;
  }

  template <class D>
  void store_first(D d, Row_colours<D> const& c, std::size_t count) const {
    HWY_ALIGN std::uint16_t staged[3 * max_lanes];
    store_staged(d, c, staged);
    std::memcpy(out, staged, 3 * count * sizeof(std::uint16_t));
  }

 private:
  template <class D>
  HWY_INLINE void store_staged(D d, Row_colours<D> const& c, std::uint16_t* staged) const {
    hn::StoreInterleaved3(SameFirst ? c.same : c.other, c.green, SameFirst ? c.other : c.same, d,
                          staged);
  }
};

// Whole vectors from pixel x on while they fit in the n pixels of the row;
// returns the first pixel not written. RedBlueInEvenLanes refers to pixel x.
template <bool RedBlueInEvenLanes, bool Streaming, class D, class Row>
HWY_INLINE std::size_t run_vectors(D d, Row_inputs const& in, std::size_t x, std::size_t n,
                                   Row const& row) {
  std::size_t const lanes = hn::Lanes(d);
  for (; x + lanes <= n; x += lanes) {
    // The row below is the only one not read by the previous output row;
    // fetching it early overlaps its memory latency with the arithmetic.
    __builtin_prefetch(in.down + x + prefetch_distance, 0, 3);
    Row_colours const colours = interpolate<RedBlueInEvenLanes>(d, in, x + 1);
    if constexpr (Streaming) {
      row.stream(d, colours, x);
    } else {
      row.store(d, colours, x);
    }
  }
  return x;
}

// A row narrower than one vector: the three input rows are copied into
// padded stack buffers so that whole-vector loads stay inside memory we own,
// and only the row's own pixels are copied out.
template <bool RedBlueFirst, class D, class Row>
HWY_NOINLINE void demosaic_short_row(D d, Row_inputs const& in, std::size_t n, Row const& row) {
  HWY_ALIGN std::uint16_t up[max_lanes + 2] = {};
  HWY_ALIGN std::uint16_t centre[max_lanes + 2] = {};
  HWY_ALIGN std::uint16_t down[max_lanes + 2] = {};
  std::size_t const bytes = (n + 2) * sizeof(std::uint16_t);
  std::memcpy(up, in.up, bytes);
  std::memcpy(centre, in.centre, bytes);
  std::memcpy(down, in.down, bytes);
  row.store_first(d, interpolate<RedBlueFirst>(d, Row_inputs{up, centre, down}, 1), n);
}

// The n = width - 2 interior pixels of one row. RedBlueFirst: column 1 is a
// red/blue pixel. A partial last vector is replaced by a whole vector that
// ends at the last pixel and overlaps pixels already written with the same
// values; an odd start shifts which lanes are red/blue.
template <bool RedBlueFirst, class D, class Row>
HWY_INLINE void demosaic_row(D d, Row_inputs const& in, std::size_t n, Row const& row,
                             bool streaming) {
  std::size_t const lanes = hn::Lanes(d);
  if (n < lanes) {
    demosaic_short_row<RedBlueFirst>(d, in, n, row);
    return;
  }
  // Regular stores up to the first pixel whose output is vector-aligned, so
  // that no store of the main loop splits a cache line; non-temporal stores
  // need that alignment anyway.
  std::size_t x = 0;
  std::size_t head = 0;
  while (head < lanes && !row.aligned(d, head)) {
    ++head;
  }
  if (head < lanes && head + lanes <= n) {
    if (head != 0) {
      row.store(d, interpolate<RedBlueFirst>(d, in, 1), 0);
    }
    bool const shifted = (head & 1) != 0;
    if (streaming) {
      x = shifted ? run_vectors<!RedBlueFirst, true>(d, in, head, n, row)
                  : run_vectors<RedBlueFirst, true>(d, in, head, n, row);
    } else {
      x = shifted ? run_vectors<!RedBlueFirst, false>(d, in, head, n, row)
                  : run_vectors<RedBlueFirst, false>(d, in, head, n, row);
    }
  }
  if (x == 0) {
    x = run_vectors<RedBlueFirst, false>(d, in, 0, n, row);
  }
  if (x < n) {
    std::size_t const last = n - lanes;
    if ((last & 1) != 0) {
      row.store(d, interpolate<!RedBlueFirst>(d, in, last + 1), last);
    } else {
      row.store(d, interpolate<RedBlueFirst>(d, in, last + 1), last);
    }
  }
}

template <class D, class Row>
HWY_INLINE void demosaic_row_of_class(D d, Row_inputs const& in, std::size_t n, Row const& row,
                                      bool red_blue_first, bool streaming) {
  if (red_blue_first) {
    demosaic_row<true>(d, in, n, row, streaming);
  } else {
    demosaic_row<false>(d, in, n, row, streaming);
  }
}

// Rows 1 .. height - 2, columns 1 .. width - 2, with vectors of tag D.
template <class D>
HWY_INLINE void demosaic_rows(D d, oqa_vector::Interior_request const& request) {
  std::size_t const width = request.width;
  std::size_t const n = width - 2;
  std::size_t const plane = width * request.height;
  std::uint16_t* const output = request.output;
  for (std::size_t r = 1; r + 1 < request.height; ++r) {
    bool const odd_row = (r & 1) != 0;
    bool const red_row = odd_row == request.odd_rows_are_red;
    bool const red_blue_first = odd_row == request.odd_rows_coloured_on_odd_columns;
    Row_inputs const in{request.input + (r - 1) * width, request.input + r * width,
                        request.input + (r + 1) * width};
    std::size_t const first = r * width + 1;
    switch (request.layout) {
      case oqa_vector::Output_layout::bgr_planar: {
        std::uint16_t* const blue = output + first;
        std::uint16_t* const red = output + 2 * plane + first;
        Planar_row const row{red_row ? red : blue, output + plane + first, red_row ? blue : red};
        demosaic_row_of_class(d, in, n, row, red_blue_first, request.streaming);
        break;
      }
      case oqa_vector::Output_layout::bgr_interleaved:
      case oqa_vector::Output_layout::rgb_interleaved: {
        // The first sample of a triple is blue (BGR) or red (RGB); it is the
        // row's own colour when that colour matches.
        bool const blue_first = request.layout == oqa_vector::Output_layout::bgr_interleaved;
        if (blue_first != red_row) {
          demosaic_row_of_class(d, in, n, Interleaved_row<true>{output + 3 * first}, red_blue_first,
                                request.streaming);
        } else {
          demosaic_row_of_class(d, in, n, Interleaved_row<false>{output + 3 * first},
                                red_blue_first, request.streaming);
        }
        break;
      }
    }
  }
}

// Rows 1 .. height - 2, columns 1 .. width - 2; nothing else is written.
// This file is included once per target, by interior_kernel.cpp alone, each
// time into its own namespace, so the definition cannot be duplicated.
HWY_NOINLINE void demosaic_interior(  // NOLINT(misc-definitions-in-headers)
    oqa_vector::Interior_request const& request) {
#if HWY_TARGET == HWY_AVX3
  // 512-bit vectors are the fastest while the frame stays in the caches,
  // but every 64-byte load at a one-sample offset splits a cache line: for
  // frames streamed to memory they measured 1.4-1.8x slower than 256-bit
  // vectors, which still gain masked blends, three-way logic and 32
  // registers over AVX2.
  if (request.streaming) {
    demosaic_rows(hn::CappedTag<std::uint16_t, 16>(), request);
    return;
  }
#endif
  demosaic_rows(hn::ScalableTag<std::uint16_t>(), request);
}

}  // namespace HWY_NAMESPACE
}  // namespace OQA_KERNEL_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // include guard toggle
