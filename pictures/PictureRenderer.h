#pragma once

#include <cstddef>
#include <string>

#include "pictures/Colour.h"

/// The functions of the module libzelk-picture-renderer.so, which is loaded when the first PNG
/// image is made: librsvg, cairo and what they need take longer to load than a second of sound
/// takes to be separated. png becomes the bytes of a PNG file. They throw DataError.
extern "C" {

/// width and height: the picture's size in pixels.
void zelkRenderSvg(const std::string& svg, int width, int height, std::string& png);

/// rows · columns points, row by row from the top.
void zelkRenderPoints(const Colour* points, std::size_t columns, std::size_t rows,
                      std::string& png);
}
