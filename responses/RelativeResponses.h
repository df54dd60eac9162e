#pragma once

#include "fileio/SofaWriter.h"

/// Makes transfer functions relative to microphone `reference`, counted from 1 (S. Gannot,
/// D. Burshtein, E. Weinstein: Signal enhancement using beamforming and nonstationarity with
/// applications to speech, IEEE Trans. Signal Process. 49, 2001). For every position and frequency,
/// R(k) being the reference microphone's response and M(k) the root mean square of all
/// microphones',
///
///   H(m, k) := H(m, k) · e^(−j·arg R(k)) / max(|R(k)| · g(k), 0.1 · M(k))
///   g(k) = √(Σ M(l)² / Σ R(l)²) over the frequencies l within 100 Hz of k
///
/// So a separated source sounds as that microphone hears it, but for the smooth gain g: as loud as
/// the array hears it on average. Without g a source in the shadow of a head would come out weaker
/// than the other by what the head takes away, and GICA, whose step in a frequency bin is one for
/// all outputs, learns slowly where they are of unlike level. For microphones alone in the air g is
/// about 1.
///
/// The bound: where the microphone hears the position 20 dB below the mean, it comes out louder
/// than there, instead of the others growing without bound. Where no microphone hears anything, all
/// stay 0.
///
/// In time such responses reach before 0, because a microphone may hear sound before the reference
/// does, and because a response that is undone rings to both sides. Transforms are periodic in the
/// frame: what lies before time 0 stands at the frame's end, up to half of it.
///
/// Throws DataError "--reference-mic …" unless there is such a microphone.
void makeRelative(SofaTransferFunctions& data, int reference);
