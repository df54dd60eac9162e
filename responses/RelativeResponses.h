#pragma once

#include "fileio/SofaWriter.h"

/// Makes transfer functions relative to microphone `reference`, counted from 1 (S. Gannot,
/// D. Burshtein, E. Weinstein: Signal enhancement using beamforming and nonstationarity with
/// applications to speech, IEEE Trans. Signal Process. 49, 2001): of every position, at every
/// frequency k, with R(k) the reference microphone's own,
///
///   H(m, k) := H(m, k) · e^(−j·arg R(k)) / max(|R(k)|, β · √(mean over m of |H(m, k)|²)), β = 0.1
///
/// So a separated source sounds as that microphone hears it. Where the microphone hears the
/// position more than 20 dB below the mean of all, its own value falls below 1 instead of the
/// others growing without bound; where no microphone hears anything, all stay 0.
///
/// In time such responses reach before 0, because a microphone may hear sound before the reference
/// does, and because a reference response undone rings to both sides. Transforms are periodic in
/// the frame: what lies before time 0 stands at the frame's end, up to half of it.
///
/// Throws SofaError "--reference-mic …" unless there is such a microphone.
void makeRelative(SofaTransferFunctions& data, int reference);
