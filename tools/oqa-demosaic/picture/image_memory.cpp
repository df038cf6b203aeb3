#include "image_memory.h"

#include <sys/mman.h>

#include <cstdint>
#include <new>

#include "decoder_process.h"

namespace oqa_tool {

namespace {

constexpr std::size_t huge_page = std::size_t{2} << 20;
// Below this a block comes from the heap: a mapping of its own would cost
// more than the faults it saves. Sanitizers see overruns of heap blocks
// only, so their builds take every block from there.
constexpr std::size_t mapped_from = sanitized_build ? SIZE_MAX : std::size_t{1} << 20;

std::size_t mapped_size(std::size_t bytes) {
  return (bytes + huge_page - 1) / huge_page * huge_page;
}

}  // namespace

void* allocate_image_memory(std::size_t bytes) {
  if (bytes < mapped_from) {
    return ::operator new(bytes);
  }
  const std::size_t size = mapped_size(bytes);
  // Over-map by one huge page, then trim to a huge-page-aligned block.
  void* const mapping = ::mmap(nullptr, size + huge_page, PROT_READ | PROT_WRITE,
                               MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (mapping == MAP_FAILED) {
    throw std::bad_alloc();
  }
  auto* const start = static_cast<char*>(mapping);
  const std::size_t head =
      (huge_page - reinterpret_cast<std::uintptr_t>(start) % huge_page) % huge_page;
  if (head > 0) {
    ::munmap(start, head);
  }
  char* const block = start + head;
  ::munmap(block + size, huge_page - head);
  ::madvise(block, size, MADV_HUGEPAGE);  // advice only: small pages still work
  return block;
}

void free_image_memory(void* block, std::size_t bytes) noexcept {
  if (bytes < mapped_from) {
    ::operator delete(block);
  } else {
    ::munmap(block, mapped_size(bytes));
  }
}

}  // namespace oqa_tool
