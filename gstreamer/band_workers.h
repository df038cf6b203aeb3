// Threads that share the rows of one frame: each runs the same task on its
// own band of rows, and the frame is done when every band is.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace oqa_gst {

class Band_workers {
 public:
  // `threads` bands at most, the calling thread taking one of them. Where the
  // system refuses a thread, fewer bands run.
  explicit Band_workers(unsigned threads);
  ~Band_workers();
  Band_workers(const Band_workers&) = delete;
  Band_workers& operator=(const Band_workers&) = delete;

  unsigned threads() const { return static_cast<unsigned>(helpers_.size()) + 1; }

  // Calls task(band) for every band in [0, threads()) and returns when all
  // have returned. The task must not throw.
  void run(const std::function<void(unsigned)>& task);

 private:
  void serve(unsigned band);

  // Waking a sleeping thread costs tens of microseconds, far more on virtual
  // machines, so each side polls for a while before it sleeps.
  std::mutex mutex_;
  std::condition_variable work_ready_;
  std::condition_variable work_done_;
  const std::function<void(unsigned)>* task_ = nullptr;
  std::atomic<std::uint64_t> generation_ = 0;
  std::atomic<unsigned> unfinished_ = 0;
  std::atomic<bool> stopping_ = false;
  std::vector<std::thread> helpers_;
};

}  // namespace oqa_gst
