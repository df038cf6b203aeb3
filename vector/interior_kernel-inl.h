// The interior kernel, written once and compiled by foreach_target.h for each
// enabled Highway target, each copy in its own target namespace (so no
// wide-instruction inline can be merged with a baseline copy).
//
// A Bayer row holds two kinds of site that alternate by column: coloured
// sites (the row's own red or blue filter) and green sites. With h the
// average of a row's left and right neighbours and v that of the samples
// above and below, the rules give
//   coloured site: own colour = centre, green = avg(h, v),  other = avg(h above, h below)
//   green site:    own colour = h,      green = centre,     other = v
// AverageRound is (a + b + 1) >> 1, the two-sample rounding, and the
// four-sample averages pair their samples exactly as these nested averages.
//
// The kernel walks the interior two output rows at a time: the four input
// rows of a cell row pair are loaded once and their h averages serve both
// output rows. Interleaved output is assembled from 32-bit pairs of samples
// (one pair of pixels gives three pairs), which need one lane permutation
// per vector instead of a byte shuffle per output sample.

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

// Samples ahead of the loads that new input rows are prefetched (4 KiB:
// 10-15% faster for frames streamed to memory, best of 256 to 4096
// measured at 8K; a prefetch past the row is harmless).
constexpr std::size_t prefetch_distance = 2048;

// One input row around a vector of pixels.
template <class D>
struct Input_row {
  hn::Vec<D> left;
  hn::Vec<D> centre;
  hn::Vec<D> right;
  hn::Vec<D> across;  // avg(left, right)
};

// `row` points at the sample of the vector's first pixel.
template <class D>
HWY_INLINE Input_row<D> load_row(D d, const std::uint16_t* row) {
  auto const left = hn::LoadU(d, row - 1);
  auto const right = hn::LoadU(d, row + 1);
  return {left, hn::LoadU(d, row), right, hn::AverageRound(left, right)};
}

// What one output row needs of its 3x3 neighbourhoods.
template <class D>
struct Neighbourhood {
  Input_row<D> own;
  hn::Vec<D> vertical;      // avg(above, below)
  hn::Vec<D> across_above;  // h of the row above
  hn::Vec<D> across_below;  // h of the row below
};

template <class D>
HWY_INLINE Neighbourhood<D> around(Input_row<D> const& above, Input_row<D> const& own,
                                   Input_row<D> const& below) {
  return {own, hn::AverageRound(above.centre, below.centre), above.across, below.across};
}

// The three colours of each site, as vectors valid in that site's lanes.
template <class D>
struct Site_values {
  hn::Vec<D> own_colour;
  hn::Vec<D> green;
  hn::Vec<D> other_colour;
};

template <class D>
HWY_INLINE Site_values<D> coloured_sites(Neighbourhood<D> const& n) {
  return {n.own.centre, hn::AverageRound(n.own.across, n.vertical),
          hn::AverageRound(n.across_above, n.across_below)};
}

template <class D>
HWY_INLINE Site_values<D> green_sites(Neighbourhood<D> const& n) {
  return {n.own.across, n.own.centre, n.vertical};
}

// Picks the coloured sites' lanes from `coloured` and the green sites'
// lanes from `green`. ColouredEven: the vector's even lanes are coloured.
template <bool ColouredEven, class V>
HWY_INLINE V by_site(V coloured, V green) {
  if constexpr (ColouredEven) {
    return hn::OddEven(green, coloured);
  } else {
    return hn::OddEven(coloured, green);
  }
}

// Interleaving three vectors of N 32-bit lanes a, b, c into a0 b0 c0 a1 b1
// c1 ...: lane i of a lands at 3i, which is lane 3i mod N of one of the
// three outputs. Because 3 is prime to N those lanes differ for every i, so
// one permutation of each input puts all its lanes where they go, and each
// output is a blend of the three permuted inputs with a fixed pattern.

// Bit k set where lane k of output `output` comes from input `input` (0 a,
// 1 b, 2 c).
template <std::size_t N>
constexpr unsigned interleave3_lanes(std::size_t output, std::size_t input) {
  unsigned bits = 0;
  for (std::size_t lane = 0; lane < N; ++lane) {
    if ((output * N + lane) % 3 == input) {
      bits |= 1u << lane;
    }
  }
  return bits;
}

