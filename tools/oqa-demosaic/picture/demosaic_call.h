// The tool's one way into the library.
#ifndef OQA_TOOLS_DEMOSAIC_CALL_H
#define OQA_TOOLS_DEMOSAIC_CALL_H

#include <optional>
#include <string>
#include <string_view>

#include "mosaic_image.h"

namespace oqa_tool {

// auto: the library's own choice; the others name the test entry's levels.
enum class Level { automatic = -1, scalar = 0, sse = 1, avx2 = 2, avx512 = 3 };

// "auto", "scalar", "sse", "avx2", "avx512".
std::optional<Level> parse_level(std::string_view name);
std::string level_name(Level level);

struct Demosaic_request {
  QN_COLOR_FILTER_ARRAY_PHASE phase = QN_CFA_PHASE_RED;
  int origin_x = 0;
  int origin_y = 0;
  QN_COLOR_FORMAT format = QN_COLOR_FORMAT_RGB_INTERLEAVED;
  Level level = Level::automatic;
};

// Demosaics into `output`, resized to fit. Throws Image_io_error naming the
// library's result code if it refuses.
void demosaic(const Mosaic_image& input, const Demosaic_request& request, Colour_image& output);

// Keeps the library initialised for the life of the object.
class Library_session {
 public:
  Library_session();
  Library_session(const Library_session&) = delete;
  Library_session& operator=(const Library_session&) = delete;
  ~Library_session();
};

}  // namespace oqa_tool

#endif  // OQA_TOOLS_DEMOSAIC_CALL_H
