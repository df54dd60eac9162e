#pragma once

#include <string>

#include "cli/SeparationSettings.h"

/// Where live sound comes from and goes to.
struct LiveSettings {
  std::string client = "zelk-sss";  ///< name of ours at the server
  std::string server;               ///< name; "": the default one
  std::string from;                 ///< ports to hear, a regular expression; "": sound cards'
  std::string to = "none";          ///< ports to play to; both: "none" connects nothing
  int slots = 0;                    ///< 0: one for each source of the scene
  int margin = 1;                   ///< periods of the server that the separation may take
  bool quiet = false;
};

/// Separates what the JACK server gives until SIGINT, SIGTERM or SIGHUP comes. Says on standard
/// output which source is heard at which slot, and at last how it went; with a terminal as standard
/// error, levels are drawn there. Throws DataError for what does not fit, std::runtime_error when
/// the server ends, and what the separation throws.
void runLive(SeparationSettings& settings, const LiveSettings& live);
