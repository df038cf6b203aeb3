#include "decoder_process.h"

#include <fcntl.h>
#include <malloc.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

#include "file_bytes.h"
#include "image_io_error.h"

namespace oqa_tool {

namespace {

// How the child ends; every other end is a crash. Kept away from 1, the
// status of a sanitizer report.
enum Child_exit : int { decoded = 0, refused = 100, unrecognised = 101, out_of_memory = 102 };

// The start of a decoded image's memory file. Camera data, the shot's
// metadata and header cards follow where present, then the samples.
struct Image_header {
  std::int32_t width;
  std::int32_t height;
  std::int32_t phase;  // -1: the format records none
  std::int32_t has_camera;
  std::int32_t has_shot;
  std::int32_t card_count;
};

static_assert(std::is_trivially_copyable_v<Camera_data> &&
              std::is_trivially_copyable_v<Shot_metadata>);

// Longest refusal message taken back from the child.
constexpr std::size_t max_message_bytes = 512;

// Calls transfer(bytes, size, done) until all size bytes have gone, resuming
// after a short count or EINTR; false on an error or end of file.
template <class Byte, class Transfer>
bool transfer_all(Byte* bytes, std::size_t size, Transfer transfer) {
  std::size_t done = 0;
  while (done < size) {
    const ssize_t count = transfer(bytes + done, size - done, done);
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count <= 0) {
      return false;
    }
    done += static_cast<std::size_t>(count);
  }
  return true;
}

bool write_all(int fd, const void* data, std::size_t size) {
  return transfer_all(static_cast<const std::uint8_t*>(data), size,
                      [fd](const std::uint8_t* from, std::size_t count, std::size_t) {
                        return ::write(fd, from, count);
                      });
}

bool read_all_at(int fd, void* data, std::size_t size, off_t offset) {
  return transfer_all(static_cast<std::uint8_t*>(data), size,
                      [fd, offset](std::uint8_t* to, std::size_t count, std::size_t done) {
                        return ::pread(fd, to, count, offset + static_cast<off_t>(done));
                      });
}

[[noreturn]] void run_child(const Decoder_limits& limits,
                            const std::function<Mosaic_image()>& decode, int result, pid_t parent) {
  // Never outlive the tool, and keep nothing of it alive: other jobs' files
  // and memory files are closed here.
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != parent) {
    ::_exit(EXIT_FAILURE);
  }
  if (result > 3) {
    ::close_range(3, static_cast<unsigned>(result) - 1, 0);
  }
  ::close_range(static_cast<unsigned>(result) + 1, ~0U, 0);
  const rlimit no_core_dump{0, 0};
  ::setrlimit(RLIMIT_CORE, &no_core_dump);
  // glibc fills every block it hands out with the complement of this byte
  // (calloc's are zero already), here zero.
  ::mallopt(M_PERTURB, 0xFF);
  limit_address_space(limits.memory_bytes);

  int status = EXIT_FAILURE;
  try {
    const Mosaic_image image = decode();
    const Picture_notes& notes = image.notes;
    const Image_header header{image.width,
                              image.height,
                              image.phase ? *image.phase : -1,
                              image.camera.has_value(),
                              notes.shot.has_value(),
                              static_cast<std::int32_t>(notes.fits_cards.size())};
    const bool written =
        write_all(result, &header, sizeof header) &&
        (!image.camera || write_all(result, &*image.camera, sizeof *image.camera)) &&
        (!notes.shot || write_all(result, &*notes.shot, sizeof *notes.shot)) &&
        write_all(result, notes.fits_cards.data(), notes.fits_cards.size() * sizeof(Header_card)) &&
        write_all(result, image.samples.data(), image.samples.size() * sizeof(std::uint16_t));
    status = written ? decoded : out_of_memory;  // a memory file fails to grow for want of memory
  } catch (const Unrecognised_format_error&) {
    status = unrecognised;
  } catch (const Image_io_error& error) {
    const std::string_view message = error.what();
    write_all(result, message.data(), std::min(message.size(), max_message_bytes));
    status = refused;
  } catch (const std::bad_alloc&) {
    status = out_of_memory;
  } catch (...) {
  }
  ::_exit(status);
}

// Waits for the child's end, killing it when the time is up. Returns the
// wait status, or nothing when the child ran out of time.
std::optional<int> wait_for(pid_t child, std::chrono::milliseconds limit, const char* decoder) {
  // Through syscall: glibc 2.36's <sys/pidfd.h> lacks C++ linkage.
  const File_descriptor watch(static_cast<int>(::syscall(SYS_pidfd_open, child, 0)));
  const int watch_error = errno;
  bool finished = false;
  if (watch.get() >= 0) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
          deadline - std::chrono::steady_clock::now());
      pollfd ended{watch.get(), POLLIN, 0};
      const int count = ::poll(&ended, 1,
                               static_cast<int>(std::clamp<std::int64_t>(
                                   left.count(), 0, std::numeric_limits<int>::max())));
      finished = count > 0;
      if (count >= 0 || errno != EINTR) {
        break;
      }
    }
  }
  if (!finished) {
    ::kill(child, SIGKILL);  // not yet waited for, so the number is still the child's
  }
  int status = 0;
  while (::waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) {
      status = -1;  // not ours to wait for (SIGCHLD ignored): no status to read
      break;
    }
  }
  if (watch.get() < 0) {
    throw Image_io_error(std::string("cannot watch the ") + decoder + ": " +
                         std::strerror(watch_error));
  }
  if (!finished) {
    return std::nullopt;
  }
  return status;
}

