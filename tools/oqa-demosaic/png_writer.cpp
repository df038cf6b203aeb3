#include <png.h>

#include <csetjmp>
#include <string>
#include <vector>

#include "image_io_error.h"
#include "image_writer.h"
#include "stdio_file.h"

namespace oqa_tool {

namespace {

// libpng reports errors by longjmp; the jump target holds no C++ objects,
// so nothing is skipped over. Returns libpng's message or "" on success.
struct Png_error {
  char message[256] = "";
};

void on_error(png_structp png, png_const_charp message) {
  auto* error = static_cast<Png_error*>(png_get_error_ptr(png));
  std::snprintf(error->message, sizeof error->message, "%s", message);
  png_longjmp(png, 1);
}

void on_warning(png_structp /*png*/, png_const_charp /*message*/) {}

bool encode(std::FILE* file, const Colour_image& image, png_bytep* rows, Png_error* error) {
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, error, on_error, on_warning);
  if (png == nullptr) {
    return false;
  }
  png_infop info = png_create_info_struct(png);
  if (info == nullptr) {
    png_destroy_write_struct(&png, nullptr);
    return false;
  }
  if (setjmp(png_jmpbuf(png)) != 0) {
    png_destroy_write_struct(&png, &info);
    return false;
  }
  png_init_io(png, file);
  png_set_IHDR(png, info, static_cast<png_uint_32>(image.width),
               static_cast<png_uint_32>(image.height), 16, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  png_set_swap(png);  // PNG is big-endian, the samples are little-endian
  png_write_image(png, rows);
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  return true;
}

}  // namespace

void write_png(int descriptor, const Colour_image& image) {
  Stdio_file file(descriptor);
  std::vector<png_bytep> rows(static_cast<std::size_t>(image.height));
  const std::size_t row_samples = static_cast<std::size_t>(image.width) * 3;
  for (std::size_t y = 0; y < rows.size(); ++y) {
    // libpng only reads the rows, its interface lacks the const.
    rows[y] = reinterpret_cast<png_bytep>(
        const_cast<std::uint16_t*>(image.samples.data() + y * row_samples));
  }
  Png_error error;
  if (!encode(file.get(), image, rows.data(), &error)) {
    throw Image_io_error(std::string("cannot write PNG output") +
                         (error.message[0] != '\0' ? std::string(": ") + error.message : ""));
  }
  file.close();
}

}  // namespace oqa_tool
