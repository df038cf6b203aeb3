#include "own_library_folder.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <filesystem>
#include <string>

#include "image_io_error.h"

namespace oqa_tool {

namespace {

[[noreturn]] void throw_errno(const std::string& what) {
  throw Image_io_error(what + ": " + std::strerror(errno));
}

std::string own_library_folder() {
  std::error_code error;
  const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
  return error ? "/" : (program.parent_path().parent_path() / "lib").string();
}

}  // namespace

void initialise_in_own_library_folder(const std::function<void()>& initialise) {
  // O_PATH: a folder one may enter but not list can still be returned to.
  const int working_folder = ::open(".", O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (working_folder < 0) {
    throw_errno("cannot open the working folder");
  }
  if (::chdir(own_library_folder().c_str()) != 0 && ::chdir("/") != 0) {
    ::close(working_folder);
    throw_errno("cannot leave the working folder to initialise the library");
  }
  std::exception_ptr failure;
  try {
    initialise();
  } catch (...) {
    failure = std::current_exception();
  }
  const bool returned = ::fchdir(working_folder) == 0;
  const int error = errno;
  ::close(working_folder);
  if (!returned) {
    errno = error;
    throw_errno("cannot return to the working folder");
  }
  if (failure) {
    std::rethrow_exception(failure);
  }
}

}  // namespace oqa_tool
