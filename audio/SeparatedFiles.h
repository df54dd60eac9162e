#pragma once

#include <complex>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "audio/FolderLock.h"
#include "audio/WavWriter.h"
#include "dsp/OverlapAdder.h"

namespace Audio {

struct SeparatedFilesOptions {
  std::string directory = ".";     ///< made when it does not exist
  std::string prefix = "source_";  ///< the file of id 3 is <directory>/<prefix>3.wav
  int samplingRate = 16000;        ///< Hz
  SampleFormat format = SampleFormat::Pcm16;
  bool overwrite = false;  ///< replace files of an earlier run instead of refusing
};

/// What was written for one source.
struct SeparatedFile {
  int id = 0;
  std::string path;
  std::int64_t clipped = 0;    ///< samples beyond full scale, stored as full scale
  std::int64_t nonFinite = 0;  ///< samples that were not finite, stored as 0
  float peak = 0;              ///< largest modulus before clipping
};

/// The first file of an earlier run in a folder, timeline.json or <prefix><number>.wav, with the
/// folder's name. Throws DataError when the folder cannot be listed.
std::optional<std::string> earlierFile(const std::string& directory, const std::string& prefix);

/// Turns the spectra of separated sources into one WAV file per source, and "timeline.json" saying
/// when each source was active.
///
/// All files begin at the recording's sample 0 and have the same length; a source is silent
/// wherever it is not listed. Files get their names in finish() and vanish without it (see
/// OutputFile), so that whatever has its final name is complete. Where there are many sources, only
/// the files of those that sound are open, so that there may be more sources, one after the other,
/// than open files.
///
/// The directory is this object's alone while it lives (see FolderLock). With overwrite, finish()
/// also removes the files that the replaced timeline.json lists and the new one does not.
///
/// timeline.json: {"sampling_rate": Hz, "samples": length of every file, "sources": [{"id", "file",
/// "active": [[begin, end], …] in seconds, "clipped_samples", "non_finite_samples", "peak"}, …]}. A
/// frame stands for the `advance` samples around its centre.
class SeparatedFiles {
 public:
  /// Throws DataError when the directory cannot be made or another run is writing into it, or when
  /// it holds files of an earlier run (timeline.json or <prefix><number>.wav) and overwrite is
  /// false. Removes what a run that was killed left there unfinished.
  SeparatedFiles(const SeparatedFilesOptions& given, FrameSynthesizer frameSynthesizer);

  /// Removes what was not finished.
  ~SeparatedFiles() = default;

  /// Spectra (bins() values each, not owned) by source id.
  using Spectra = std::map<int, const std::complex<float>*>;

  /// Takes the next frame, at first frame 0. completedSamples is what
  /// FrameReader::completedSamples() says of the frame: that many samples are written to every
  /// file. Without it, as many as the frame's advance says, as if the recording had no end. Throws
  /// DataError.
  void addFrame(const Spectra& spectra, std::optional<int> completedSamples = std::nullopt);

  /// Closes and names all files and writes timeline.json. Without counts of finished samples, what
  /// the last frames hold beyond them is written first. Throws DataError.
  void finish();

  bool isFinished() const { return finished; }

  /// One entry per source, by id; complete after finish().
  std::vector<SeparatedFile> report() const;

  /// Paths of the files of an earlier run that finish() removed.
  const std::vector<std::string>& removed() const { return removedFiles; }

  /// Paths of the sources' files that a directory's timeline.json lists, none without a readable
  /// one. Only WAV files in the directory itself count.
  static std::vector<std::string> filesOfEarlierRun(const std::string& directory);

 private:
  struct Source {
    OverlapAdder adder;
    WavWriter writer;
    std::vector<std::pair<std::int64_t, std::int64_t>> activeFrames;  // first, last
  };

  std::string pathOf(int id) const;
  void refuseEarlierFiles() const;
  void removeLeftovers() const;
  Source& sourceOf(int id);
  void noteActive(Source& source) const;
  void writeFinished(std::size_t offset, std::size_t count);
  void suspendSilent();
  std::string timeline() const;
  void writeTimeline() const;
  void removeFilesOfEarlierRun();

  SeparatedFilesOptions options;
  FrameSynthesizer synthesizer;
  std::optional<FolderLock> lock;
  std::vector<std::string> earlierFiles;  // of the run whose timeline is replaced
  std::vector<std::string> removedFiles;
  std::map<int, Source> sources;
  std::set<int> sounding;     // whose last frame may have samples left
  std::int64_t frame = -1;    // the newest one
  std::int64_t position = 0;  // samples written to every file
  bool lengthIsKnown = false;
  bool finished = false;
};

}  // namespace Audio