// out = lanes of `from` where Bits has a one, else lanes of `rest`. Blends
// with a fixed pattern: an immediate where the target has one, a constant
// mask register with AVX-512; a variable blend would take a shuffle port.
template <unsigned Bits, class V>
HWY_INLINE V blend_lanes32(V from, V rest) {
#if HWY_TARGET == HWY_AVX2
  return V{_mm256_blend_epi32(rest.raw, from.raw, Bits)};
#elif HWY_TARGET == HWY_SSE4
  // Each 32-bit lane is two 16-bit lanes of the immediate.
  constexpr int word_bits = ((Bits & 1) ? 0x3 : 0) | ((Bits & 2) ? 0xC : 0) |
                            ((Bits & 4) ? 0x30 : 0) | ((Bits & 8) ? 0xC0 : 0);
  return V{_mm_blend_epi16(rest.raw, from.raw, word_bits)};
#elif HWY_TARGET == HWY_AVX3
  using Mask = hn::MFromD<hn::DFromV<V> >;
  return hn::IfThenElse(Mask{static_cast<decltype(Mask().raw)>(Bits)}, from, rest);
#else
  static_assert(sizeof(V) == 0, "only the SSE4, AVX2 and AVX-512 kernels interleave");
  (void)rest;
  return from;
#endif
}

template <class D32>
struct Interleave3_plan {
  using Indices = decltype(hn::SetTableIndices(D32(), static_cast<const std::int32_t*>(nullptr)));
  static constexpr std::size_t lanes = hn::MaxLanes(D32());
  Indices to_a;
  Indices to_b;
  Indices to_c;

  explicit Interleave3_plan(D32 d32) {
    // The inverse of 3 modulo the lane count (4, 8 or 16): 3 * 3 = 9 and 3 * 11 = 33.
    constexpr std::size_t inverse_of_3 = lanes == 16 ? 11 : 3;
    HWY_ALIGN std::int32_t index[3][lanes];
    for (std::size_t lane = 0; lane < lanes; ++lane) {
      for (std::size_t input = 0; input < 3; ++input) {
        index[input][lane] =
            static_cast<std::int32_t>(((lane + 3 * lanes - input) * inverse_of_3) % lanes);
      }
    }
    to_a = hn::SetTableIndices(d32, index[0]);
    to_b = hn::SetTableIndices(d32, index[1]);
    to_c = hn::SetTableIndices(d32, index[2]);
  }
};

template <class D32>
struct Three_vectors {
  hn::Vec<D32> v[3];
};

template <std::size_t Output, class D32>
HWY_INLINE hn::Vec<D32> interleaved_output(hn::Vec<D32> a, hn::Vec<D32> b, hn::Vec<D32> c) {
  constexpr std::size_t lanes = hn::MaxLanes(D32());
  return blend_lanes32<interleave3_lanes<lanes>(Output, 0)>(
      a, blend_lanes32<interleave3_lanes<lanes>(Output, 1)>(b, c));
}

template <class D32>
HWY_INLINE Three_vectors<D32> interleave3(Interleave3_plan<D32> const& plan, hn::Vec<D32> a,
                                          hn::Vec<D32> b, hn::Vec<D32> c) {
  auto const a_placed = hn::TableLookupLanes(a, plan.to_a);
  auto const b_placed = hn::TableLookupLanes(b, plan.to_b);
  auto const c_placed = hn::TableLookupLanes(c, plan.to_c);
  return {{interleaved_output<0, D32>(a_placed, b_placed, c_placed),
           interleaved_output<1, D32>(a_placed, b_placed, c_placed),
           interleaved_output<2, D32>(a_placed, b_placed, c_placed)}};
}

// The processors' cache line.
constexpr std::size_t line_bytes = 64;

// Asks for the cache lines of bytes [from, to) with the intent to write them.
inline void fetch_for_writing(void const* from, void const* to) {
  for (auto const* line = static_cast<unsigned char const*>(from); line < to; line += line_bytes) {
    __builtin_prefetch(line, 1, 3);
  }
  if (from < to) {
    __builtin_prefetch(static_cast<unsigned char const*>(to) - 1, 1, 3);
  }
}

