#include "output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <vector>

#include "image_io_error.h"

namespace oqa_tool {

namespace {

// Read once at start-up, before any thread: umask can only be read by
// setting it.
mode_t read_umask() {
  const mode_t mask = ::umask(0);
  ::umask(mask);
  return mask;
}
const mode_t process_umask = read_umask();

const char* const exists_message = "output exists (use --force to overwrite)";

[[noreturn]] void throw_errno(const std::string& what) {
  throw Image_io_error(what + ": " + std::strerror(errno));
}

// Renames without replacing an existing target; link+unlink where the file
// system lacks the no-replace rename.
int rename_no_replace(const std::string& from, const std::string& to) {
  if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) {
    return 0;
  }
  if (errno != EINVAL && errno != ENOSYS) {
    return -1;
  }
  if (::link(from.c_str(), to.c_str()) != 0) {
    return -1;
  }
  ::unlink(from.c_str());
  return 0;
}

}  // namespace

Atomic_output_file::Atomic_output_file(std::string target, bool overwrite)
    : target_(std::move(target)), overwrite_(overwrite) {
  struct stat status {};
  if (::stat(target_.c_str(), &status) == 0) {
    if (S_ISDIR(status.st_mode)) {
      throw Image_io_error("output is a folder");
    }
    if (!overwrite_) {
      throw Image_io_error(exists_message);
    }
  }
  const std::filesystem::path path(target_);
  // Hidden, in the target's folder: the rename then stays on one file system.
  std::string pattern =
      (path.parent_path() / ("." + path.filename().string() + ".XXXXXX")).string();
  std::vector<char> name(pattern.begin(), pattern.end());
  name.push_back('\0');
  const int fd = ::mkstemp(name.data());
  if (fd < 0) {
    throw_errno("cannot write output");
  }
  ::close(fd);
  temporary_ = name.data();
}

Atomic_output_file::~Atomic_output_file() {
  if (!committed_) {
    ::unlink(temporary_.c_str());
  }
}

void Atomic_output_file::commit() {
  // mkstemp creates the file private; give it the usual permissions.
  ::chmod(temporary_.c_str(), 0666 & ~process_umask);
  if (overwrite_) {
    if (std::rename(temporary_.c_str(), target_.c_str()) != 0) {
      throw_errno("cannot write output");
    }
  } else if (rename_no_replace(temporary_, target_) != 0) {
    if (errno == EEXIST) {
      throw Image_io_error(exists_message);
    }
    throw_errno("cannot write output");
  }
  committed_ = true;
}

}  // namespace oqa_tool
