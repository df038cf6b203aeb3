#include "syslog_sink.h"

#include <syslog.h>

namespace oqa_logger {
namespace {

int syslog_severity(spdlog::level::level_enum level) {
  switch (level) {
    case spdlog::level::critical:
      return LOG_CRIT;
    case spdlog::level::err:
      return LOG_ERR;
    case spdlog::level::warn:
      return LOG_WARNING;
    case spdlog::level::info:
      return LOG_INFO;
    default:
      return LOG_DEBUG;
  }
}

}  // namespace

void Syslog_sink::sink_it_(spdlog::details::log_msg const& message) {
  spdlog::memory_buf_t formatted;
  formatter_->format(message, formatted);
  ::syslog(LOG_USER | syslog_severity(message.level), "%.*s", static_cast<int>(formatted.size()),
           formatted.data());
}

}  // namespace oqa_logger
