// Writing the rendered image as a PNG file, through libpng.
#ifndef VTQR_EXAMPLES_RENDER_PNG_FILE_H_
#define VTQR_EXAMPLES_RENDER_PNG_FILE_H_

#include <string>

#include "renderer.h"

namespace render {

// Writes 8-bit sRGB; false with a message naming the file when it cannot.
bool WritePng(const Image& image, const std::string& path, std::string* error);

}  // namespace render

#endif  // VTQR_EXAMPLES_RENDER_PNG_FILE_H_
