// Output file types and the sample layouts of the .raw output.
#ifndef OQA_TOOLS_OUTPUT_TYPE_H
#define OQA_TOOLS_OUTPUT_TYPE_H

#include <optional>
#include <string>
#include <string_view>

#include "ostrevan_oqa_demosaic.h"

namespace oqa_tool {

enum class Output_type { tiff, png, ppm, raw };

// "tiff", "tif", "png", "ppm", "raw" (case-insensitive).
std::optional<Output_type> parse_output_type(std::string_view name);

// From the file name's extension: .tif/.tiff, .png, .ppm, .raw.
std::optional<Output_type> output_type_of_path(const std::string& path);

// ".tiff", ".png", ".ppm" or ".raw".
std::string extension_of(Output_type type);

// "bgr-planar", "bgr", "rgb".
std::optional<QN_COLOR_FORMAT> parse_layout(std::string_view name);

}  // namespace oqa_tool

#endif  // OQA_TOOLS_OUTPUT_TYPE_H
