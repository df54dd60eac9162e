#pragma once

/// The parts of the report page, as the files of this folder hold them.
struct PageParts {
  static const char* const TEMPLATE;  ///< page.html, with {{NAME}} where the other parts go
  static const char* const STYLE;
  static const char* const SCRIPT;
  static const char* const PLAYER;  ///< the player library
  static const char* const PLAYER_LICENCE;
};
