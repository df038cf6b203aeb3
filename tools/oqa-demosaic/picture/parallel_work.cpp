#include "parallel_work.h"

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace oqa_tool {

namespace {

// Joins on every way out, so that no thread outlives what it works on.
class Thread_group {
 public:
  Thread_group() = default;
  Thread_group(const Thread_group&) = delete;
  Thread_group& operator=(const Thread_group&) = delete;
  ~Thread_group() { join(); }
  void start(const std::function<void()>& work) { threads_.emplace_back(work); }
  void join() {
    for (std::thread& thread : threads_) {
      if (thread.joinable()) {
        thread.join();
      }
    }
  }

 private:
  std::vector<std::thread> threads_;
};

}  // namespace

void for_each_band(int rows, unsigned threads, const std::function<void(int, int)>& work) {
  const int bands = std::clamp(static_cast<int>(threads), 1, std::max(rows, 1));
  if (bands == 1) {
    work(0, rows);
    return;
  }
  std::mutex mutex;
  std::exception_ptr failure;
  const auto band = [&](int index) {
    try {
      work(rows * index / bands, rows * (index + 1) / bands);
    } catch (...) {
      const std::lock_guard lock(mutex);
      failure = failure ? failure : std::current_exception();
    }
  };
  {
    Thread_group group;
    for (int index = 1; index < bands; ++index) {
      group.start([&band, index] { band(index); });
    }
    band(0);
  }
  if (failure) {
    std::rethrow_exception(failure);
  }
}

void encode_in_order(std::size_t count, unsigned threads, const Piece_encoder& encode,
                     const Piece_sink& emit) {
  if (threads <= 1) {
    Bytes output;
    Bytes work;
    for (std::size_t piece = 0; piece < count; ++piece) {
      emit(piece, encode(piece, output, work));
    }
    return;
  }
  struct Piece {
    Bytes output;
    std::span<const std::uint8_t> bytes;
    bool ready = false;
  };
  std::vector<Piece> pieces(count);
  std::vector<Bytes> spare_outputs;  // of pieces written, for the next ones
  const std::size_t window = 2 * static_cast<std::size_t>(threads);
  std::mutex mutex;
  std::condition_variable changed;
  std::size_t next = 0;
  std::size_t emitted = 0;
  std::exception_ptr failure;
  const auto fail = [&](const std::exception_ptr& error) {
    const std::lock_guard lock(mutex);
    failure = failure ? failure : error;
    changed.notify_all();
  };
  const auto worker = [&] {
    Bytes work;
    for (;;) {
      std::size_t piece = 0;
      {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return failure || next >= count || next < emitted + window; });
        if (failure || next >= count) {
          return;
        }
        piece = next++;
        if (!spare_outputs.empty()) {
          pieces[piece].output = std::move(spare_outputs.back());
          spare_outputs.pop_back();
        }
      }
      try {
        const std::span<const std::uint8_t> bytes = encode(piece, pieces[piece].output, work);
        const std::lock_guard lock(mutex);
        pieces[piece].bytes = bytes;
        pieces[piece].ready = true;
        changed.notify_all();
      } catch (...) {
        fail(std::current_exception());
        return;
      }
    }
  };
  {
    Thread_group group;
    try {
      for (unsigned thread = 0; thread < threads; ++thread) {
        group.start(worker);
      }
    } catch (...) {
      fail(std::current_exception());  // the started workers see it and stop
    }
    for (std::size_t piece = 0; piece < count; ++piece) {
      {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return failure || pieces[piece].ready; });
        if (failure) {
          break;
        }
      }
      try {
        emit(piece, pieces[piece].bytes);
      } catch (...) {
        fail(std::current_exception());
        break;
      }
      const std::lock_guard lock(mutex);
      spare_outputs.push_back(std::move(pieces[piece].output));
      emitted = piece + 1;
      changed.notify_all();
    }
  }
  if (failure) {
    std::rethrow_exception(failure);
  }
}

}  // namespace oqa_tool
