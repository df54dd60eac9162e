#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "cli/EvaluationPlan.h"
#include "scoring/ScoreMetrics.h"
#include "separation/Methods.h"

/// A method and how it is run.
struct EvaluatedMethod {
  std::string name;
  const Method* method = nullptr;
  std::map<std::string, std::string> parameters =
      {};              ///< those that are not the command's defaults
  int refinement = 0;  ///< passes of MVDR from masks after it

  /// Whether it makes a difference with which database it runs.
  bool isInformed() const { return method->needsDatabase() || method->needsResponses(); }
};

/// One line of an evaluation: how well a method did, every target of every scene counting once.
struct EvaluationRow {
  std::string room;
  std::string array;
  std::string noise;
  std::string database;  ///< "" for methods that need none
  std::string method;
  std::vector<SourceScore> scores;  ///< scenes and, within them, targets in the plan's order
};

/// Renders every scene of the plan in every room, before every array and in every noise, separates
/// it by every method with every database, and scores the targets against their images at the first
/// microphone, a filter of 512 taps allowed. Methods have the command's defaults but for the
/// parameters given; what is told to them is where and when each source is active. `finished` is
/// called for each row when it is complete. Throws what rendering and separating throw; a silent
/// output scores −∞.
std::vector<EvaluationRow> evaluate(const EvaluationPlan& plan,
                                    const std::vector<EvaluatedMethod>& methods,
                                    const std::function<void(const EvaluationRow&)>& finished);
