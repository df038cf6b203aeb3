#include "file_bytes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "image_io_error.h"

namespace oqa_tool {

namespace {

[[noreturn]] void throw_errno(const char* what) {
  throw Image_io_error(std::string(what) + ": " + std::strerror(errno));
}

[[noreturn]] void throw_too_large(std::uint64_t max_bytes) {
  throw Image_io_error("file is larger than " + std::to_string(max_bytes) +
                       " bytes, the most this input may hold");
}

}  // namespace

File_descriptor::~File_descriptor() {
  if (fd_ >= 0) {
    ::close(fd_);
  }
}

Input_file::Input_file(const std::string& path)
    : file_(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
  if (file_.get() < 0) {
    throw_errno("cannot open");
  }
  struct stat status {};
  if (::fstat(file_.get(), &status) != 0) {
    throw_errno("cannot read");
  }
  if (S_ISDIR(status.st_mode)) {
    throw Image_io_error("is a folder, not an image file");
  }
  if (S_ISREG(status.st_mode)) {
    size_ = static_cast<std::uint64_t>(status.st_size);
  }
}

Bytes Input_file::read_all(std::uint64_t max_bytes) {
  if (size_.value_or(0) > max_bytes) {
    throw_too_large(max_bytes);
  }
  Bytes bytes;
  bytes.reserve(static_cast<std::size_t>(size_.value_or(0)));
  // Read to the end rather than trusting the size: pipes and growing files.
  std::uint8_t chunk[1 << 16];
  for (;;) {
    const ssize_t count = ::read(file_.get(), chunk, sizeof chunk);
    if (count < 0) {
      if (errno == EINTR) {
        continue;
      }
      throw_errno("cannot read");
    }
    if (count == 0) {
      return bytes;
    }
    if (static_cast<std::uint64_t>(count) > max_bytes - bytes.size()) {
      throw_too_large(max_bytes);
    }
    bytes.insert(bytes.end(), chunk, chunk + count);
  }
}

Bytes read_file_bytes(const std::string& path) {
  return Input_file(path).read_all(max_input_bytes);
}

}  // namespace oqa_tool
