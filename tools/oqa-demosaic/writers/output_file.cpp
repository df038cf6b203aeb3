#include "output_file.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "image_io_error.h"
#include "temporary_files.h"

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

// Six random letters or digits, as mkstemp uses.
std::string random_suffix() {
  static constexpr char letters[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
  unsigned char bytes[6] = {};
  if (::getrandom(bytes, sizeof bytes, 0) != static_cast<ssize_t>(sizeof bytes)) {
    throw_errno("cannot create the output");
  }
  std::string suffix;
  for (const unsigned char byte : bytes) {
    suffix += letters[byte % (sizeof letters - 1)];
  }
  return suffix;
}

// Renames without replacing an existing target; link+unlink where the file
// system lacks the no-replace rename.
int rename_no_replace(int folder, const std::string& from, const std::string& to) {
  if (::renameat2(folder, from.c_str(), folder, to.c_str(), RENAME_NOREPLACE) == 0) {
    return 0;
  }
  if (errno != EINVAL && errno != ENOSYS) {
    return -1;
  }
  if (::linkat(folder, from.c_str(), folder, to.c_str(), 0) != 0) {
    return -1;
  }
  ::unlinkat(folder, from.c_str(), 0);
  return 0;
}

int open_output_folder(const std::string& path) {
  int descriptor = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0 && errno == EACCES) {
    // A folder one may write in but not list still takes outputs; only its
    // final fsync is then left out.
    descriptor = ::open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  }
  if (descriptor < 0) {
    throw_errno("cannot open the output folder");
  }
  return descriptor;
}

}  // namespace

Output_place place_of(const std::string& target) {
  const std::filesystem::path path(target);
  const std::string folder = path.parent_path().string();
  return {folder.empty() ? "." : folder, path.filename().string()};
}

Output_folder::Output_folder(const std::string& path) : descriptor_(open_output_folder(path)) {}

Atomic_output_file::Atomic_output_file(const Output_folder& folder, std::string name,
                                       bool overwrite, std::span<const Protected_file> inputs)
    : folder_(folder.descriptor()), name_(std::move(name)), overwrite_(overwrite), inputs_(inputs) {
  check_target();
  // Hidden, in the target's folder: the rename then stays on one file system.
  for (int attempt = 0; attempt < 100 && descriptor_ < 0; ++attempt) {
    temporary_ = "." + name_ + "." + random_suffix();
    descriptor_ = create_temporary_file(folder_, temporary_);
    if (descriptor_ < 0 && errno != EEXIST) {
      break;
    }
  }
  if (descriptor_ < 0) {
    temporary_.clear();
    throw_errno("cannot create the output");
  }
}

Atomic_output_file::~Atomic_output_file() {
  if (descriptor_ >= 0) {
    ::close(descriptor_);
  }
  if (!committed_ && !temporary_.empty()) {
    remove_temporary_file(folder_, temporary_);
  }
}

// What the name holds now, never following a link: only a regular file that
// is none of the inputs may be replaced, and only with overwrite.
void Atomic_output_file::check_target() const {
  if (name_.empty() || name_ == "." || name_ == "..") {
    throw Image_io_error("output is a folder");
  }
  struct stat status {};
  if (::fstatat(folder_, name_.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno == ENOENT) {
      return;
    }
    throw_errno("cannot check the output");
  }
  if (S_ISDIR(status.st_mode)) {
    throw Image_io_error("output is a folder");
  }
  if (!S_ISREG(status.st_mode)) {
    throw Image_io_error(
        "output exists and is not a regular file (a link, pipe or device); "
        "it is never replaced");
  }
  const auto input = std::find_if(inputs_.begin(), inputs_.end(), [&](const Protected_file& file) {
    return file.device == status.st_dev && file.inode == status.st_ino;
  });
  if (input != inputs_.end()) {
    throw Image_io_error("output is the same file as input " + input->name);
  }
  if (!overwrite_) {
    throw Image_io_error(exists_message);
  }
}

void Atomic_output_file::commit() {
  // mkstemp-style files are private; give it the usual permissions.
  struct stat own {};
  if (::fchmod(descriptor_, 0666 & ~process_umask) != 0 || ::fsync(descriptor_) != 0 ||
      ::fstat(descriptor_, &own) != 0) {
    throw_errno("cannot write output");
  }
  const bool renamed = rename_temporary_file(folder_, temporary_, [&] {
    struct stat named {};
    if (::fstatat(folder_, temporary_.c_str(), &named, AT_SYMLINK_NOFOLLOW) != 0 ||
        named.st_dev != own.st_dev || named.st_ino != own.st_ino) {
      throw Image_io_error("the temporary file " + temporary_ +
                           " was replaced by someone else; output not written");
    }
    check_target();
    return (overwrite_ ? ::renameat(folder_, temporary_.c_str(), folder_, name_.c_str())
                       : rename_no_replace(folder_, temporary_, name_)) == 0;
  });
  if (!renamed) {
    if (errno == EEXIST) {
      throw Image_io_error(exists_message);
    }
    throw_errno("cannot write output");
  }
  committed_ = true;
  // Makes the new name durable; a folder opened without read access cannot
  // be synced, and the output is in place either way.
  ::fsync(folder_);
}

}  // namespace oqa_tool
