#include "responses/MeasuredResponses.h"

#include <utility>

#include "responses/InverseTransform.h"

MeasuredResponses readMeasuredResponses(const SofaFile& file) {
  MeasuredResponses responses;
  responses.measurements = file.measurements();
  responses.receivers = file.receivers();
  responses.rate = file.samplingRate();
  if (file.isTransferFunctions()) {
    InverseTransforms inverse = inverseTransforms(file.path(), file.readTransferFunctions(),
                                                  file.length(), file.referenceMicrophone());
    responses.length = inverse.length;
    responses.values = std::move(inverse.values);
    responses.delays.assign(responses.measurements * responses.receivers,
                            -static_cast<double>(inverse.lead));
  } else {
    responses.length = file.length();
    responses.values = file.readImpulseResponses();
    responses.delays = file.readDelays();
  }
  return responses;
}
