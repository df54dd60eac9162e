#pragma once

#include <string>
#include <vector>

#include "scene/Scene.h"

namespace Audio {

/// How a person says who is where and when.
struct SceneChoice {
  std::string file;                      ///< JSON, CSV or RTTM; "" for none
  std::vector<std::string> sources;      ///< each NAME:AZIMUTH[:ELEVATION[:DISTANCE]]
  std::string recording;                 ///< the one in an RTTM file of several; "": the only one
  std::string fileWords = "--sources";   ///< how messages call the file …
  std::string sourceWords = "--source";  ///< … and the sources

  bool isGiven() const { return !file.empty() || !sources.empty(); }
  /// For messages.
  const std::string& name() const { return file.empty() ? sourceWords : file; }
};

/// The scene. A file is RTTM if its name ends in .rttm or its first word is one of that format's,
/// CSV if its name ends in .csv or it begins with "id,", else JSON. RTTM says who speaks when:
/// sources say where, each beside the name that stands there. Without a file the sources are active
/// always. Throws DataError as the formats' readers do, and for sources beside a file that has its
/// own.
Scene readScene(const SceneChoice& choice);

}  // namespace Audio
