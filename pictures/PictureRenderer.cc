#include "pictures/PictureRenderer.h"

#include <cairo.h>
#include <fmt/format.h>
#include <gio/gio.h>
#include <librsvg/rsvg.h>

#include <cstdint>
#include <memory>

#include "dsp/DataError.h"

namespace {

template <class T>
using Owned = std::unique_ptr<T, void (*)(T*)>;

template <class T>
Owned<T> ownedObject(T* object) {
  return {object, [](T* p) { g_object_unref(p); }};
}

/// Throws when a call of the drawing library left an error.
void require(bool success, GError* error) {
  if (success) return;
  const std::string reason = error ? error->message : "unknown error";
  g_clear_error(&error);
  throw DataError("the picture cannot be rendered: " + reason);
}

Owned<cairo_surface_t> newSurface(int width, int height) {
  return {cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height), cairo_surface_destroy};
}

/// The bytes of a PNG file of an image surface.
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

}  // namespace

void zelkRenderSvg(const std::string& svg, int width, int height, std::string& png) {
  const auto stream = ownedObject(
      g_memory_input_stream_new_from_data(svg.data(), static_cast<gssize>(svg.size()), nullptr));
  GError* error = nullptr;
  RsvgHandle* read = rsvg_handle_new_from_stream_sync(stream.get(), nullptr,
                                                      RSVG_HANDLE_FLAG_UNLIMITED, nullptr, &error);
  require(read != nullptr, error);
  const auto picture = ownedObject(read);
  const auto surface = newSurface(width, height);
  const Owned<cairo_t> context(cairo_create(surface.get()), cairo_destroy);
  const RsvgRectangle all = {0.0, 0.0, static_cast<double>(width), static_cast<double>(height)};
  require(rsvg_handle_render_document(picture.get(), context.get(), &all, &error) != 0, error);
  png = pngBytes(surface.get());
}

void zelkRenderPoints(const Colour* points, std::size_t columns, std::size_t rows,
                      std::string& png) {
  const auto surface = newSurface(static_cast<int>(columns), static_cast<int>(rows));
  if (unsigned char* data = cairo_image_surface_get_data(surface.get())) {
    const auto stride = static_cast<std::size_t>(cairo_image_surface_get_stride(surface.get()));
    for (std::size_t y = 0; y < rows; ++y) {
      auto* row = reinterpret_cast<std::uint32_t*>(data + y * stride);
      for (std::size_t x = 0; x < columns; ++x) {
        const Colour& c = points[y * columns + x];
        row[x] = std::uint32_t{c.red} << 16 | std::uint32_t{c.green} << 8 | c.blue;
      }
    }
    cairo_surface_mark_dirty(surface.get());
  }
  png = pngBytes(surface.get());  // says what is wrong with the surface
}