// Format 0: one pointer per plane at column 1 of the row, already assigned
// to own/other colour by the row's colour.
template <class D>
struct Planar_row {
  using Colours = Three_vectors<D>;
  static constexpr bool orders_colours = false;

  std::uint16_t* own_colour;
  std::uint16_t* green;
  std::uint16_t* other_colour;

  template <bool ColouredEven, bool /*OwnColourFirst*/>
  HWY_INLINE Colours colours(D /*d*/, Neighbourhood<D> const& n) const {
    Site_values<D> const coloured = coloured_sites(n);
    Site_values<D> const green_site = green_sites(n);
    return {{by_site<ColouredEven>(coloured.own_colour, green_site.own_colour),
             by_site<ColouredEven>(coloured.green, green_site.green),
             by_site<ColouredEven>(coloured.other_colour, green_site.other_colour)}};
  }

  template <bool Streaming>
  HWY_INLINE void put(D d, Colours const& c, std::size_t x) const {
    std::uint16_t* const planes[3] = {own_colour + x, green + x, other_colour + x};
    for (int k = 0; k < 3; ++k) {
      if constexpr (Streaming) {
        hn::Stream(c.v[k], d, planes[k]);
      } else {
        hn::StoreU(c.v[k], d, planes[k]);
      }
    }
  }

  // The planes lie width * height samples apart, so they need not share an
  // alignment; streaming needs all three aligned at the same pixel.
  bool aligned(std::size_t x, std::size_t bytes) const {
    std::uintptr_t const mask = bytes - 1;
    return ((reinterpret_cast<std::uintptr_t>(own_colour + x) |
             reinterpret_cast<std::uintptr_t>(green + x) |
             reinterpret_cast<std::uintptr_t>(other_colour + x)) &
            mask) == 0;
  }

  // The output lines of pixels from .. to - 1.
  void fetch_pixels(std::size_t from, std::size_t to) const {
    for (std::uint16_t* const plane : {own_colour, green, other_colour}) {
      fetch_for_writing(plane + from, plane + to);
    }
  }

  // Pixels x + skip .. x + skip + count - 1 of the colours of pixel x on.
  void put_part(D d, Colours const& c, std::size_t x, std::size_t skip, std::size_t count) const {
    HWY_ALIGN std::uint16_t staged[max_lanes];
    std::uint16_t* const planes[3] = {own_colour, green, other_colour};
    for (int k = 0; k < 3; ++k) {
      hn::Store(c.v[k], d, staged);
      std::memcpy(planes[k] + x + skip, staged + skip, count * sizeof(std::uint16_t));
    }
  }
};

// Formats 1 and 2: the triple of column 1 of the row.
template <class D>
struct Interleaved_row {
  using D32 = hn::Repartition<std::uint32_t, D>;
  using Colours = Three_vectors<D32>;
  static constexpr bool orders_colours = true;

  std::uint16_t* out;
  Interleave3_plan<D32> plan;

  // OwnColourFirst: the row's own colour is the first sample of each triple
  // (red in an RGB red row, blue in a BGR blue row). The triples (t0 t1 t2)
  // of an even and an odd pixel become the 32-bit pairs (t0 t1 of the even
  // pixel), (t2 even, t0 odd), (t1 t2 of the odd pixel). t1 is green: at a
  // green site it is the centre sample, which the left (right) neighbour
  // vector already holds in the odd (even) lane of the pair; at a coloured
  // site it is moved by a 16-bit shift.
  template <bool ColouredEven, bool OwnColourFirst>
  HWY_INLINE Colours colours(D d, Neighbourhood<D> const& n) const {
    D32 const d32;
    Site_values<D> const coloured = coloured_sites(n);
    Site_values<D> const green_site = green_sites(n);
    Site_values<D> const& even = ColouredEven ? coloured : green_site;
    Site_values<D> const& odd = ColouredEven ? green_site : coloured;
    auto const first = [](Site_values<D> const& s) {
      return OwnColourFirst ? s.own_colour : s.other_colour;
    };
    auto const last = [](Site_values<D> const& s) {
      return OwnColourFirst ? s.other_colour : s.own_colour;
    };
    hn::Vec<D> green_of_even_high;
    hn::Vec<D> green_of_odd_low;
    if constexpr (ColouredEven) {
      green_of_even_high = hn::BitCast(d, hn::ShiftLeft<16>(hn::BitCast(d32, even.green)));
      green_of_odd_low = n.own.right;
    } else {
      green_of_even_high = n.own.left;
      green_of_odd_low = hn::BitCast(d, hn::ShiftRight<16>(hn::BitCast(d32, odd.green)));
    }
    auto const pair0 = hn::BitCast(d32, hn::OddEven(green_of_even_high, first(even)));
    auto const pair1 = hn::BitCast(d32, hn::OddEven(first(odd), last(even)));
    auto const pair2 = hn::BitCast(d32, hn::OddEven(last(odd), green_of_odd_low));
    return interleave3(plan, pair0, pair1, pair2);
  }

