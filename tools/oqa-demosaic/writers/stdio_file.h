// A stdio stream over a copy of an output's descriptor, for the writers that
// emit bytes themselves; closing it leaves the output's own descriptor open.
#ifndef OQA_TOOLS_STDIO_FILE_H
#define OQA_TOOLS_STDIO_FILE_H

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "image_io_error.h"

namespace oqa_tool {

class Stdio_file {
 public:
  explicit Stdio_file(int descriptor) {
    const int copy = ::fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
    file_ = copy < 0 ? nullptr : ::fdopen(copy, "wb");
    if (file_ == nullptr) {
      const int error = errno;
      if (copy >= 0) {
        ::close(copy);
      }
      throw Image_io_error(std::string("cannot write output: ") + std::strerror(error));
    }
  }
  Stdio_file(const Stdio_file&) = delete;
  Stdio_file& operator=(const Stdio_file&) = delete;
  ~Stdio_file() {
    if (file_ != nullptr) {
      std::fclose(file_);
    }
  }

  std::FILE* get() const { return file_; }

  void write(const void* data, std::size_t size) {
    if (std::fwrite(data, 1, size, file_) != size) {
      throw Image_io_error(std::string("cannot write output: ") + std::strerror(errno));
    }
  }

  // Flushes and closes, reporting a full disk and the like.
  void close() {
    std::FILE* file = file_;
    file_ = nullptr;
    if (std::fclose(file) != 0) {
      throw Image_io_error(std::string("cannot write output: ") + std::strerror(errno));
    }
  }

 private:
  std::FILE* file_ = nullptr;
};

}  // namespace oqa_tool

#endif  // OQA_TOOLS_STDIO_FILE_H
