#include "log_output.h"

#include <spdlog/pattern_formatter.h>

#include "descriptor_sink.h"
#include "record_format.h"
#include "syslog_sink.h"

namespace oqa_logger {
namespace {

std::shared_ptr<spdlog::sinks::sink> with_pattern(std::shared_ptr<spdlog::sinks::sink> sink,
                                                  Record_format format, bool line_per_record) {
  sink->set_formatter(std::make_unique<spdlog::pattern_formatter>(
      record_pattern(format), spdlog::pattern_time_type::local, line_per_record ? "\n" : ""));
  return sink;
}

std::shared_ptr<spdlog::sinks::sink> standard_error(Record_format format) {
  return with_pattern(std::make_shared<Descriptor_sink>(), format, true);
}

}  // namespace

Opened_output Output_files::open(Logger_settings const& settings) {
  if (settings.output == Output_kind::syslog) {
    return {with_pattern(std::make_shared<Syslog_sink>(), settings.format, false), settings.format,
            std::nullopt};
  }
  if (settings.output == Output_kind::standard_error) {
    return {standard_error(settings.format), settings.format, std::nullopt};
  }

  std::erase_if(files_, [](auto const& entry) { return entry.second.sink.expired(); });
  auto const shared = files_.find(settings.output_path);
  if (shared != files_.end()) {
    if (std::shared_ptr<spdlog::sinks::sink> sink = shared->second.sink.lock()) {
      Record_format const format = shared->second.format;
      if (format == settings.format) {
        return {sink, format, std::nullopt};
      }
      return {sink, format,
              Config_problem{settings.config_path, settings.output_line,
                             "output already open in the other format by another log; "
                             "keeping that format"}};
    }
  }
  Opened_file const file = open_log_file(settings.output_path);
  if (file.descriptor < 0) {
    // A refused path must not cost the caller its diagnostics.
    return {standard_error(settings.format), settings.format,
            Config_problem{settings.config_path, settings.output_line,
                           "cannot open output: " + file.error + "; writing to stderr"}};
  }
  auto sink = with_pattern(
      std::make_shared<Descriptor_sink>(file, settings.output_path,
                                        Rotation{settings.max_size_bytes, settings.max_files}),
      settings.format, true);
  files_[settings.output_path] = {sink, settings.format};
  return {sink, settings.format, std::nullopt};
}

}  // namespace oqa_logger
