#pragma once

#include <map>
#include <string>

#include "cli/TrackOptions.h"
#include "scene/SceneFile.h"
#include "separation/Methods.h"

/// Everything that a separation is made of; the numbers that the nodes have in single precision
/// have it here, too.
struct SeparationSettings {
  std::string recording;  ///< "-": standard input
  std::string raw;        ///< "S16_LE,8,16000", of a recording without header; empty: it has one
  std::string database;   ///< empty for methods without one
  std::string responses;  ///< for MVDR: whole impulse responses
  Audio::SceneChoice scene;
  TrackOptions tracks;    ///< instead of a scene
  std::string directory;  ///< "-": a stream on standard output
  std::string rawOutput;  ///< encoding of that stream without header; empty: it is WAV
  const Method* method = nullptr;
  std::map<std::string, std::string> methodParameters;  ///< set by the user; defaults fill the rest
  int length = 0;                                       ///< samples per frame
  int advance = 0;                                      ///< samples from frame to frame
  double latencyInMs = 0.0;  ///< within which a sample is to be finished; 0: the frame
  int latency = 0;           ///< the same in samples: of a frame's end that become sound
  int samplingRate = 0;      ///< Hz
  std::string window = "HANN";
  std::string channels;
  bool resample = false;
  std::string nonFinite = "ZERO";
  std::string format = "PCM_16";
  std::string prefix = "source_";
  bool overwrite = false;
  bool debug = false;
  std::string noiseRanges;     ///< for ML: times of the recording, "0-1.5,4-5"; or …
  std::string noiseRecording;  ///< … a recording of the noise; neither: frames without targets
  std::string noiseChannels;   ///< of noiseRecording; empty: as `channels`
  float noiseLoading = 1e-4F;
  float noiseForgetting = 0.98F;
  bool noiseNormalize = true;
  bool project = false;  ///< scale the outputs to the reference microphone
  int reference = 1;     ///< counted from 1
  float projectionForgetting = 0.97F;
  bool undoHalfFrameShift = false;  ///< of the separated spectra
  bool inactiveAsNoise = false;     ///< list silent targets as noise sources
  bool level = true;                ///< MSNR: bring spectra to a stated level
  int passes = 1;                   ///< of the method over the recording
  int refinePasses = 0;             ///< after them that find masks; or …
  bool refineLive = false;          ///< … in the same pass
  float refineMemory = 2.0F;        ///< seconds, for refineLive
  float postMask = 1.0F;            ///< least share of an output that passes; 1: all
  int threads = 1;                  ///< that share the bins of a frame

  /// Samples of a frame that become sound.
  int outputLength() const { return latency > 0 ? latency : length; }

  /// What says who is where, for messages.
  const std::string& sceneName() const { return tracks.isGiven() ? tracks.input : scene.name(); }
};
