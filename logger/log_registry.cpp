#include "log_registry.h"

namespace oqa_logger {

Log* Log_registry::open(std::string const& module, std::string const& instance,
                        Config_search const& search) {
  auto const key = std::make_pair(module, instance);
  auto const existing = logs_.find(key);
  if (existing != logs_.end()) {
    ++existing->second.references;
    return existing->second.log.get();
  }
  Logger_settings const settings = load_settings(search);
  Opened_output output = files_.open(settings);
  std::optional<Config_problem> const output_problem = output.problem;
  auto log = std::make_unique<Log>(module, instance, settings.level, std::move(output));
  for (Config_problem const& problem : settings.problems) {
    log->report(problem);
  }
  if (output_problem) {
    log->report(*output_problem);
  }
  Log* const opened = log.get();
  logs_.emplace(key, Open_log{std::move(log), 1});
  return opened;
}

void Log_registry::close(std::string const& module, std::string const& instance) {
  auto const existing = logs_.find(std::make_pair(module, instance));
  if (existing == logs_.end()) {
    return;
  }
  if (--existing->second.references == 0) {
    logs_.erase(existing);
  }
}

}  // namespace oqa_logger
