#pragma once

#include <functional>
#include <string>
#include <vector>

#include "cli/EvaluatedMethod.h"
#include "cli/EvaluationPlan.h"
#include "scoring/ScoreMetrics.h"

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
/// microphone, a filter of 512 taps allowed. What is told to the methods is where and when each
/// source is active. `finished` is called for each row when it is
/// complete. Throws what rendering and separating throw; a silent output scores −∞.
std::vector<EvaluationRow> evaluate(const EvaluationPlan& plan,
                                    const std::vector<EvaluatedMethod>& methods,
                                    const std::function<void(const EvaluationRow&)>& finished);
