#include "output_type.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>

namespace oqa_tool {

namespace {

struct Type_names {
  Output_type type;
  Compression default_compression;
  // The first is the extension of outputs named after their input.
  std::array<std::string_view, 3> names;
};

constexpr Type_names type_names[] = {
    {Output_type::tiff, Compression::none, {"tiff", "tif"}},
    {Output_type::png, Compression::fast, {"png"}},
    {Output_type::ppm, Compression::none, {"ppm"}},
    {Output_type::library_buffer, Compression::none, {"raw"}},
    {Output_type::fits, Compression::none, {"fits", "fit", "fts"}}};

// Fast: matching strings in 16-bit photographs finds little beyond runs
// (TIFF, after its predictor) or the byte statistics (PNG, whose filters
// work on bytes), and looking for them halves zlib's speed.
constexpr Compression_choice compression_choices[] = {
    {Compression::none, "none", {0, Z_DEFAULT_STRATEGY}, {0, Z_DEFAULT_STRATEGY}, false},
    {Compression::fast, "fast", {1, Z_RLE}, {1, Z_HUFFMAN_ONLY}, false},
    {Compression::best, "best", {9, Z_DEFAULT_STRATEGY}, {9, Z_DEFAULT_STRATEGY}, true}};

std::string lower(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return result;
}

}  // namespace

std::optional<Output_type> parse_output_type(std::string_view name) {
  const std::string key = lower(name);
  for (const Type_names& entry : type_names) {
    if (!key.empty() &&
        std::find(entry.names.begin(), entry.names.end(), key) != entry.names.end()) {
      return entry.type;
    }
  }
  return std::nullopt;
}

std::optional<Output_type> output_type_of_path(const std::string& path) {
  const std::string extension = std::filesystem::path(path).extension().string();
  if (extension.size() < 2) {
    return std::nullopt;
  }
  return parse_output_type(std::string_view(extension).substr(1));
}

std::string extension_of(Output_type type) {
  for (const Type_names& entry : type_names) {
    if (entry.type == type) {
      std::string extension(1, '.');  // not "." + ...: GCC 12 warns falsely (-Wrestrict)
      return extension.append(entry.names.front());
    }
  }
  return ".tiff";
}

Compression default_compression(Output_type type) {
  for (const Type_names& entry : type_names) {
    if (entry.type == type) {
      return entry.default_compression;
    }
  }
  return Compression::none;
}

const Compression_choice& choice_of(Compression compression) {
  return compression_choices[static_cast<std::size_t>(compression)];
}

std::optional<Compression> parse_compression(std::string_view name) {
  const std::string key = lower(name);
  for (const Compression_choice& choice : compression_choices) {
    if (key == choice.name) {
      return choice.compression;
    }
  }
  return std::nullopt;
}

}  // namespace oqa_tool
