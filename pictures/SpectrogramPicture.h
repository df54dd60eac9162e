#pragma once

#include <vector>

#include "pictures/Drawing.h"
#include "pictures/Spectrogram.h"

/// What a picture of spectrograms looks like.
struct SpectrogramStyle {
  int width = 900;      ///< pixels
  int height = 0;       ///< pixels; 0: as the number of panels suggests
  double range = 70.0;  ///< dB from the loudest to the quietest level shown
};

/// Spectrograms one below the other with the same axes and the same scale of colours. Throws
/// DataError when they do not fit into the size asked for.
Drawing spectrogramPicture(const std::vector<Spectrogram>& spectrograms,
                           const SpectrogramStyle& style);
