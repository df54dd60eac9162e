#pragma once

#include <memory>
#include <string>

#include "bf/EngineFactory.h"
#include "nodes/DeclaredNode.h"

/// What the separation nodes share: an engine that separates every frame.
///
/// Inputs per frame: "INPUT_FRAMES", a SpectrumMatrix of microphones × bins; "INPUT_SOURCES", a
/// SourceList of targets; where the type has it and it is connected, "INPUT_NOISE_SOURCES", a
/// SourceList, too. Output: "OUTPUT", a SpectrumMap, for targets and noise sources alike. An
/// engine's exception passes, with a line on standard error that says what did not fit.
class SeparationNode : public DeclaredNode {
 protected:
  // Declarations that the types have in common.
  static constexpr NodeSpec::Input INPUT_FRAMES = {
      "INPUT_FRAMES", SPECTRA_TYPE,
      "Spectra of one frame, a row per microphone and a column per frequency bin (LENGTH/2+1)."};
  static constexpr NodeSpec::Input INPUT_SOURCES = {
      "INPUT_SOURCES", SOURCES_TYPE,
      "The sources to separate: their ids and positions in the database's coordinates."};
  static constexpr NodeSpec::Parameter LENGTH = {
      "LENGTH", "int", nullptr,
      "Frame length in samples, the transform length that the spectra and the database were made "
      "with. Required."};
  static constexpr NodeSpec::Parameter SAMPLING_RATE = {
      "SAMPLING_RATE", "int", nullptr,
      "Sampling rate in Hz of the recording and of the database. Required."};
  static constexpr NodeSpec::Parameter TF_CONJ_FILENAME = {
      "TF_CONJ_FILENAME", "string", nullptr,
      "Path of the transfer-function database (a SOFA file of DataType TF with LENGTH/2+1 "
      "frequencies). Required."};
  static constexpr NodeSpec::Parameter ENABLE_DEBUG = {
      "ENABLE_DEBUG", "bool", "false",
      "true reports NaN and infinite values of the output on standard output; the output is the "
      "same."};

  SeparationNode(const NodeSpec& nodeSpec, std::string nodeName, const FD::ParameterSet& params,
                 int sourceLine);

  // ---- for the constructors, each of which reads in the order of its checks

  /// LENGTH and SAMPLING_RATE, each 1 or more.
  void readFrame(int sourceLine = __builtin_LINE());
  void readTransferFunctionSource(int sourceLine = __builtin_LINE());
  void readDebug();

  /// Reads the database that readTransferFunctionSource named. Says on standard error when it was
  /// made for other frames.
  BF::TransformFunctionDatabase loadDatabase(int sourceLine = __builtin_LINE());

  /// Passes on what BF::makeEngine throws.
  void makeEngine(BF::BfAlgorithmType algorithm, const BF::EngineParameters& engineParameters);

  // ---- frames

  /// Called for every frame, also one without sources, when its inputs are there and before it is
  /// separated. The frame has M microphones × K bins.
  virtual void prepareFrame(int M, int K, int count);

  void calculate(int output_id, int count, FD::Buffer& out) override;

  bool nanHidesInfinity = false;  // a value that has both is reported as NAN alone
  std::unique_ptr<BF::BF> engine;

 private:
  int readPositiveInt(const char* parameter, int sourceLine);

  int length = 0;
  int samplingRate = 0;
  int tfConjMode = 0;  // 1: transfer functions come from a database file
  std::string tfConjFilename;
  bool enableDebug = false;
};
