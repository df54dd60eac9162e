#include "pictures/PictureFile.h"

#include <cairo.h>
#include <gio/gio.h>
#include <librsvg/rsvg.h>

#include <filesystem>
#include <memory>

#include "audio/OutputFile.h"
#include "dsp/DataError.h"
#include "pictures/PngBytes.h"

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

}  // namespace

void writePicture(const std::string& path, const Drawing& drawing, bool overwrite) {
  Audio::OutputFile file(path, overwrite);
  file.write(std::filesystem::path(path).extension() == ".png" ? pngOf(drawing) : drawing.svg());
  file.finish();
}

std::string pngOf(const Drawing& drawing) {
  const std::string svg = drawing.svg();
  const auto stream = ownedObject(
      g_memory_input_stream_new_from_data(svg.data(), static_cast<gssize>(svg.size()), nullptr));
  GError* error = nullptr;
  RsvgHandle* read = rsvg_handle_new_from_stream_sync(stream.get(), nullptr,
                                                      RSVG_HANDLE_FLAG_UNLIMITED, nullptr, &error);
  require(read != nullptr, error);
  const auto picture = ownedObject(read);
  const Owned<cairo_surface_t> surface(
      cairo_image_surface_create(CAIRO_FORMAT_RGB24, drawing.width(), drawing.height()),
      cairo_surface_destroy);
  const Owned<cairo_t> context(cairo_create(surface.get()), cairo_destroy);
  const RsvgRectangle all = {0.0, 0.0, static_cast<double>(drawing.width()),
                             static_cast<double>(drawing.height())};
  require(rsvg_handle_render_document(picture.get(), context.get(), &all, &error) != 0, error);
  return pngBytes(surface.get());
}
