#include "log_output.h"

#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>

#include <exception>

#include "record_format.h"
#include "syslog_sink.h"

namespace oqa_logger {
namespace {

void set_record_pattern(spdlog::sinks::sink& sink, Record_format format, bool line_per_record) {
  sink.set_formatter(std::make_unique<spdlog::pattern_formatter>(
      record_pattern(format), spdlog::pattern_time_type::local, line_per_record ? "\n" : ""));
}

std::shared_ptr<spdlog::sinks::sink> standard_error_sink(Record_format format) {
  auto sink = std::make_shared<spdlog::sinks::stderr_sink_mt>();
  set_record_pattern(*sink, format, true);
  return sink;
}

std::shared_ptr<spdlog::sinks::sink> file_sink(Logger_settings const& settings) {
  std::shared_ptr<spdlog::sinks::sink> sink;
  if (settings.max_size_bytes != 0) {
    sink = std::make_shared<spdlog::sinks::rotating_file_sink_mt>(
        settings.output_path, settings.max_size_bytes, settings.max_files);
  } else {
    sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(settings.output_path);
  }
  set_record_pattern(*sink, settings.format, true);
  return sink;
}

}  // namespace

Opened_output Output_files::open(Logger_settings const& settings) {
  if (settings.output == Output_kind::syslog) {
    auto sink = std::make_shared<Syslog_sink>();
    set_record_pattern(*sink, settings.format, false);
    return {sink, settings.format, std::nullopt};
  }
  if (settings.output == Output_kind::standard_error) {
    return {standard_error_sink(settings.format), settings.format, std::nullopt};
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
  try {
    std::shared_ptr<spdlog::sinks::sink> sink = file_sink(settings);
    files_[settings.output_path] = {sink, settings.format};
    return {sink, settings.format, std::nullopt};
  } catch (std::exception const& error) {
    // An unwritable path must not cost the caller its diagnostics.
    return {
        standard_error_sink(settings.format), settings.format,
        Config_problem{settings.config_path, settings.output_line,
                       std::string("cannot open output: ") + error.what() + "; writing to stderr"}};
  }
}

}  // namespace oqa_logger
