// Starting the demosaic library from a program that is not the library's own
// build: the converter, the Python package and the GStreamer element.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ostrevan_oqa_demosaic.h"

namespace oqa_session {

// The folder the demosaic library was loaded from, or "/" if it cannot be
// told. Its companions and logger are installed beside it.
std::string library_folder();

// qn_demosaic_module_initialize() with library_folder() as the working folder,
// because the library looks for its companions in the working folder first.
// It runs on a helper thread that has a working folder of its own, so the
// process's working folder does not change and other threads are not
// disturbed; where a sandbox refuses the thread a folder of its own, the
// process's working folder moves for the call instead. Returns the library's
// result code; throws std::runtime_error if a working folder cannot be
// entered or returned to.
int initialise_library();

// "RGGB", "BGGR", "GRBG" or "GBRG" (any case): the 2x2 cell at the origin,
// row by row, as every program names it.
std::optional<QN_COLOR_FILTER_ARRAY_PHASE> parse_pattern(std::string_view name);

// "bgr-planar", "bgr" or "rgb" (any case): the output layouts by name.
std::optional<QN_COLOR_FORMAT> parse_layout(std::string_view name);

// The instruction-set levels by the numbers the library's test entry takes.
inline constexpr std::array<std::string_view, 4> level_names{"scalar", "sse", "avx2", "avx512"};
inline constexpr int automatic_level = -1;

// "auto" (automatic_level) or one of level_names; nothing for other names.
std::optional<int> parse_level(std::string_view name);

// The levels this process really runs: scalar, and each vector level whose
// companion lies in library_folder() and whose instructions the processor
// and the operating system provide. Any other level runs the scalar code.
std::vector<int> usable_levels();

}  // namespace oqa_session
