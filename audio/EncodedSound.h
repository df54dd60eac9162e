#pragma once

#include <string>

#include "audio/SignalFile.h"

/// How sound is packed for a web page: without loss in 16 bits, or for long recordings with loss.
enum class SoundCoding { Flac, Opus };

/// The bytes of a FLAC file or of an Opus stream in an Ogg file of the signal. Samples beyond full
/// scale are clipped. Opus has rates of its own: a signal of another rate is converted to 48 kHz.
/// Throws DataError, naming `path`.
std::string encodedSound(const Signal& signal, SoundCoding coding, const std::string& path);
