// The sink for standard error and log files: every record goes out in one
// write(2), on an O_APPEND descriptor for a file, so that records from other
// threads and other processes sharing the file never land inside it. Nothing
// is buffered, so nothing is lost when the process ends without closing.
#pragma once

#include <spdlog/sinks/base_sink.h>

#include <cstdint>
#include <mutex>
#include <string>

namespace oqa_logger {

struct Opened_file {
  int descriptor = -1;  // -1 when the file was refused; error says why
  std::uint64_t size = 0;
  std::string error;
};

// Opens path for appending, creating it (mode 0640) when missing. Refused:
// a symbolic link, anything but a regular file (without ever blocking on a
// FIFO), and a path whose folder does not exist (folders are not created).
Opened_file open_log_file(std::string const& path);

// For the thread that calls exit, as exit begins: from then on records from
// other threads are dropped, and those being written are waited for (a few
// milliseconds at most), so that no thread is killed in the middle of a
// write, which would leave a cut line behind.
void stop_other_writers() noexcept;

struct Rotation {
  std::uint64_t max_size_bytes = 0;  // 0: the file grows without rotation
  std::size_t max_files = 0;         // older files kept: name.1.ext (newest) to name.N.ext
};

class Descriptor_sink final : public spdlog::sinks::base_sink<std::mutex> {
 public:
  // Standard error, neither owned nor rotated.
  Descriptor_sink() = default;
  // A file from open_log_file, owned from here on.
  Descriptor_sink(Opened_file const& file, std::string path, Rotation rotation);
  ~Descriptor_sink() override;
  Descriptor_sink(Descriptor_sink const&) = delete;
  Descriptor_sink& operator=(Descriptor_sink const&) = delete;

 protected:
  void sink_it_(spdlog::details::log_msg const& message) override;
  void flush_() override {}

 private:
  void rotate();
  void shift_older_files() const;
  std::string older_file(std::size_t number) const;

  int descriptor_ = 2;
  bool owned_ = false;
  std::string path_;
  Rotation rotation_;
  std::uint64_t size_ = 0;
  // path_ split around its extension, for the older files' names.
  std::string stem_;
  std::string extension_;
};

}  // namespace oqa_logger
