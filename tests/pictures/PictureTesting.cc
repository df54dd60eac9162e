#include "tests/pictures/PictureTesting.h"

#include <cairo.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <pugixml.hpp>
#include <stdexcept>

Image imageOf(const std::string& path) {
  const std::unique_ptr<cairo_surface_t, void (*)(cairo_surface_t*)> surface(
      cairo_image_surface_create_from_png(path.c_str()), cairo_surface_destroy);
  const unsigned char* data = cairo_image_surface_get_data(surface.get());
  if (!data) throw std::runtime_error("no PNG image");
  Image image{cairo_image_surface_get_width(surface.get()),
              cairo_image_surface_get_height(surface.get()),
              {}};
  for (int y = 0; y < image.height; ++y) {
    const unsigned char* row = data + y * cairo_image_surface_get_stride(surface.get());
    for (int x = 0; x < image.width; ++x) {
      std::uint32_t value = 0;
      std::memcpy(&value, row + 4 * x, sizeof value);
      image.points.push_back({static_cast<std::uint8_t>(value >> 16),
                              static_cast<std::uint8_t>(value >> 8),
                              static_cast<std::uint8_t>(value)});
    }
  }
  return image;
}

double luminance(const Colour& colour) {
  const auto linear = [](std::uint8_t value) {
    const double v = value / 255.0;
    return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
  };
  return 0.2126 * linear(colour.red) + 0.7152 * linear(colour.green) + 0.0722 * linear(colour.blue);
}

std::multiset<std::string> textsOf(const std::string& svg) {
  pugi::xml_document document;
  if (!document.load_buffer(svg.data(), svg.size()) || !document.child("svg")) {
    throw std::runtime_error("no SVG picture: " + svg.substr(0, 200));
  }
  std::multiset<std::string> texts;
  for (const auto& found : document.select_nodes("//text")) {
    texts.insert(found.node().text().get());
  }
  return texts;
}
