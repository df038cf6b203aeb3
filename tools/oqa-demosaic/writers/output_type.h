// Output file types, their compression and the sample layouts of the .raw
// output.
#ifndef OQA_TOOLS_OUTPUT_TYPE_H
#define OQA_TOOLS_OUTPUT_TYPE_H

#include <optional>
#include <string>
#include <string_view>

#include "ostrevan_oqa_demosaic.h"

namespace oqa_tool {

enum class Output_type { tiff, png, ppm, library_buffer, fits };

// "tiff", "tif", "png", "ppm", "raw", "fits", "fit", "fts" (case-insensitive).
std::optional<Output_type> parse_output_type(std::string_view name);

// From the file name's extension, one of the names above.
std::optional<Output_type> output_type_of_path(const std::string& path);

// ".tiff", ".png", ".ppm", ".raw" or ".fits".
std::string extension_of(Output_type type);

enum class Compression { none, fast, best };

// zlib's level (0: TIFF strips stored uncompressed, PNG data in stored
// blocks) and strategy.
struct Deflate_setting {
  int level;
  int strategy;
};

// How TIFF and PNG outputs are compressed; PPM, raw and FITS never are.
struct Compression_choice {
  Compression compression;
  const char* name;
  Deflate_setting tiff;
  Deflate_setting png;
  // PNG rows: each row's best filter by the usual smallest-sum rule, or
  // else Sub (its left neighbour) where png.level > 0, none otherwise.
  bool adaptive_png_filter;
};

const Compression_choice& choice_of(Compression compression);
std::optional<Compression> parse_compression(std::string_view name);

// Without --compression: TIFF uncompressed, as fast as a disk takes it;
// PNG, which has no uncompressed form, fast.
Compression default_compression(Output_type type);

}  // namespace oqa_tool

#endif  // OQA_TOOLS_OUTPUT_TYPE_H
