#include "band_workers.h"

#include <immintrin.h>

#include <chrono>
#include <system_error>

namespace oqa_gst {
namespace {

// About one frame time of a fast pipeline: a helper between frames of a
// stream keeps polling, one of an idle or slow stream soon sleeps.
constexpr auto poll_time = std::chrono::microseconds(1000);

// Polls `ready` until it holds or poll_time has passed; returns whether it holds.
template <typename Ready>
bool poll(Ready ready) {
  const auto deadline = std::chrono::steady_clock::now() + poll_time;
  for (;;) {
    for (int pause = 0; pause < 64; ++pause) {
      if (ready()) {
        return true;
      }
      _mm_pause();
    }
    if (std::chrono::steady_clock::now() > deadline) {
      return ready();
    }
  }
}

}  // namespace

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
    // Under the lock, so that a helper deciding to sleep sees either the new
    // generation or the notification.
    const std::lock_guard lock(mutex_);
    task_ = &task;
    unfinished_.store(static_cast<unsigned>(helpers_.size()));
    generation_.fetch_add(1);
  }
  work_ready_.notify_all();
  task(0);
  const auto all_done = [this] { return unfinished_.load() == 0; };
  if (!poll(all_done)) {
    std::unique_lock lock(mutex_);
    work_done_.wait(lock, all_done);
  }
}

void Band_workers::serve(unsigned band) {
  std::uint64_t done = 0;
  const auto work_or_stop = [&] { return stopping_.load() || generation_.load() != done; };
  for (;;) {
    if (!poll(work_or_stop)) {
      std::unique_lock lock(mutex_);
      work_ready_.wait(lock, work_or_stop);
    }
    if (stopping_.load()) {
      return;
    }
    done = generation_.load();
    (*task_)(band);
    if (unfinished_.fetch_sub(1) == 1) {
      const std::lock_guard lock(mutex_);
      work_done_.notify_one();
    }
  }
}

}  // namespace oqa_gst
