// Prints how every method takes every disturbance, as a Markdown table.

#include <cmath>
#include <cstdio>

#include "bench/robustness/Trial.h"

namespace {

const char* const METHODS[] = {"DS", "WDS", "NULL", "ILSE", "LCMV", "GJ", "GICA", "ML", "MSNR"};

std::string cell(const Outcome& outcome, bool lasts) {
  if (outcome.status != 0) {
    std::fputs(outcome.errors.c_str(), stderr);
    return "refused";
  }
  std::string text = std::to_string(outcome.framesToRecover);
  if (outcome.framesToRecover == Trial::NEVER) {
    text = std::to_string(std::lround(outcome.remainder)) + " dB";
  }
  if (lasts) text = "finite";
  if (outcome.replaced > 0) text += " (" + std::to_string(outcome.replaced) + " lost)";
  return text;
}

}  // namespace

int main() {
  Trial trial;
  std::printf("| |");
  for (const char* method : METHODS) std::printf(" `%s` |", method);
  std::printf("\n|---|");
  for ([[maybe_unused]] const char* method : METHODS) std::printf("---|");
  std::printf("\n");
  for (const Disturbance& disturbance : disturbances()) {
    std::printf("| %s |", disturbance.name.c_str());
    for (const char* method : METHODS) {
      std::printf(" %s |", cell(trial.run(method, disturbance), disturbance.lasts).c_str());
      std::fflush(stdout);
    }
    std::printf("\n");
  }
}
