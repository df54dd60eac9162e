#include "fileio/SofaFile.h"

#include <stdexcept>
#include <utility>

#include "fileio/ReaderProcess.h"
#include "fileio/SofaLimits.h"

SofaFile::SofaFile(const std::string& path, Part part)
    : SofaFile(path, readInProcess(path, part == Part::ALL, databaseLimit())) {}

SofaFile::SofaFile(std::string path, SofaAnswer handedBack)
    : name(std::move(path)),
      answer(std::move(handedBack)),
      sources(answer.sourcePositions()),
      microphones(answer.receiverPositions()),
      remarks(answer.warnings()) {}

std::optional<double> SofaFile::energyInFrame() const {
  const double share = answer.head().energyInFrame;
  return share == AnswerHead::NOT_STATED ? std::nullopt : std::optional(share);
}

std::span<const float> SofaFile::values() const {
  if (!answer.hasResponses()) throw std::logic_error(name + ": its responses were not read");
  return answer.values();
}

std::vector<std::complex<float>> SofaFile::readTransferFunctions() const {
  const std::span<const float> all = values();
  const std::size_t count = all.size() / 2;
  std::vector<std::complex<float>> H(count);
  for (std::size_t i = 0; i < count; ++i) H[i] = {all[i], all[count + i]};
  return H;
}

std::vector<float> SofaFile::readImpulseResponses() const {
  const std::span<const float> all = values();
  return {all.begin(), all.end()};
}

std::vector<double> SofaFile::readDelays() const {
  if (!answer.hasResponses()) throw std::logic_error(name + ": its responses were not read");
  return {answer.delays().begin(), answer.delays().end()};
}
