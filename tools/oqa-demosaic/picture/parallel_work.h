// Work on one image spread over several threads: bands of rows, and pieces
// encoded at once but written in order.
#ifndef OQA_TOOLS_PARALLEL_WORK_H
#define OQA_TOOLS_PARALLEL_WORK_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

#include "image_memory.h"

namespace oqa_tool {

// Runs work(first, end) over bands of rows that together cover [0, rows),
// on up to `threads` threads, this one included. The first exception
// thrown is rethrown here once every band has ended.
void for_each_band(int rows, unsigned threads, const std::function<void(int first, int end)>& work);

// Returns piece `piece`'s bytes: a view into the image, or into `output`,
// which stays untouched until the piece is written. `work` is the thread's
// own, for whatever the encoding needs meanwhile. Both come back to later
// pieces as they are, so that their memory is faulted in only once.
using Piece_encoder =
    std::function<std::span<const std::uint8_t>(std::size_t piece, Bytes& output, Bytes& work)>;
// Takes one piece's bytes, in order.
using Piece_sink = std::function<void(std::size_t piece, std::span<const std::uint8_t> bytes)>;

// Encodes pieces 0 to count - 1 on `threads` threads while this one hands
// each to `emit` in order; a few pieces per thread wait encoded at most. The
// first exception, from either side, stops the rest and is rethrown here.
void encode_in_order(std::size_t count, unsigned threads, const Piece_encoder& encode,
                     const Piece_sink& emit);

}  // namespace oqa_tool

#endif  // OQA_TOOLS_PARALLEL_WORK_H
