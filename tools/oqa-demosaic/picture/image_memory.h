// Memory for whole files and images. First touching a page costs a page
// fault, and on a virtual machine a fault is dear: a 24-megapixel colour
// image on 4 KiB pages spends more time faulting than being demosaiced and
// written. Blocks of a mebibyte and more are therefore mapped on their own
// and given transparent huge pages, which take a five-hundredth of the
// faults. Fresh mappings are zero, so such a block never holds another
// image's data.
#ifndef OQA_TOOLS_IMAGE_MEMORY_H
#define OQA_TOOLS_IMAGE_MEMORY_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace oqa_tool {

// Throws std::bad_alloc.
void* allocate_image_memory(std::size_t bytes);
void free_image_memory(void* block, std::size_t bytes) noexcept;

template <class T>
struct Image_allocator {
  using value_type = T;
  Image_allocator() = default;
  template <class U>
  explicit Image_allocator(const Image_allocator<U>& /*other*/) noexcept {}
  T* allocate(std::size_t count) {
    return static_cast<T*>(allocate_image_memory(count * sizeof(T)));
  }
  void deallocate(T* block, std::size_t count) noexcept {
    free_image_memory(block, count * sizeof(T));
  }
  template <class U>
  bool operator==(const Image_allocator<U>& /*other*/) const noexcept {
    return true;
  }
};

// Sample planes and file contents.
using Samples = std::vector<std::uint16_t, Image_allocator<std::uint16_t>>;
using Bytes = std::vector<std::uint8_t, Image_allocator<std::uint8_t>>;

}  // namespace oqa_tool

#endif  // OQA_TOOLS_IMAGE_MEMORY_H