  template <bool Streaming>
  HWY_INLINE void put(D /*d*/, Colours const& c, std::size_t x) const {
    D32 const d32;
    std::uint32_t* const at = reinterpret_cast<std::uint32_t*>(out + 3 * x);
    std::size_t const lanes32 = hn::Lanes(d32);
    for (std::size_t k = 0; k < 3; ++k) {
      if constexpr (Streaming) {
        hn::Stream(c.v[k], d32, at + k * lanes32);
      } else {
        hn::StoreU(c.v[k], d32, at + k * lanes32);
      }
    }
  }

  bool aligned(std::size_t x, std::size_t bytes) const {
    return (reinterpret_cast<std::uintptr_t>(out + 3 * x) & (bytes - 1)) == 0;
  }

  // The output lines of pixels from .. to - 1.
  void fetch_pixels(std::size_t from, std::size_t to) const {
    fetch_for_writing(out + 3 * from, out + 3 * to);
  }

  // Pixels x + skip .. x + skip + count - 1 of the colours of pixel x on.
  void put_part(D /*d*/, Colours const& c, std::size_t x, std::size_t skip,
                std::size_t count) const {
    D32 const d32;
    HWY_ALIGN std::uint32_t staged[3 * max_lanes / 2];
    std::size_t const lanes32 = hn::Lanes(d32);
    for (std::size_t k = 0; k < 3; ++k) {
      hn::Store(c.v[k], d32, staged + k * lanes32);
    }
    std::size_t const triple_bytes = 3 * sizeof(std::uint16_t);
    std::memcpy(out + 3 * (x + skip),
                reinterpret_cast<unsigned char const*>(staged) + skip * triple_bytes,
                count * triple_bytes);
  }
};

// One or two output rows walked together: `rows` points at column 0 of the
// Count + 2 input rows r - 1 .. r + Count, and output row r + i is written
// through writers[i]. Coloured sites and colour order alternate from row to
// row, so the first row's decide the second's.
template <class Row, std::size_t Count>
struct Row_group {
  const std::uint16_t* rows[Count + 2];
  Row writers[Count];
};

// The colours of the group's rows from their input rows, which start at
// pixel x (column x + 1). ColouredEven and OwnColourFirst describe the first
// row.
template <bool ColouredEven, bool OwnColourFirst, class D, class Row, std::size_t Count>
HWY_INLINE void colours_of(D d, Row_group<Row, Count> const& group,
                           Input_row<D> const (&input)[Count + 2],
                           typename Row::Colours (&out)[Count]) {
  out[0] = group.writers[0].template colours<ColouredEven, OwnColourFirst>(
      d, around(input[0], input[1], input[2]));
  if constexpr (Count == 2) {
    out[1] = group.writers[1].template colours<!ColouredEven, !OwnColourFirst>(
        d, around(input[1], input[2], input[3]));
  }
}

template <bool ColouredEven, bool OwnColourFirst, bool Streaming, class D, class Row,
          std::size_t Count>
HWY_INLINE void put_colours(D d, Row_group<Row, Count> const& group,
                            Input_row<D> const (&input)[Count + 2], std::size_t x) {
  typename Row::Colours colours[Count];
  colours_of<ColouredEven, OwnColourFirst>(d, group, input, colours);
  for (std::size_t i = 0; i < Count; ++i) {
    group.writers[i].template put<Streaming>(d, colours[i], x);
  }
}

