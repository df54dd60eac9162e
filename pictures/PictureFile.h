#pragma once

#include <string>
#include <vector>

#include "pictures/Drawing.h"

/// Writes the drawing in the format that the name's ending says; a PNG image has the drawing's size
/// in pixels. The file appears when it is complete. Throws DataError.
void writePicture(const std::string& path, const Drawing& drawing, bool overwrite);

/// The drawing as the bytes of a PNG file. Throws DataError.
std::string pngOf(const Drawing& drawing);
