#pragma once

#include <pugixml.hpp>
#include <string>
#include <vector>

#include "pictures/Colour.h"
#include "pictures/Raster.h"

/// A point of a drawing in pixels: x to the right, y down.
struct Point {
  double x = 0.0;
  double y = 0.0;
};

/// How a line is drawn.
struct Stroke {
  Colour colour = BLACK;
  double width = 1.0;       ///< pixels
  std::string dashes = {};  ///< lengths of dashes and gaps, as "6 3"; empty: a whole line
};

enum class Anchor { Start, Middle, End };

/// How a text is set: the anchor stands at the given point, the baseline a third of the size below
/// it, so that the point is at half the height of the letters.
struct TextStyle {
  double size = 12.0;  ///< pixels
  Anchor anchor = Anchor::Start;
  Colour colour = BLACK;
  bool bold = false;
  double turn = 0.0;  ///< degrees clockwise around the point
};

/// A picture made of lines, texts and images on white, whose texts stay texts. What is drawn later
/// lies above.
class Drawing {
 public:
  /// Sizes in pixels. The title is what programs that read pictures aloud say.
  Drawing(int widthPixels, int heightPixels, const std::string& title);

  int width() const { return pixelWidth; }
  int height() const { return pixelHeight; }

  void line(Point from, Point to, const Stroke& stroke);

  /// Lines from point to point, and back to the first if closed.
  void path(const std::vector<Point>& points, bool closed, const Stroke& stroke);

  void circle(Point centre, double radius, const Stroke& stroke);

  /// A filled rectangle with round corners of the given radius.
  void patch(Point from, Point to, double rounding, Colour fill, const Stroke& stroke);

  /// Bytes of the text that are no UTF-8 and control characters are replaced.
  void text(Point at, const std::string& content, const TextStyle& style = {});

  /// An image stretched from `from` to `to`, of which only what lies between `clipFrom` and
  /// `clipTo` shows.
  void image(const Raster& raster, Point from, Point to, Point clipFrom, Point clipTo);

  /// The picture as SVG 1.1.
  std::string svg() const;

 private:
  pugi::xml_node add(const char* name, const Stroke& stroke);

  int pixelWidth;
  int pixelHeight;
  pugi::xml_document document;
  pugi::xml_node root;
};

/// A text cut at its begin to roughly a width in pixels, with "…" for what was left out.
std::string shortened(const std::string& text, double width, double size);
