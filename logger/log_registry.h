// The open logs of this process, one per module and instance name.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>

#include "config_search.h"
#include "log.h"
#include "log_output.h"

namespace oqa_logger {

class Log_registry {
 public:
  // Opens the log, or shares it when it is already open; each call must be
  // balanced by one close.
  Log* open(std::string const& module, std::string const& instance, Config_search const& search);

  // Undoes one open; the last one flushes and destroys the log. A name that
  // is not open is ignored.
  void close(std::string const& module, std::string const& instance);

  bool empty() const { return logs_.empty(); }

 private:
  struct Open_log {
    std::unique_ptr<Log> log;
    int references = 0;
  };
  std::map<std::pair<std::string, std::string>, Open_log> logs_;
  Output_files files_;
};

}  // namespace oqa_logger
