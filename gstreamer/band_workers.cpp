#include "band_workers.h"

#include <system_error>

namespace oqa_gst {

Band_workers::Band_workers(unsigned threads) {
  for (unsigned band = 1; band < threads; ++band) {
    try {
      helpers_.emplace_back([this, band] { serve(band); });
    } catch (const std::system_error&) {
      break;
    }
  }
}

Band_workers::~Band_workers() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  work_ready_.notify_all();
  for (std::thread& helper : helpers_) {
    helper.join();
  }
}

void Band_workers::run(const std::function<void(unsigned)>& task) {
  if (helpers_.empty()) {
    task(0);
    return;
  }
  {
    const std::lock_guard lock(mutex_);
    task_ = &task;
    unfinished_ = static_cast<unsigned>(helpers_.size());
    ++generation_;
  }
  work_ready_.notify_all();
  task(0);
  std::unique_lock lock(mutex_);
  work_done_.wait(lock, [this] { return unfinished_ == 0; });
  task_ = nullptr;
}

void Band_workers::serve(unsigned band) {
  std::uint64_t done = 0;
  std::unique_lock lock(mutex_);
  for (;;) {
    work_ready_.wait(lock, [&] { return stopping_ || generation_ != done; });
    if (stopping_) {
      return;
    }
    done = generation_;
    const std::function<void(unsigned)>& task = *task_;
    lock.unlock();
    task(band);
    lock.lock();
    if (--unfinished_ == 0) {
      work_done_.notify_one();
    }
  }
}

}  // namespace oqa_gst
