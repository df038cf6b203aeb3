#include "bayer_pattern.h"


namespace oqa_tool {

namespace {

using Cell = std::array<Filter_colour, 4>;
constexpr Filter_colour r = Filter_colour::red;
constexpr Filter_colour g = Filter_colour::green;
constexpr Filter_colour b = Filter_colour::blue;

struct Named_cell {
  QN_COLOR_FILTER_ARRAY_PHASE phase;
  const char* name;
  Cell cell;
};

// In phase order, so that the phase indexes the table.
constexpr std::array<Named_cell, 4> named_cells{{
    {QN_CFA_PHASE_RED, "RGGB", {r, g, g, b}},
    {QN_CFA_PHASE_BLUE, "BGGR", {b, g, g, r}},
    {QN_CFA_PHASE_GREEN_IN_RED_ROW, "GRBG", {g, r, b, g}},
    {QN_CFA_PHASE_GREEN_IN_BLUE_ROW, "GBRG", {g, b, r, g}},
}};

}  // namespace

std::string pattern_name(QN_COLOR_FILTER_ARRAY_PHASE phase) {
  return named_cells.at(static_cast<std::size_t>(phase)).name;
}

std::optional<QN_COLOR_FILTER_ARRAY_PHASE> phase_of_cell(const Cell& cell) {
  for (const Named_cell& entry : named_cells) {
    if (entry.cell == cell) {
      return entry.phase;
    }
  }
  return std::nullopt;
}

Filter_colour colour_at(QN_COLOR_FILTER_ARRAY_PHASE phase, int row, int column) {
  const Cell& cell = named_cells.at(static_cast<std::size_t>(phase)).cell;
  return cell[(static_cast<std::size_t>(row) & 1U) * 2 + (static_cast<std::size_t>(column) & 1U)];
}

}  // namespace oqa_tool
