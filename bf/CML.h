#pragma once

#include <vector>

#include "bf/BF.h"

namespace BF {

/// Maximum likelihood: per source and bin the minimum-variance distortionless filter
/// w = Q · a / (aᴴ · Q · a) for the noise correlation matrix of the bin, Q being the inverse of
/// that matrix after regularisation and a the source's transfer function at unit norm. Each filter
/// is multiplied by e^(jkπ) = (−1)^k, a circular shift by half a frame.
///
/// noiseCorrelationMatrices is filled from outside before updateSources; the filters follow it and
/// the source list there, and never adapt.
class CML : public BF {
 public:
  /// regFactor: the multiple of the noise matrix's Frobenius norm added to its diagonal.
  CML(int numFreq, int samplingRate, double soundSpeed, double regFactor);

  int getBfAlgorithmType() const override { return BF_ALGORITHM_CML; }

  /// Throws IndexOutOfBoundException when there are fewer than numFreq noise matrices and
  /// MatrixSizeMismatchException when one of them is not M × M.
  void updateSources(const std::vector<SourceLocation>& newSources) override;

  /// Does nothing.
  void adaptSeparationMatrices() override;

  double regFactor;  ///< as in the constructor; read by updateSources

 private:
  // What the last update computed for each bin, and from what; a bin whose inputs are the same to
  // the bit is not computed again.
  struct Bin {
    Matrix transferFunctions;  // M × N
    Matrix steering;           // M × N, the same at unit norm
    Matrix noise;              // M × M
    double regFactor = 0.0;
    Matrix separation;  // N × M
  };
  Bin computed(int k, const Matrix& A, const Matrix& R) const;
  std::vector<Bin> known;
};

}  // namespace BF
