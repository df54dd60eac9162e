#pragma once

#include <string>
#include <vector>

#include "scene/Scene.h"

namespace Audio {

/// A value of a text, without blanks around it, in a range. Throws DataError with what was found
/// and expected, such as "found \"x\", expected degrees, within ±1e6".
double numberOf(const std::string& text, double least, double most, const std::string& expected);

/// "degrees, within ±1e6", "degrees from -90 to 90" and "a distance above 0 in metres, up to 1e6",
/// of which the latter two may be missing: 0 and 1 then. Throws DataError.
BF::Direction directionIn(const std::vector<std::string>& fields);

/// A whole number from 0 to 2147483647. Throws DataError.
int idOf(const std::string& text);

/// The parts of a text between a character, one at least, without blanks around them.
std::vector<std::string> partsOf(const std::string& text, char separator);

/// Somebody who stands still, from NAME:AZIMUTH[:ELEVATION[:DISTANCE]]. The id is left at 0. Throws
/// DataError with what was found and expected.
Speaker speakerOf(const std::string& text);

/// Speakers from texts that stand one beside the other, with their ids: their names where all are
/// whole numbers, else their numbers from 0. Throws DataError with the text, what was found in it
/// and expected.
std::vector<Speaker> speakersOf(const std::vector<std::string>& texts);

}  // namespace Audio
