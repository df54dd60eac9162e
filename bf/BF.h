#pragma once

#include <memory>
#include <vector>

#include "bf/BinTeam.h"
#include "geometry/Location.h"
#include "geometry/TransformFunctionDatabase.h"
#include "matrix/Exceptions.h"
#include "matrix/Matrix.h"

/// Beamforming: matrices, geometry and the separation algorithms.
namespace BF {

/// The algorithms and the numbers that getBfAlgorithmType returns for them.
enum BfAlgorithmType : int {
  BF_ALGORITHM_DS = 1,
  BF_ALGORITHM_WDS = 2,
  BF_ALGORITHM_NULL = 3,
  BF_ALGORITHM_ILSE = 4,
  BF_ALGORITHM_LCMV = 5,
  BF_ALGORITHM_GJ = 6,
  BF_ALGORITHM_CMSNR = 7,
  BF_ALGORITHM_GSS = 8,
  BF_ALGORITHM_GICA = 9,
  BF_ALGORITHM_GHDSS = 10,
  BF_ALGORITHM_CML = 11
};

/// Base of every separation algorithm: a separation matrix per frequency bin, applied to a frame.
///
/// Per frame, after construction and setTransformFunctionDatabase: updateSources with the whole
/// current source list, executeBeamForming, adaptSeparationMatrices. A spectrum is a matrix with
/// one row per channel and one column per bin. M microphones, N sources, K = numFreq bins.
///
/// Every method builds its new lists aside and swaps them in at its end: an exception leaves the
/// previous state in force. An engine is used by one thread at a time and is not copied.
class BF {
 public:
  /// Numbers of this modulus or below count as zero.
  static constexpr double BF_EPS = SMALL_NUMBER;

  /// numFreq: bins of a frame; samplingRate in Hz; soundSpeed in m/s. No database, no sources yet.
  BF(int numFreq, int samplingRate, double soundSpeed);
  BF(const BF&) = delete;
  BF& operator=(const BF&) = delete;
  virtual ~BF();

  /// The algorithm's number in BfAlgorithmType.
  virtual int getBfAlgorithmType() const = 0;

  /// Installs a source list: rebuilds transferFunctions and separationMatrices, keeps the list.
  /// Throws as getTransformFunctions does, and MatrixSizeMismatchException when a row that is
  /// carried over has not M elements.
  virtual void updateSources(const std::vector<SourceLocation>& newSources) = 0;

  /// Separates one frame: output column k = W(k) · input column k. input is M × K, output becomes
  /// N × K. Keeps both for adaptSeparationMatrices. Throws InvalidStateException before the first
  /// updateSources, MatrixSizeMismatchException when input has not M rows,
  /// IndexOutOfBoundException when it has fewer than K columns.
  virtual void executeBeamForming(const Matrix& input, Matrix& output);

  /// Refines separationMatrices from the frame that executeBeamForming processed last. Algorithms
  /// that adapt throw one of the three exceptions above when there is no frame, or none that fits
  /// the matrices.
  virtual void adaptSeparationMatrices() = 0;

  /// From now on so many threads, the caller's among them, share what a call computes for the bins,
  /// where it is worth it: 1 at first. Results do not depend on it. Throws InvalidStateException
  /// when it is below 1.
  void setThreads(int threads) { team.setSize(threads); }

  /// Copies the database; the engine never shares the caller's record.
  void setTransformFunctionDatabase(const TransformFunctionDatabase& db);

  /// Replaces out by one M × N matrix per bin: column j is the transfer function of the database
  /// position nearest to requested source j. Throws IndexOutOfBoundException when the database has
  /// fewer than numFreq bins or no positions (an empty request needs neither),
  /// InvalidStateException when there is no database.
  void getTransformFunctions(const std::vector<SourceLocation>& requested,
                             std::vector<Matrix>& out) const;

  /// Throws InvalidStateException unless there is a separation matrix for every bin.
  void requireSeparationMatrices() const;

  int numFreq;                                            ///< bins of a frame, K
  int samplingRate;                                       ///< Hz
  double soundSpeed;                                      ///< m/s
  std::unique_ptr<TransformFunctionDatabase> tfDatabase;  ///< the engine's copy; null: none yet
  int numMic = 0;  ///< M: the database's, or set by whoever drives an engine without a database
  std::vector<SourceLocation> sources;           ///< the list in force
  std::vector<Matrix> transferFunctions;         ///< entry k: M × N
  std::vector<Matrix> noiseCorrelationMatrices;  ///< entry k: M × M, for CML, set from outside
  std::vector<Matrix> separationMatrices;        ///< entry k: W(k), N × M
  Matrix inputSpectrum;                          ///< the last frame, M × K
  Matrix outputSpectrum;                         ///< its result, N × K

 protected:
  /// previous := for every source of a new list the index of the first source in force with the
  /// same id, or -1.
  void findPrevious(const std::vector<SourceLocation>& newSources);

  /// Whether the list of findPrevious has the ids of the sources in force in the same order, each
  /// once: then what an algorithm carries over by id stays where it is.
  bool keepsOrder() const;

  /// spareTransferFunctions := the result of getTransformFunctions, whose exceptions it throws.
  void gatherTransferFunctions(const std::vector<SourceLocation>& requested);

  /// keepsOrder, and what was gathered is, to the bit, what transferFunctions hold: then what an
  /// algorithm derives from the transfer functions stays as well.
  bool nothingChanges() const;

  /// Makes list numFreq matrices of rows × columns, to be filled whole and swapped with another
  /// list. Matrices that have the shape already are kept with whatever they hold.
  void prepare(std::vector<Matrix>& list, int rows, int columns) const;

  BinTeam team;               ///< of setThreads
  std::vector<int> previous;  ///< of the list that findPrevious was called with last

  std::vector<Matrix> spareTransferFunctions;  ///< storage of the list that was replaced last
  std::vector<Matrix> spareMatrices;           ///< likewise, filled before the next exchange

 private:
  void gather(const std::vector<SourceLocation>& requested, std::vector<Matrix>& out) const;

  Matrix spareInput;   // storage of the frame before the last
  Matrix spareOutput;  // and of its result
};

}  // namespace BF
