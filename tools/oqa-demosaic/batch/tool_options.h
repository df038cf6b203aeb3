// Everything the command line decides, for the batch and demo runners.
#ifndef OQA_TOOLS_TOOL_OPTIONS_H
#define OQA_TOOLS_TOOL_OPTIONS_H

#include <optional>
#include <string>
#include <vector>

#include "demosaic_call.h"
#include "image_writer.h"
#include "input_reader.h"
#include "output_type.h"
#include "picture_steps.h"

namespace oqa_tool {

struct Tool_options {
  std::vector<std::string> inputs;
  std::string output;
  // Set: build the chart and write it here; inputs and output are unused.
  std::optional<std::string> demo_output;

  Read_options read;
  // Overrides the pattern a camera raw file records.
  std::optional<QN_COLOR_FILTER_ARRAY_PHASE> pattern;
  int origin_x = 0;
  int origin_y = 0;
  Level level = Level::automatic;

  Output_type type = Output_type::tiff;
  // The user named --type: it then also applies to an output file whose
  // name has no known extension.
  bool type_given = false;
  QN_COLOR_FORMAT buffer_layout = QN_COLOR_FORMAT_BGR_INTERLEAVED;
  // The picture steps and the writers; the batch sets their threads per file.
  Picture_options picture;
  Write_settings write;
  bool force = false;
  bool quiet = false;
  unsigned jobs = 1;
};

}  // namespace oqa_tool

#endif  // OQA_TOOLS_TOOL_OPTIONS_H
