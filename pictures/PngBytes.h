#pragma once

#include <cairo.h>

#include <string>

/// The bytes of a PNG file of an image surface. Throws DataError.
std::string pngBytes(cairo_surface_t* surface);
