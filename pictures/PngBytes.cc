#include "pictures/PngBytes.h"

#include <fmt/format.h>

#include "dsp/DataError.h"

std::string pngBytes(cairo_surface_t* surface) {
  std::string bytes;
  const cairo_write_func_t append = [](void* target, const unsigned char* data, unsigned length) {
    static_cast<std::string*>(target)->append(reinterpret_cast<const char*>(data), length);
    return CAIRO_STATUS_SUCCESS;
  };
  const cairo_status_t status = cairo_surface_write_to_png_stream(surface, append, &bytes);
  if (status != CAIRO_STATUS_SUCCESS) {
    throw DataError(fmt::format(
        "a PNG image of {} × {} points cannot be made: {}", cairo_image_surface_get_width(surface),
        cairo_image_surface_get_height(surface), cairo_status_to_string(status)));
  }
  return bytes;
}
