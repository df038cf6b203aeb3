#include "temporary_files.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace oqa_tool {

namespace {

struct Live_files {
  std::mutex mutex;
  std::vector<std::pair<int, std::string>> files;  // folder descriptor, name
};

// Never destroyed: the clean-up thread may still need it while the process
// exits.
Live_files& live_files() {
  static Live_files* const files = new Live_files;
  return *files;
}

void forget(Live_files& live, int folder, const std::string& name) {
  const auto found =
      std::find(live.files.begin(), live.files.end(), std::pair<int, std::string>(folder, name));
  if (found != live.files.end()) {
    live.files.erase(found);
  }
}

// Runs on the clean-up thread, an ordinary thread: no signal handler is
// involved, so locking and unlinking are safe here.
[[noreturn]] void remove_all_and_die_of(int signal) {
  Live_files& live = live_files();
  live.mutex.lock();  // kept until the end: nothing new may appear meanwhile
  for (const auto& [folder, name] : live.files) {
    ::unlinkat(folder, name.c_str(), 0);
  }
  std::signal(signal, SIG_DFL);
  sigset_t only;
  sigemptyset(&only);
  sigaddset(&only, signal);
  pthread_sigmask(SIG_UNBLOCK, &only, nullptr);
  std::raise(signal);
  ::_exit(128 + signal);  // only if the default action did not end the process
}

}  // namespace

int create_temporary_file(int folder, const std::string& name) {
  Live_files& live = live_files();
  const std::lock_guard lock(live.mutex);
  const int descriptor =
      ::openat(folder, name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (descriptor >= 0) {
    live.files.emplace_back(folder, name);
  }
  return descriptor;
}

bool rename_temporary_file(int folder, const std::string& name,
                           const std::function<bool()>& rename) {
  Live_files& live = live_files();
  const std::lock_guard lock(live.mutex);
  if (!rename()) {
    return false;
  }
  forget(live, folder, name);
  return true;
}

void remove_temporary_file(int folder, const std::string& name) {
  Live_files& live = live_files();
  const std::lock_guard lock(live.mutex);
  ::unlinkat(folder, name.c_str(), 0);
  forget(live, folder, name);
}

void remove_temporary_files_on_signals() {
  sigset_t awaited;
  sigemptyset(&awaited);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction current {};
    if (sigaction(signal, nullptr, &current) == 0 && current.sa_handler != SIG_IGN) {
      sigaddset(&awaited, signal);
    }
  }
  if (sigisemptyset(&awaited) == 1) {
    return;
  }
  const int blocked = pthread_sigmask(SIG_BLOCK, &awaited, nullptr);
  if (blocked != 0) {
    throw std::system_error(blocked, std::generic_category(), "cannot block signals");
  }
  std::thread([awaited] {
    int signal = 0;
    while (sigwait(&awaited, &signal) != 0) {
    }
    remove_all_and_die_of(signal);
  }).detach();
}

}  // namespace oqa_tool
