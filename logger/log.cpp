#include "log.h"

#include <pthread.h>
#include <spdlog/details/os.h>
#include <unistd.h>

#include <atomic>
#include <mutex>

#include <utility>

#include "priority.h"

namespace oqa_logger {
namespace {

// spdlog has six levels for syslog's eight severities; the record itself
// carries the exact priority, the level only picks the syslog severity.
spdlog::level::level_enum spdlog_level(int priority) {
  switch (priority) {
    case 0:
    case 1:
    case 2:
      return spdlog::level::critical;
    case 3:
      return spdlog::level::err;
    case 4:
      return spdlog::level::warn;
    case 5:
    case 6:
      return spdlog::level::info;
    default:
      return spdlog::level::debug;
  }
}

char const* or_empty(char const* text) { return text != nullptr ? text : ""; }

// getpid() is a system call, a noticeable part of a record's cost; the id is
// kept and forgotten in a forked child, which has its own.
constinit std::atomic<pid_t> cached_process_id{0};
constinit std::once_flag fork_handler_registered;

long process_id() {
  pid_t id = cached_process_id.load(std::memory_order_relaxed);
  if (id == 0) {
    id = ::getpid();
    cached_process_id.store(id, std::memory_order_relaxed);
  }
  return id;
}

}  // namespace

Log::Log(std::string const& module, std::string const& instance, int level, Opened_output output)
    : level_(level),
      formatter_(output.format, module, instance),
      logger_(module, std::move(output.sink)) {
  logger_.set_level(spdlog::level::trace);
  // A failing write (disk full) must stay inside this library: spdlog's own
  // handler would print to the caller's stderr.
  logger_.set_error_handler([](std::string const& /*unused*/) {});
  // Handlers registered here are dropped by glibc when the library is closed.
  std::call_once(fork_handler_registered, [] {
    pthread_atfork(nullptr, nullptr, [] { cached_process_id.store(0, std::memory_order_relaxed); });
  });
}

int Log::write(int priority, char const* file, int line, char const* function,
               char const* message) noexcept {
  if (!is_valid_priority(priority)) {
    return -1;
  }
  if (priority <= level_) {
    write_record(priority, file, line, function, message);
  }
  return 0;
}

void Log::report(Config_problem const& problem) noexcept {
  write_record(warning_priority, problem.file.c_str(), problem.line, "oqa_get_log",
               problem.text.c_str());
}

void Log::write_record(int priority, char const* file, int line, char const* function,
                       char const* message) noexcept {
  try {
    Record_buffer body;
    formatter_.append({priority, or_empty(file), line, or_empty(function), or_empty(message),
                       process_id(), spdlog::details::os::thread_id()},
                      body);
    logger_.log(spdlog_level(priority), spdlog::string_view_t(body.data(), body.size()));
  } catch (...) {  // NOLINT(bugprone-empty-catch): only allocation can fail here; drop the record
  }
}

}  // namespace oqa_logger
