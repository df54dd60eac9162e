#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "audio/FolderLock.h"
#include "audio/SeparatedOutput.h"
#include "audio/WavWriter.h"
#include "dsp/FrameLayout.h"

namespace Audio {

struct SeparatedFilesOptions {
  std::string directory = ".";     ///< made when it does not exist
  std::string prefix = "source_";  ///< the file of id 3 is <directory>/<prefix>3.wav
  int samplingRate = 16000;        ///< Hz
  SampleFormat format = SampleFormat::Pcm16;
  bool overwrite = false;  ///< replace files of an earlier run instead of refusing
  std::string overwriteWords = "set OVERWRITE to true to replace them";  ///< for the refusal
};

/// Throws DataError when a folder holds files of an earlier run, timeline.json or
/// <prefix><number>.wav, with `overwriteWords` saying how they would be replaced; or when it cannot
/// be listed.
void refuseEarlierFiles(const std::string& directory, const std::string& prefix,
                        const std::string& overwriteWords);

/// Writes the signals of separated sources to one WAV file each, and "timeline.json" saying when
/// each source was active.
///
/// All files begin at the recording's sample 0 and have the same length; a source is silent
/// wherever it has no signal. Files get their names in finish() and vanish without it (see
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
class SeparatedFiles : public SeparatedOutput {
 public:
  /// The file beside them that says how a run was made. Whoever writes it does so after finish(),
  /// which with overwrite removes that of an earlier run.
  static constexpr const char* RUN_RECORD = "run.json";

  /// Throws DataError when the directory cannot be made or another run is writing into it, or when
  /// it holds files of an earlier run (timeline.json or <prefix><number>.wav) and overwrite is
  /// false. Removes what a run that was killed left there unfinished.
  SeparatedFiles(const SeparatedFilesOptions& given, const FrameLayout& frameLayout);

  /// Removes what was not finished.
  ~SeparatedFiles() override = default;

  /// A new source gets its file.
  void addFrame(const std::vector<int>& ids) override;
  void write(const Signals& signals, std::size_t count) override;

  /// Closes and names all files and writes timeline.json. Throws DataError.
  void finish() override;

  bool isFinished() const { return finished; }

  /// Samples of every file so far.
  std::int64_t samples() const override { return position; }

  /// One entry per source, by id; complete after finish().
  std::vector<SeparatedSound> report() const override;

  /// Also the files of an earlier run that were removed.
  std::vector<std::string> remarks(const std::string& floatWords) const override;

  /// Paths of the sources' files that a directory's timeline.json lists, none without a readable
  /// one. Only WAV files in the directory itself count.
  static std::vector<std::string> filesOfEarlierRun(const std::string& directory);

 private:
  struct Source {
    WavWriter writer;
    std::vector<std::pair<std::int64_t, std::int64_t>> activeFrames;  // first, last
  };

  std::string pathOf(int id) const;
  void removeLeftovers() const;
  Source& sourceOf(int id);
  void noteActive(Source& source) const;
  std::string timeline() const;
  void writeTimeline() const;
  void removeFilesOfEarlierRun();

  SeparatedFilesOptions options;
  FrameLayout layout;
  std::optional<FolderLock> lock;
  std::vector<std::string> earlierFiles;  // of the run whose timeline is replaced
  std::vector<std::string> removedFiles;
  std::map<int, Source> sources;
  std::set<int> sounding;     // who has a signal, or is about to
  std::int64_t frame = -1;    // the newest one
  std::int64_t position = 0;  // samples written to every file
  bool finished = false;
};

}  // namespace Audio
