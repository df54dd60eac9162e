#pragma once

#include <string>

#include "fileio/SofaAnswer.h"
#include "fileio/SofaParser.h"

/// Sizes the empty memory file `descriptor` for the answer, maps it and fills it: everything that
/// the parser has, or only the head. Throws DataError; then the answer is unfinished.
void writeAnswer(int descriptor, const SofaParser& parser, bool withResponses);

/// Replaces what there is of an answer by REFUSED or OUT_OF_MEMORY and a text.
void writeRefusal(int descriptor, AnswerState state, const std::string& text);