// The group's last two input rows are the ones the group before has not
// read; fetching them early overlaps their memory latency with the
// arithmetic.
template <class Row, std::size_t Count>
HWY_INLINE void fetch_ahead(Row_group<Row, Count> const& group, std::size_t x) {
  for (std::size_t i = Count; i < Count + 2; ++i) {
    __builtin_prefetch(group.rows[i] + x + prefetch_distance, 0, 3);
  }
}

template <bool ColouredEven, bool OwnColourFirst, bool Streaming, class D, class Row,
          std::size_t Count>
HWY_INLINE void put_vector(D d, Row_group<Row, Count> const& group, std::size_t x) {
  Input_row<D> input[Count + 2];
  for (std::size_t i = 0; i < Count + 2; ++i) {
    input[i] = load_row(d, group.rows[i] + x + 1);
  }
  put_colours<ColouredEven, OwnColourFirst, Streaming>(d, group, input, x);
}

#if HWY_TARGET == HWY_AVX3
// Samples of the next vector's lanes moved in from the right: lane i of
// the result is lane i + Shift of (low, high) taken as one double vector.
template <int Shift, class V>
HWY_INLINE V shifted_in(V low, V high) {
  hn::DFromV<V> const d;
  hn::RebindToSigned<decltype(d)> const di;
  constexpr std::size_t lanes = hn::MaxLanes(d);
  static constexpr std::int16_t from[64] = {
      0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21,
      22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32, 33, 34, 35, 36, 37, 38, 39, 40, 41, 42, 43,
      44, 45, 46, 47, 48, 49, 50, 51, 52, 53, 54, 55, 56, 57, 58, 59, 60, 61, 62, 63};
  // The offset is formed before it touches the pointer: from - 1 would
  // already be out of the table.
  constexpr std::size_t offset =
      Shift < 0 ? lanes - static_cast<std::size_t>(-Shift) : static_cast<std::size_t>(Shift);
  auto const index = hn::LoadU(di, from + offset);
  if constexpr (lanes == 32) {
    return V{_mm512_permutex2var_epi16(low.raw, index.raw, high.raw)};
  } else {
    return V{_mm256_permutex2var_epi16(low.raw, index.raw, high.raw)};
  }
}
#endif

// Whole vectors from pixel x on while they fit in the n pixels of the row;
// returns the first pixel not written. ColouredEven refers to pixel x.
template <bool ColouredEven, bool OwnColourFirst, bool Streaming, class D, class Row,
          std::size_t Count>
HWY_INLINE std::size_t run_vectors(D d, Row_group<Row, Count> const& group, std::size_t x,
                                   std::size_t n) {
  std::size_t const lanes = hn::Lanes(d);
  // A local copy: the output stores could alias the caller's object, which
  // would reload the writers' constants after every store.
  Row_group<Row, Count> const local = group;
#if HWY_TARGET == HWY_AVX3
  // Every load of a whole 512-bit vector at an odd sample splits a cache
  // line, so each row is read once per vector and its neighbours are
  // shifted in from the vectors on either side: the left neighbours come
  // from the previous centre vector, the right ones from the next. Half as
  // wide, the split loads cost less than the shifts (15% at 320x240).
  if (hn::MaxLanes(d) == 32 && x + 2 * lanes <= n + 1) {
    hn::Vec<D> left[Count + 2];
    hn::Vec<D> centre[Count + 2];
    for (std::size_t i = 0; i < Count + 2; ++i) {
      left[i] = hn::LoadU(d, local.rows[i] + x);
      centre[i] = hn::LoadU(d, local.rows[i] + x + 1);
    }
    // The next centre vector stays inside the row while x + 2 lanes <= n + 1.
    for (; x + 2 * lanes <= n + 1; x += lanes) {
      fetch_ahead(local, x);
      Input_row<D> input[Count + 2];
      for (std::size_t i = 0; i < Count + 2; ++i) {
        auto const next = hn::LoadU(d, local.rows[i] + x + 1 + lanes);
        auto const right = shifted_in<1>(centre[i], next);
        input[i] = {left[i], centre[i], right, hn::AverageRound(left[i], right)};
        left[i] = shifted_in<-1>(centre[i], next);
        centre[i] = next;
      }
      put_colours<ColouredEven, OwnColourFirst, Streaming>(d, local, input, x);
    }
  }
#endif
  for (; x + lanes <= n; x += lanes) {
    fetch_ahead(local, x);
    put_vector<ColouredEven, OwnColourFirst, Streaming>(d, local, x);
  }
  return x;
}

