#include "pictures/Drawing.h"

#include <fmt/format.h>
#include <glib.h>

#include <algorithm>
#include <memory>
#include <sstream>

#include "pictures/Base64.h"

namespace {

/// Mean width of a letter over the text's size.
constexpr double LETTER_WIDTH = 0.56;

std::string number(double value) { return fmt::format("{:.2f}", value); }

void set(pugi::xml_node node, const char* name, const std::string& value) {
  node.append_attribute(name).set_value(value.c_str());
}

void set(pugi::xml_node node, const char* name, double value) { set(node, name, number(value)); }

/// What XML may hold.
std::string clean(const std::string& text) {
  const std::unique_ptr<char, void (*)(void*)> valid(
      g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())), g_free);
  std::string result = valid.get();
  for (char& c : result) {
    if ((c >= 0 && c < ' ') || c == 0x7f) c = '?';
  }
  return result;
}

}  // namespace

Drawing::Drawing(int widthPixels, int heightPixels, const std::string& title)
    : pixelWidth(widthPixels), pixelHeight(heightPixels), root(document.append_child("svg")) {
  set(root, "xmlns", "http://www.w3.org/2000/svg");
  set(root, "xmlns:xlink", "http://www.w3.org/1999/xlink");
  set(root, "width", std::to_string(width()));
  set(root, "height", std::to_string(height()));
  set(root, "viewBox", fmt::format("0 0 {} {}", width(), height()));
  set(root, "font-family", "DejaVu Sans, Verdana, Helvetica, Arial, sans-serif");
  root.append_child("title").text().set(clean(title).c_str());
  patch({0, 0}, {1.0 * width(), 1.0 * height()}, 0.0, WHITE, {WHITE, 0.0});
}

pugi::xml_node Drawing::add(const char* name, const Stroke& stroke) {
  pugi::xml_node node = root.append_child(name);
  set(node, "fill", "none");
  if (stroke.width <= 0.0) return node;
  set(node, "stroke", stroke.colour.hex());
  set(node, "stroke-width", stroke.width);
  if (!stroke.dashes.empty()) set(node, "stroke-dasharray", stroke.dashes);
  return node;
}

void Drawing::line(Point from, Point to, const Stroke& stroke) {
  pugi::xml_node node = add("line", stroke);
  set(node, "x1", from.x);
  set(node, "y1", from.y);
  set(node, "x2", to.x);
  set(node, "y2", to.y);
}

void Drawing::path(const std::vector<Point>& points, bool closed, const Stroke& stroke) {
  std::string list;
  for (const Point& p : points) list += fmt::format("{:.2f},{:.2f} ", p.x, p.y);
  pugi::xml_node node = add(closed ? "polygon" : "polyline", stroke);
  set(node, "stroke-linejoin", "round");
  set(node, "points", list);
}

void Drawing::circle(Point centre, double radius, const Stroke& stroke) {
  pugi::xml_node node = add("circle", stroke);
  set(node, "cx", centre.x);
  set(node, "cy", centre.y);
  set(node, "r", radius);
}

void Drawing::patch(Point from, Point to, double rounding, Colour fill, const Stroke& stroke) {
  pugi::xml_node node = add("rect", stroke);
  node.attribute("fill").set_value(fill.hex().c_str());
  set(node, "x", from.x);
  set(node, "y", from.y);
  set(node, "width", to.x - from.x);
  set(node, "height", to.y - from.y);
  if (rounding > 0.0) set(node, "rx", rounding);
}

void Drawing::text(Point at, const std::string& content, const TextStyle& style) {
  static constexpr const char* ANCHORS[] = {"start", "middle", "end"};
  pugi::xml_node node = root.append_child("text");
  set(node, "x", at.x);
  set(node, "y", at.y + style.size * 0.35);
  set(node, "font-size", style.size);
  set(node, "text-anchor", ANCHORS[static_cast<int>(style.anchor)]);
  set(node, "fill", style.colour.hex());
  if (style.bold) set(node, "font-weight", "bold");
  if (style.turn != 0.0) {
    set(node, "transform", fmt::format("rotate({:g} {:.2f} {:.2f})", style.turn, at.x, at.y));
  }
  node.text().set(clean(content).c_str());
}

void Drawing::image(const Raster& raster, Point from, Point to, Point clipFrom, Point clipTo) {
  pugi::xml_node window = root.append_child("svg");
  set(window, "x", clipFrom.x);
  set(window, "y", clipFrom.y);
  set(window, "width", clipTo.x - clipFrom.x);
  set(window, "height", clipTo.y - clipFrom.y);
  pugi::xml_node node = window.append_child("image");
  set(node, "x", from.x - clipFrom.x);
  set(node, "y", from.y - clipFrom.y);
  set(node, "width", to.x - from.x);
  set(node, "height", to.y - from.y);
  set(node, "preserveAspectRatio", "none");
  set(node, "xlink:href", "data:image/png;base64," + base64(raster.png()));
}

std::string Drawing::svg() const {
  std::ostringstream out;
  document.save(out, " ");
  return out.str();
}

std::string shortened(const std::string& text, double width, double size) {
  std::string valid = clean(text);
  const auto letters = g_utf8_strlen(valid.c_str(), -1);
  const auto most = static_cast<glong>(std::max(2.0, width / (LETTER_WIDTH * size)));
  if (letters <= most) return valid;
  return "…" + std::string(g_utf8_offset_to_pointer(valid.c_str(), letters - most + 1));
}
