#include "progress_bar.h"

#include <unistd.h>

#include <cstdio>

namespace oqa_tool {

namespace {
constexpr std::size_t bar_width = 40;
}  // namespace

Progress_bar::Progress_bar(std::size_t total, bool enabled)
    : total_(total), drawing_(enabled && total > 0 && ::isatty(STDERR_FILENO) == 1) {
  const std::lock_guard lock(mutex_);
  draw_locked();
}

void Progress_bar::advance() {
  const std::lock_guard lock(mutex_);
  ++done_;
  draw_locked();
}

void Progress_bar::message(const std::string& line) {
  const std::lock_guard lock(mutex_);
  clear_locked();
  std::fprintf(stderr, "%s\n", line.c_str());
  draw_locked();
}

void Progress_bar::finish() {
  const std::lock_guard lock(mutex_);
  clear_locked();
  drawing_ = false;
}

void Progress_bar::draw_locked() {
  if (!drawing_) {
    return;
  }
  const std::size_t filled = total_ == 0 ? bar_width : done_ * bar_width / total_;
  std::string bar(filled, '#');
  bar.resize(bar_width, '.');
  std::fprintf(stderr, "\r[%s] %zu/%zu", bar.c_str(), done_, total_);
  std::fflush(stderr);
}

void Progress_bar::clear_locked() {
  if (drawing_) {
    std::fprintf(stderr, "\r\033[K");
  }
}

}  // namespace oqa_tool
