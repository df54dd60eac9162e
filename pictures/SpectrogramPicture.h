#pragma once

#include <vector>

#include "pictures/Drawing.h"
#include "pictures/Raster.h"
#include "pictures/Spectrogram.h"

/// What a picture of spectrograms looks like.
struct SpectrogramStyle {
  int width = 900;      ///< pixels
  int height = 0;       ///< pixels; 0: as the number of panels suggests
  double range = 70.0;  ///< dB from the loudest to the quietest level shown
  double begin = 0.0;   ///< seconds: what is shown from …
  double end = 0.0;     ///< … and to; 0: to the end of the longest
};

/// The loudest level of all, rounded up to 5 dB; 0 where all is silent.
double loudestLevel(const std::vector<Spectrogram>& spectrograms);

/// A spectrogram alone: a column for each of its columns, a row for each bin, 0 Hz below, with the
/// lightest colour for levels up to `bottom` and the darkest from `top` on, in dB.
Raster levelRaster(const Spectrogram& spectrogram, double bottom, double top);

/// Spectrograms one below the other with the same axes and the same scale of colours. Throws
/// DataError when they do not fit into the size asked for.
Drawing spectrogramPicture(const std::vector<Spectrogram>& spectrograms,
                           const SpectrogramStyle& style);
