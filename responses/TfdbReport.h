#pragma once

#include <string>
#include <vector>

#include "fileio/SofaFile.h"
#include "fileio/SofaWriter.h"
#include "responses/ResponseImport.h"

/// What a file holds, a few lines: data type, counts, rate, where sources and microphones are, and
/// what the reader found odd. Reads no responses.
std::string infoText(const SofaFile& file);

/// The same as a JSON object with every position, [x, y, z] in metres; "reference_mic" counts from
/// 1, 0 means none.
std::string infoJson(const SofaFile& file);

/// What may spoil a separation with these transfer functions, a sentence each: sources at the same
/// position or at the origin, responses or frequencies that are 0, and delays that contradict the
/// positions. Empty if nothing was found.
std::vector<std::string> findingsOf(const SofaTransferFunctions& data);

/// Reads and examines a whole file: its info, findings and a last line saying what it can be used
/// for. Impulse responses are examined in a frame of up to 4096 samples. Throws DataError if it
/// cannot be used at all.
std::string checkText(const SofaFile& file);

/// One line with the counts, then what the import did to the responses.
std::string importText(const std::string& output, const SofaTransferFunctions& data,
                       const ImportReport& report);

/// "<positions>, <microphones>, <frequencies> (<rate>, <frame>)".
std::string countsText(const SofaTransferFunctions& data);