// The child's message, made one line of plain characters whatever it holds.
std::string read_message(int result) {
  char text[max_message_bytes] = {};
  const ssize_t count = ::pread(result, text, sizeof text, 0);
  std::string message(text, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  for (char& character : message) {
    if (character < ' ' || character > '~') {
      character = '?';
    }
  }
  return message;
}

// Reads `count` objects at `offset` and moves past them.
template <class T>
bool read_next(int fd, T* objects, std::size_t count, off_t& offset) {
  const std::size_t size = count * sizeof(T);
  const bool read = read_all_at(fd, objects, size, offset);
  offset += static_cast<off_t>(size);
  return read;
}

// The child's image, checked against the memory file that carries it.
Mosaic_image read_image(int result, const std::string& decoder) {
  const auto malformed = [&] {
    return Image_io_error("the " + decoder + " returned a malformed image");
  };
  struct stat status {};
  Image_header header{};
  off_t offset = 0;
  if (::fstat(result, &status) != 0 || !read_next(result, &header, 1, offset) ||
      header.phase < -1 || header.phase > QN_CFA_PHASE_GREEN_IN_BLUE_ROW || header.has_camera < 0 ||
      header.has_camera > 1 || header.has_shot < 0 || header.has_shot > 1 ||
      header.card_count < 0 || static_cast<std::size_t>(header.card_count) > max_fits_cards) {
    throw malformed();
  }
  check_image_size(header.width, header.height);
  const std::size_t count = static_cast<std::size_t>(header.width) * header.height;
  const std::uint64_t size = sizeof header + header.has_camera * sizeof(Camera_data) +
                             header.has_shot * sizeof(Shot_metadata) +
                             header.card_count * sizeof(Header_card) +
                             count * sizeof(std::uint16_t);
  if (static_cast<std::uint64_t>(status.st_size) != size) {
    throw malformed();
  }
  Mosaic_image image;
  image.width = header.width;
  image.height = header.height;
  if (header.phase >= 0) {
    image.phase = static_cast<QN_COLOR_FILTER_ARRAY_PHASE>(header.phase);
  }
  bool read = true;
  if (header.has_camera != 0) {
    read = read_next(result, &image.camera.emplace(), 1, offset);
    make_safe(*image.camera, image.width, image.height);
  }
  if (header.has_shot != 0) {
    read = read && read_next(result, &image.notes.shot.emplace(), 1, offset);
    make_safe(*image.notes.shot);
  }
  std::vector<Header_card>& cards = image.notes.fits_cards;
  cards.resize(static_cast<std::size_t>(header.card_count));
  read = read && read_next(result, cards.data(), cards.size(), offset);
  std::for_each(cards.begin(), cards.end(), [](Header_card& card) { make_safe(card); });
  image.samples.resize(count);
  if (!read || !read_next(result, image.samples.data(), count, offset)) {
    throw malformed();
  }
  return image;
}

}  // namespace

void limit_address_space(std::uint64_t extra) {
  if constexpr (!sanitized_build) {
    char text[64] = {};
    const int statm = ::open("/proc/self/statm", O_RDONLY | O_CLOEXEC);
    if (statm < 0) {
      return;
    }
    const ssize_t count = ::read(statm, text, sizeof text - 1);
    ::close(statm);
    if (count <= 0) {
      return;
    }
    // The first field: pages mapped.
    const std::uint64_t mapped =
        std::strtoull(text, nullptr, 10) * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
    rlimit limit{};
    if (::getrlimit(RLIMIT_AS, &limit) == 0) {
      limit.rlim_cur = std::min<rlim_t>(limit.rlim_cur, mapped + extra);
      ::setrlimit(RLIMIT_AS, &limit);
    }
  }
}

Mosaic_image run_decoder_process(const char* decoder, const Decoder_limits& limits,
                                 const std::function<Mosaic_image()>& decode) {
  const File_descriptor result(::memfd_create("oqa-decoder-result", MFD_CLOEXEC));
  if (result.get() < 0) {
    throw Image_io_error(std::string("cannot start the ") + decoder + ": " + std::strerror(errno));
  }
  const pid_t parent = ::getpid();
  const pid_t child = ::fork();
  if (child < 0) {
    throw Image_io_error(std::string("cannot start the ") + decoder + ": " + std::strerror(errno));
  }
  if (child == 0) {
    run_child(limits, decode, result.get(), parent);
  }
  const std::optional<int> status = wait_for(child, limits.time, decoder);
  const std::string who = std::string("the ") + decoder;
  if (!status) {
    throw Image_io_error(who + " took too long on this file");
  }
  const int code = WIFEXITED(*status) ? WEXITSTATUS(*status) : -1;
  switch (code) {
    case decoded:
      return read_image(result.get(), decoder);
    case refused: {
      const std::string message = read_message(result.get());
      throw Image_io_error(message.empty() ? who + " refused this file" : message);
    }
    case unrecognised:
      throw Unrecognised_format_error();
    case out_of_memory:
      throw Image_io_error(who + " ran out of memory on this file");
    default:
      throw Image_io_error(who + " crashed on this file");
  }
}

}  // namespace oqa_tool
