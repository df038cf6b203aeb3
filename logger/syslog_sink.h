// A sink that hands records to syslog(3) without touching the process's
// openlog() settings, which belong to the application.
#pragma once

#include <spdlog/sinks/base_sink.h>

#include <mutex>

namespace oqa_logger {

class Syslog_sink final : public spdlog::sinks::base_sink<std::mutex> {
 protected:
  void sink_it_(spdlog::details::log_msg const& message) override;
  void flush_() override {}
};

}  // namespace oqa_logger
