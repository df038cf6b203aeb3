#include "file_bytes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "image_io_error.h"

namespace oqa_tool {

namespace {

// Closes the descriptor on every way out.
class File_descriptor {
 public:
  explicit File_descriptor(int fd) : fd_(fd) {}
  File_descriptor(const File_descriptor&) = delete;
  File_descriptor& operator=(const File_descriptor&) = delete;
  ~File_descriptor() {
    if (fd_ >= 0) {
      ::close(fd_);
    }
  }
  int get() const { return fd_; }

 private:
  int fd_;
};

[[noreturn]] void throw_errno(const char* what) {
  throw Image_io_error(std::string(what) + ": " + std::strerror(errno));
}

}  // namespace

std::vector<std::uint8_t> read_file_bytes(const std::string& path) {
  const File_descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (file.get() < 0) {
    throw_errno("cannot open");
  }
  struct stat status {};
  if (::fstat(file.get(), &status) != 0) {
    throw_errno("cannot read");
  }
  if (S_ISDIR(status.st_mode)) {
    throw Image_io_error("is a folder, not an image file");
  }
  std::vector<std::uint8_t> bytes;
  if (S_ISREG(status.st_mode)) {
    bytes.reserve(static_cast<std::size_t>(status.st_size));
  }
  // Read to the end rather than trusting the size: pipes and growing files.
  std::uint8_t chunk[1 << 16];
  for (;;) {
    const ssize_t count = ::read(file.get(), chunk, sizeof chunk);
    if (count < 0) {
      if (errno == EINTR) {
        continue;
      }
      throw_errno("cannot read");
    }
    if (count == 0) {
      break;
    }
    bytes.insert(bytes.end(), chunk, chunk + count);
  }
  return bytes;
}

}  // namespace oqa_tool