// One vector at any pixel x; an odd x shifts which lanes are coloured.
template <bool ColouredFirst, bool OwnColourFirst, class D, class Row, std::size_t Count>
HWY_INLINE void put_vector_at(D d, Row_group<Row, Count> const& group, std::size_t x) {
  if ((x & 1) != 0) {
    put_vector<!ColouredFirst, OwnColourFirst, false>(d, group, x);
  } else {
    put_vector<ColouredFirst, OwnColourFirst, false>(d, group, x);
  }
}

// A row narrower than one vector: the input rows are copied into padded
// stack buffers so that whole-vector loads stay inside memory we own, and
// only the row's own pixels are copied out.
template <bool ColouredFirst, bool OwnColourFirst, class D, class Row, std::size_t Count>
HWY_NOINLINE void demosaic_short_rows(D d, Row_group<Row, Count> const& group, std::size_t n) {
  HWY_ALIGN std::uint16_t padded[Count + 2][max_lanes + 2] = {};
  Input_row<D> input[Count + 2];
  for (std::size_t i = 0; i < Count + 2; ++i) {
    std::memcpy(padded[i], group.rows[i], (n + 2) * sizeof(std::uint16_t));
    input[i] = load_row(d, padded[i] + 1);
  }
  typename Row::Colours colours[Count];
  colours_of<ColouredFirst, OwnColourFirst>(d, group, input, colours);
  for (std::size_t i = 0; i < Count; ++i) {
    group.writers[i].put_part(d, colours[i], 0, 0, n);
  }
}

// Pixels x + skip .. x + skip + count - 1 of the vector at any pixel x,
// through a stack copy.
template <bool ColouredFirst, bool OwnColourFirst, class D, class Row, std::size_t Count>
HWY_NOINLINE void put_vector_part_at(D d, Row_group<Row, Count> const& group, std::size_t x,
                                     std::size_t skip, std::size_t count) {
  Input_row<D> input[Count + 2];
  for (std::size_t i = 0; i < Count + 2; ++i) {
    input[i] = load_row(d, group.rows[i] + x + 1);
  }
  typename Row::Colours colours[Count];
  if ((x & 1) != 0) {
    colours_of<!ColouredFirst, OwnColourFirst>(d, group, input, colours);
  } else {
    colours_of<ColouredFirst, OwnColourFirst>(d, group, input, colours);
  }
  for (std::size_t i = 0; i < Count; ++i) {
    group.writers[i].put_part(d, colours[i], x, skip, count);
  }
}

// Pixels from .. to - 1 (at most n) with regular stores: whole vectors, then
// the rest through a stack copy, so that nothing outside the range is
// written.
template <bool ColouredFirst, bool OwnColourFirst, class D, class Row, std::size_t Count>
HWY_INLINE void put_range(D d, Row_group<Row, Count> const& group, std::size_t from,
                          std::size_t to) {
  std::size_t const lanes = hn::Lanes(d);
  std::size_t x = from;
  if (x + lanes <= to) {
    x = (x & 1) != 0 ? run_vectors<!ColouredFirst, OwnColourFirst, false>(d, group, x, to)
                     : run_vectors<ColouredFirst, OwnColourFirst, false>(d, group, x, to);
  }
  if (x < to) {
    std::size_t const start = to >= lanes ? to - lanes : 0;
    put_vector_part_at<ColouredFirst, OwnColourFirst>(d, group, start, x - start, to - x);
  }
}

