#include "tiff_memory.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "image_io_error.h"

namespace oqa_tool {

namespace {
Memory_tiff& self(thandle_t handle) { return *static_cast<Memory_tiff*>(handle); }
}  // namespace

bool looks_like_tiff(std::span<const std::uint8_t> bytes) {
  if (bytes.size() < 4) {
    return false;
  }
  const bool little =
      bytes[0] == 'I' && bytes[1] == 'I' && bytes[3] == 0 && (bytes[2] == 42 || bytes[2] == 43);
  const bool big =
      bytes[0] == 'M' && bytes[1] == 'M' && bytes[2] == 0 && (bytes[3] == 42 || bytes[3] == 43);
  return little || big;
}

Memory_tiff::Memory_tiff(std::span<const std::uint8_t> bytes) : bytes_(bytes) {
  TIFFOpenOptions* options = TIFFOpenOptionsAlloc();
  if (options == nullptr) {
    throw std::bad_alloc();
  }
  // libtiff sizes its own buffers (strip and tile tables, raw data) from the
  // file's claims; none of them needs more than a few times the file.
  const auto file_bytes = static_cast<tmsize_t>(bytes.size());
  TIFFOpenOptionsSetMaxSingleMemAlloc(options, std::max<tmsize_t>(16 * file_bytes, 16 << 20));
  TIFFOpenOptionsSetErrorHandlerExtR(options, &Memory_tiff::on_message, this);
  TIFFOpenOptionsSetWarningHandlerExtR(options, &Memory_tiff::on_warning, this);
  // "m": no memory mapping, every read goes through our procedures.
  tiff_ = TIFFClientOpenExt("memory", "rm", this, &Memory_tiff::read, &Memory_tiff::write,
                            &Memory_tiff::seek, &Memory_tiff::close, &Memory_tiff::size, nullptr,
                            nullptr, options);
  TIFFOpenOptionsFree(options);
  if (tiff_ == nullptr) {
    throw Image_io_error("corrupt TIFF file" +
                         (last_error_.empty() ? std::string() : ": " + last_error_));
  }
}

Memory_tiff::~Memory_tiff() {
  if (tiff_ != nullptr) {
    TIFFClose(tiff_);
  }
}

int Memory_tiff::on_message(TIFF* /*tiff*/, void* user_data, const char* /*module*/,
                            const char* format, va_list arguments) {
  char text[512];
  std::vsnprintf(text, sizeof text, format, arguments);
  static_cast<Memory_tiff*>(user_data)->last_error_ = text;
  return 1;  // handled: libtiff prints nothing
}

int Memory_tiff::on_warning(TIFF* /*tiff*/, void* /*user_data*/, const char* /*module*/,
                            const char* /*format*/, va_list /*arguments*/) {
  return 1;  // warnings (unknown tags and the like) are not worth a line
}

tmsize_t Memory_tiff::read(thandle_t handle, void* buffer, tmsize_t size) {
  Memory_tiff& tiff = self(handle);
  if (size < 0 || tiff.position_ >= tiff.bytes_.size()) {
    return 0;
  }
  const std::uint64_t count = std::min<std::uint64_t>(static_cast<std::uint64_t>(size),
                                                      tiff.bytes_.size() - tiff.position_);
  std::memcpy(buffer, tiff.bytes_.data() + tiff.position_, count);
  tiff.position_ += count;
  return static_cast<tmsize_t>(count);
}

tmsize_t Memory_tiff::write(thandle_t /*handle*/, void* /*buffer*/, tmsize_t /*size*/) {
  return -1;
}

toff_t Memory_tiff::seek(thandle_t handle, toff_t offset, int whence) {
  Memory_tiff& tiff = self(handle);
  std::uint64_t base = 0;
  if (whence == SEEK_CUR) {
    base = tiff.position_;
  } else if (whence == SEEK_END) {
    base = tiff.bytes_.size();
  }
  // Offsets past the end are allowed, as with a file; reads there return 0.
  tiff.position_ = base + offset;
  return tiff.position_;
}

int Memory_tiff::close(thandle_t /*handle*/) { return 0; }

toff_t Memory_tiff::size(thandle_t handle) { return self(handle).bytes_.size(); }

}  // namespace oqa_tool
