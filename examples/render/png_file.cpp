// PNG output. libpng reports errors by longjmp back to the setjmp below, so everything with a
// destructor is built before it, and nothing between setjmp and the end needs unwinding.
#include "png_file.h"

#include <png.h>

#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <vector>

namespace render {
namespace {

void Warn(png_structp, png_const_charp) {}  // warnings do not stop the write

}  // namespace

bool WritePng(const Image& image, const std::string& path, std::string* error) {
  std::vector<png_bytep> rows(static_cast<size_t>(image.height));
  for (int y = 0; y < image.height; ++y) {
    rows[static_cast<size_t>(y)] =
        const_cast<png_bytep>(&image.rgb[3 * static_cast<size_t>(y) * image.width]);
  }
  FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) {
    *error = "cannot write '" + path + "': " + std::strerror(errno);
    return false;
  }
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, Warn);
  png_infop info = png == nullptr ? nullptr : png_create_info_struct(png);
  volatile bool written = false;  // set after setjmp, read after a longjmp
  if (info != nullptr && setjmp(png_jmpbuf(png)) == 0) {
    png_init_io(png, file);
    png_set_IHDR(png, info, static_cast<png_uint_32>(image.width),
                 static_cast<png_uint_32>(image.height), 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_sRGB_gAMA_and_cHRM(png, info, PNG_sRGB_INTENT_PERCEPTUAL);
    png_write_info(png, info);
    png_write_image(png, rows.data());
    png_write_end(png, nullptr);
    written = true;
  }
  png_destroy_write_struct(&png, &info);
  if (std::fclose(file) != 0) written = false;
  if (!written) *error = "cannot write '" + path + "': the PNG encoder failed";
  return written;
}

}  // namespace render
