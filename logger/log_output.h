// Opening the sink a log writes to; logs naming the same file share one sink,
// with one descriptor and one count of the file's size for rotation.
#pragma once

#include <spdlog/sinks/sink.h>

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "logger_settings.h"

namespace oqa_logger {

struct Opened_output {
  std::shared_ptr<spdlog::sinks::sink> sink;
  // The format the sink was set up for; a shared file keeps the format of
  // the log that opened it.
  Record_format format = Record_format::text;
  std::optional<Config_problem> problem;
};

class Output_files {
 public:
  Opened_output open(Logger_settings const& settings);

 private:
  struct Shared_file {
    std::weak_ptr<spdlog::sinks::sink> sink;
    Record_format format = Record_format::text;
  };
  std::map<std::string, Shared_file> files_;
};

}  // namespace oqa_logger
