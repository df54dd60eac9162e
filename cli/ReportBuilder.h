#pragma once

#include <string>
#include <vector>

/// What a report is made of.
struct ReportRequest {
  std::vector<std::string> folders;     ///< of separations of one recording
  std::string output;                   ///< NAME.html
  std::string mixture;                  ///< empty: the recording that the runs tell
  std::vector<std::string> references;  ///< in the order of the sources' ids; empty: those beside
                                        ///< the mixture, if `mix` wrote some
  std::string database;                 ///< empty: that of each run
  std::string title;                    ///< empty: the mixture's name
  std::string sound = "auto";           ///< or "flac" or "opus"
  bool force = false;
};

/// Throws CLI::ValidationError unless the output is called NAME.html, and DataError as checkOutput
/// does.
void checkReportFile(const std::string& path, bool overwrite,
                     const std::vector<std::string>& inputs);

/// Reads the folders and writes the page. What the page will lack is said on standard error. Throws
/// DataError.
void writeReport(const ReportRequest& request);
