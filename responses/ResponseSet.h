#pragma once

#include <complex>
#include <cstddef>
#include <string>
#include <vector>

#include "fileio/SofaFile.h"
#include "fileio/SofaWriter.h"
#include "responses/Places.h"
#include "responses/Responses.h"
#include "responses/Reverberation.h"
#include "scene/Scene.h"

/// The impulse responses of a SOFA file, of DataType FIR or TF, from its source positions to its
/// microphones.
class ResponseSet : public Responses {
 public:
  /// Reads the file; every response gets the reverberation's tail. Throws DataError.
  explicit ResponseSet(const std::string& path, const Reverberation& roomTail = {});

  /// The responses of transfer functions, which messages call `dataName`. Throws DataError.
  ResponseSet(const SofaTransferFunctions& data, std::string dataName,
              const Reverberation& roomTail = {});

  const std::string& path() const { return name; }
  int samplingRate() const override { return rate; }
  std::size_t microphones() const override { return array.size(); }
  const std::vector<BF::Position>& microphonePositions() const { return array; }
  std::size_t measurements() const { return places.count(); }
  int referenceMicrophone() const { return reference; }

  /// Places are the measured positions; a point is served by the one that the separation takes.
  std::size_t nearest(const BF::Location& point) const override;
  BF::Location position(std::size_t measurement) const override;

  /// Measured positions, evenly taken from the file's order.
  std::vector<std::size_t> surround(std::size_t count) const override;

  /// Impulse response to microphone r, its delay included. That of a transfer function is its
  /// inverse transform, whose begin stands leadIn() samples late.
  std::vector<double> response(std::size_t measurement, std::size_t r) const override;

  /// Samples by which every response is delayed: those before time 0 of the inverse transforms
  /// (see inverseTransforms); 0 for DataType FIR.
  std::size_t leadIn() const { return lead; }

 private:
  explicit ResponseSet(const SofaFile& file, const Reverberation& roomTail);
  void setRate(double given);
  void takeTransferFunctions(const std::vector<std::complex<float>>& H, std::size_t frequencies);
  void takeImpulseResponses(const SofaFile& file);

  std::string name;
  MeasuredPlaces places;
  std::vector<BF::Position> array;
  int reference = 0;
  Reverberation tail;
  int rate = 0;
  std::size_t samples = 0;  // of an impulse response without delay
  std::vector<float> impulseResponses;
  std::vector<double> delays;
  std::size_t lead = 0;
};
