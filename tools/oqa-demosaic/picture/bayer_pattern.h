// Names of the four Bayer patterns and the library's phases.
#ifndef OQA_TOOLS_BAYER_PATTERN_H
#define OQA_TOOLS_BAYER_PATTERN_H

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "ostrevan_oqa_demosaic.h"

namespace oqa_tool {

enum class Filter_colour { red, green, blue };

// "RGGB", "BGGR", "GRBG" or "GBRG".
std::string pattern_name(QN_COLOR_FILTER_ARRAY_PHASE phase);

// The phase of a 2x2 cell given row by row, or nothing when the cell is not
// a Bayer cell (two greens on one diagonal, red and blue on the other).
std::optional<QN_COLOR_FILTER_ARRAY_PHASE> phase_of_cell(const std::array<Filter_colour, 4>& cell);

// The colour at row r, column c of a mosaic whose pixel (0, 0) has `phase`.
Filter_colour colour_at(QN_COLOR_FILTER_ARRAY_PHASE phase, int row, int column);

}  // namespace oqa_tool

#endif  // OQA_TOOLS_BAYER_PATTERN_H
