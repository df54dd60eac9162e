#include "pictures/Raster.h"

#include <cairo.h>

#include <cstdint>
#include <memory>

#include "pictures/PngBytes.h"

std::string Raster::png() const {
  const std::unique_ptr<cairo_surface_t, void (*)(cairo_surface_t*)> surface(
      cairo_image_surface_create(CAIRO_FORMAT_RGB24, static_cast<int>(columns),
                                 static_cast<int>(rows)),
      cairo_surface_destroy);
  unsigned char* data = cairo_image_surface_get_data(surface.get());
  if (!data) return pngBytes(surface.get());  // says what is wrong with the surface
  const auto stride = static_cast<std::size_t>(cairo_image_surface_get_stride(surface.get()));
  for (std::size_t y = 0; y < rows; ++y) {
    auto* row = reinterpret_cast<std::uint32_t*>(data + y * stride);
    for (std::size_t x = 0; x < columns; ++x) {
      const Colour& c = points[y * columns + x];
      row[x] = std::uint32_t{c.red} << 16 | std::uint32_t{c.green} << 8 | c.blue;
    }
  }
  cairo_surface_mark_dirty(surface.get());
  return pngBytes(surface.get());
}