// Non-temporal stores fill whole cache lines: the stream starts at the first
// pixel whose output begins a line in every row of the group and covers
// whole steps of stream_pixels, which end on a line again. A regular store
// into a line the stream fills would fetch the line and break the stream's
// write-combining (10% of a 3840x2160 frame), so the pixels before and after
// the stream are written by regular stores that stay off its lines.
// 32 pixels are three lines interleaved and one line of each plane, and a
// whole number of vectors of every target.
constexpr std::size_t stream_pixels = 32;

// The first pixel of the group's stream, or n if it has none.
template <class Row, std::size_t Count>
std::size_t stream_start(Row_group<Row, Count> const& group, std::size_t n) {
  for (std::size_t x = 0; x < stream_pixels && x + stream_pixels <= n; ++x) {
    bool all_aligned = true;
    for (std::size_t i = 0; i < Count; ++i) {
      all_aligned = all_aligned && group.writers[i].aligned(x, line_bytes);
    }
    if (all_aligned) {
      return x;
    }
  }
  return n;
}

// The n = width - 2 interior pixels of the group's rows. ColouredFirst:
// column 1 of the first row is a coloured site.
template <bool ColouredFirst, bool OwnColourFirst, class D, class Row, std::size_t Count>
HWY_INLINE void demosaic_group(D d, Row_group<Row, Count> const& group, std::size_t n,
                               bool streaming) {
  std::size_t const lanes = hn::Lanes(d);
  if (n < lanes) {
    demosaic_short_rows<ColouredFirst, OwnColourFirst>(d, group, n);
    return;
  }
  if (streaming) {
    std::size_t const start = stream_start(group, n);
    if (start < n) {
      std::size_t const end = start + (n - start) / stream_pixels * stream_pixels;
      // The lines either side of the stream are shared with the border and
      // long gone from the caches: they are fetched now and written after
      // the stream, which hides the wait for them.
      for (std::size_t i = 0; i < Count; ++i) {
        group.writers[i].fetch_pixels(0, start);
        group.writers[i].fetch_pixels(end, n);
      }
      if ((start & 1) != 0) {
        run_vectors<!ColouredFirst, OwnColourFirst, true>(d, group, start, end);
      } else {
        run_vectors<ColouredFirst, OwnColourFirst, true>(d, group, start, end);
      }
      put_range<ColouredFirst, OwnColourFirst>(d, group, 0, start);
      put_range<ColouredFirst, OwnColourFirst>(d, group, end, n);
      return;
    }
  }
  // Regular stores up to the first pixel whose output is vector-aligned, so
  // that no store of the main loop splits a cache line. A partial last
  // vector is replaced by a whole vector that ends at the last pixel and
  // overlaps pixels already written with the same values.
  std::size_t const vector_bytes = lanes * sizeof(std::uint16_t);
  std::size_t x = 0;
  std::size_t head = 0;
  while (head < lanes && !group.writers[0].aligned(head, vector_bytes)) {
    ++head;
  }
  if (head < lanes && head + lanes <= n) {
    if (head != 0) {
      put_vector_at<ColouredFirst, OwnColourFirst>(d, group, 0);
    }
    x = (head & 1) != 0 ? run_vectors<!ColouredFirst, OwnColourFirst, false>(d, group, head, n)
                        : run_vectors<ColouredFirst, OwnColourFirst, false>(d, group, head, n);
  }
  if (x == 0) {
    x = run_vectors<ColouredFirst, OwnColourFirst, false>(d, group, 0, n);
  }
  if (x < n) {
    put_vector_at<ColouredFirst, OwnColourFirst>(d, group, n - lanes);
  }
}

// Turns the first row's two run-time properties into template arguments.
// Planar rows have no colour order.
template <class D, class Row, std::size_t Count>
HWY_INLINE void demosaic_group_of_class(D d, Row_group<Row, Count> const& group, std::size_t n,
                                        bool coloured_first, bool own_colour_first,
                                        bool streaming) {
  if constexpr (Row::orders_colours) {
    if (own_colour_first) {
      if (coloured_first) {
        demosaic_group<true, true>(d, group, n, streaming);
      } else {
        demosaic_group<false, true>(d, group, n, streaming);
      }
      return;
    }
  }
  if (coloured_first) {
    demosaic_group<true, false>(d, group, n, streaming);
  } else {
    demosaic_group<false, false>(d, group, n, streaming);
  }
}

