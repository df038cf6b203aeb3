// libtiff over a byte span, with libtiff's messages captured per handle
// instead of printed, so that one bad file yields one line naming it.
#ifndef OQA_TOOLS_TIFF_MEMORY_H
#define OQA_TOOLS_TIFF_MEMORY_H

#include <tiffio.h>

#include <cstdint>
#include <span>
#include <string>

namespace oqa_tool {

bool looks_like_tiff(std::span<const std::uint8_t> bytes);

class Memory_tiff {
 public:
  // Throws Image_io_error when libtiff cannot read the header.
  explicit Memory_tiff(std::span<const std::uint8_t> bytes);
  Memory_tiff(const Memory_tiff&) = delete;
  Memory_tiff& operator=(const Memory_tiff&) = delete;
  ~Memory_tiff();

  TIFF* get() const { return tiff_; }
  // libtiff's last error message, or "" when it reported none.
  const std::string& last_error() const { return last_error_; }

 private:
  static int on_message(TIFF* tiff, void* user_data, const char* module, const char* format,
                        va_list arguments);
  static int on_warning(TIFF* tiff, void* user_data, const char* module, const char* format,
                        va_list arguments);
  static tmsize_t read(thandle_t handle, void* buffer, tmsize_t size);
  static tmsize_t write(thandle_t handle, void* buffer, tmsize_t size);
  static toff_t seek(thandle_t handle, toff_t offset, int whence);
  static int close(thandle_t handle);
  static toff_t size(thandle_t handle);

  std::span<const std::uint8_t> bytes_;
  std::uint64_t position_ = 0;
  std::string last_error_;
  TIFF* tiff_ = nullptr;
};

}  // namespace oqa_tool

#endif  // OQA_TOOLS_TIFF_MEMORY_H
