#include "descriptor_sink.h"

#include <fcntl.h>
#include <spdlog/details/os.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>
#include <utility>

namespace oqa_logger {
namespace {

constexpr mode_t log_file_mode = 0640;

constinit std::atomic<bool> exit_began{false};
constinit std::atomic<std::size_t> exiting_thread{0};
constinit std::atomic<int> writes_in_progress{0};

// Counted before exit_began is read: either stop_other_writers sees the
// count, or the writer sees the flag.
class Write_in_progress {
 public:
  Write_in_progress() { ++writes_in_progress; }
  ~Write_in_progress() { --writes_in_progress; }
  Write_in_progress(Write_in_progress const&) = delete;
  Write_in_progress& operator=(Write_in_progress const&) = delete;
};

// The whole buffer, resuming after a partial write; a failing write (disk
// full, a non-blocking stderr that is full) loses the record but never
// blocks or spins. Returns the bytes written.
std::uint64_t write_whole(int descriptor, char const* data, std::size_t size) {
  std::uint64_t written = 0;
  while (size > 0) {
    ssize_t const result = ::write(descriptor, data, size);
    if (result < 0 && errno == EINTR) {
      continue;
    }
    if (result <= 0) {
      break;
    }
    auto const count = static_cast<std::size_t>(result);
    data += count;
    size -= count;
    written += count;
  }
  return written;
}

bool exists(std::string const& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0;
}

}  // namespace

void stop_other_writers() noexcept {
  exiting_thread = spdlog::details::os::thread_id();
  exit_began = true;
  // A write takes microseconds, but a writer preempted inside one on a busy
  // machine may not run again for milliseconds, and exit would cut its record
  // where it crosses a page. Only one stuck on a full pipe is given up on.
  auto const give_up = std::chrono::steady_clock::now() + std::chrono::milliseconds(250);
  while (writes_in_progress != 0 && std::chrono::steady_clock::now() < give_up) {
    std::this_thread::sleep_for(std::chrono::microseconds(50));
  }
}

Opened_file open_log_file(std::string const& path) {
  struct stat status {};
  // Looked at before opening, so that no device or FIFO is ever opened.
  if (::lstat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
    return {-1, 0, S_ISLNK(status.st_mode) ? "it is a symbolic link" : "it is not a regular file"};
  }
  // O_NONBLOCK: a FIFO put in the file's place since is refused below rather
  // than waited on; on a regular file the flag changes nothing.
  int const descriptor = ::open(
      path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY | O_NONBLOCK,
      log_file_mode);
  if (descriptor < 0) {
    int const error = errno;
    if (error == ELOOP) {
      return {-1, 0, "it is a symbolic link"};
    }
    if (error == ENOENT) {
      return {-1, 0, "its folder does not exist"};
    }
    return {-1, 0, std::strerror(error)};
  }
  if (::fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
    ::close(descriptor);
    return {-1, 0, "it is not a regular file"};
  }
  return {descriptor, static_cast<std::uint64_t>(status.st_size), {}};
}

Descriptor_sink::Descriptor_sink(Opened_file const& file, std::string path, Rotation rotation)
    : descriptor_(file.descriptor),
      owned_(true),
      path_(std::move(path)),
      rotation_(rotation),
      size_(file.size) {
  // "logs/demosaic.log" rotates to "logs/demosaic.1.log"; a name without an
  // extension, or a hidden one such as ".log", gets the number at its end.
  std::size_t const name_start = path_.rfind('/') + 1;
  std::size_t const dot = path_.rfind('.');
  if (dot != std::string::npos && dot > name_start && dot + 1 < path_.size()) {
    stem_ = path_.substr(0, dot);
    extension_ = path_.substr(dot);
  } else {
    stem_ = path_;
  }
}

Descriptor_sink::~Descriptor_sink() {
  if (owned_) {
    ::close(descriptor_);
  }
}

void Descriptor_sink::sink_it_(spdlog::details::log_msg const& message) {
  spdlog::memory_buf_t line;
  formatter_->format(message, line);
  Write_in_progress const counted;
  if (exit_began && message.thread_id != exiting_thread) {
    return;
  }
  // A record alone in its file never rotates, so even records larger than
  // the limit cost one rotation per file, not one per record.
  if (rotation_.max_size_bytes != 0 && size_ != 0 &&
      size_ + line.size() > rotation_.max_size_bytes) {
    rotate();
  }
  size_ += write_whole(descriptor_, line.data(), line.size());
}

void Descriptor_sink::rotate() {
  // Another process sharing the file may have rotated it already: then the
  // name leads to that process's fresh file, which this one joins.
  struct stat ours {};
  struct stat named {};
  if (::fstat(descriptor_, &ours) == 0 && ::lstat(path_.c_str(), &named) == 0 &&
      ours.st_dev == named.st_dev && ours.st_ino == named.st_ino) {
    shift_older_files();
  }
  Opened_file const fresh = open_log_file(path_);
  if (fresh.descriptor < 0) {
    // Keep writing where we were; the next try comes a whole file later.
    size_ = 0;
    return;
  }
  ::close(descriptor_);
  descriptor_ = fresh.descriptor;
  size_ = fresh.size;
}

void Descriptor_sink::shift_older_files() const {
  if (rotation_.max_files == 0) {
    ::unlink(path_.c_str());
    return;
  }
  // Only the files up to the first gap move, so a rotation costs one rename
  // per older file there is, not one per older file allowed.
  std::size_t last = 1;
  while (last < rotation_.max_files && exists(older_file(last))) {
    ++last;
  }
  for (std::size_t number = last; number > 1; --number) {
    ::rename(older_file(number - 1).c_str(), older_file(number).c_str());
  }
  ::rename(path_.c_str(), older_file(1).c_str());
}

std::string Descriptor_sink::older_file(std::size_t number) const {
  return stem_ + "." + std::to_string(number) + extension_;
}

}  // namespace oqa_logger