// Rows 1 .. height - 2 through `writer(r)`, which gives the writer of
// output row r. Rows go in pairs when both rows of a pair keep the same
// output alignment (a row stride of whole vectors, and of whole lines when
// streaming), one by one otherwise, so that every row's stores are aligned.
template <class D, class Writer_of_row>
HWY_INLINE void demosaic_rows_through(D d, oqa_vector::Interior_request const& request,
                                      std::size_t row_stride_bytes, Writer_of_row writer) {
  using Row = decltype(writer(std::size_t{0}));
  std::size_t const width = request.width;
  std::size_t const n = width - 2;
  // A line is a whole number of vectors of every target.
  std::size_t const alignment =
      request.streaming ? line_bytes : hn::Lanes(d) * sizeof(std::uint16_t);
  bool const pairs = row_stride_bytes % alignment == 0;
  bool const blue_first = request.layout == QN_COLOR_FORMAT_BGR_INTERLEAVED;
  auto const input_row = [&](std::size_t r) { return request.input + r * width; };
  for (std::size_t r = 1; r + 1 < request.height;) {
    bool const odd_row = (r & 1) != 0;
    bool const coloured_first = odd_row == request.odd_rows_coloured_on_odd_columns;
    bool const red_row = odd_row == request.odd_rows_are_red;
    bool const own_colour_first = blue_first != red_row;
    if (pairs && r + 2 < request.height) {
      Row_group<Row, 2> const group{
          {input_row(r - 1), input_row(r), input_row(r + 1), input_row(r + 2)},
          {writer(r), writer(r + 1)}};
      demosaic_group_of_class(d, group, n, coloured_first, own_colour_first, request.streaming);
      r += 2;
    } else {
      Row_group<Row, 1> const group{{input_row(r - 1), input_row(r), input_row(r + 1)},
                                    {writer(r)}};
      demosaic_group_of_class(d, group, n, coloured_first, own_colour_first, request.streaming);
      r += 1;
    }
  }
}

// Rows 1 .. height - 2, columns 1 .. width - 2, with vectors of tag D.
template <class D>
HWY_INLINE void demosaic_rows(D d, oqa_vector::Interior_request const& request) {
  std::size_t const width = request.width;
  std::uint16_t* const output = request.output;
  auto const is_red = [&](std::size_t r) { return ((r & 1) != 0) == request.odd_rows_are_red; };
  if (request.layout == QN_COLOR_FORMAT_BGR_PLANAR) {
    std::size_t const plane = width * request.height;
    demosaic_rows_through(d, request, width * sizeof(std::uint16_t), [&](std::size_t r) {
      std::uint16_t* const blue = output + r * width + 1;
      std::uint16_t* const red = blue + 2 * plane;
      return Planar_row<D>{is_red(r) ? red : blue, blue + plane, is_red(r) ? blue : red};
    });
  } else {
    using D32 = hn::Repartition<std::uint32_t, D>;
    Interleave3_plan<D32> const plan{D32()};
    demosaic_rows_through(d, request, 3 * width * sizeof(std::uint16_t), [&](std::size_t r) {
      return Interleaved_row<D>{output + 3 * (r * width + 1), plan};
    });
  }
}

// Rows 1 .. height - 2, columns 1 .. width - 2; nothing else is written.
// This file is included once per target, by interior_kernel.cpp alone, each
// time into its own namespace, so the definition cannot be duplicated.
HWY_NOINLINE void demosaic_interior(  // NOLINT(misc-definitions-in-headers)
    oqa_vector::Interior_request const& request) {
#if HWY_TARGET == HWY_SCALAR || HWY_TARGET == HWY_EMU128
  // The portable fallback Highway always compiles; never called.
  (void)request;
#else
#if HWY_TARGET == HWY_AVX3
  if (request.narrow_vectors) {
    demosaic_rows(hn::CappedTag<std::uint16_t, 16>(), request);
    return;
  }
#endif
  demosaic_rows(hn::ScalableTag<std::uint16_t>(), request);
#endif
}

}  // namespace HWY_NAMESPACE
}  // namespace OQA_KERNEL_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // include guard toggle
