#include "cli/Suggestions.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstddef>
#include <vector>

namespace {

constexpr std::size_t MAX_EDITS = 2;

/// The least number of characters put in, taken out, replaced, or swapped with the next, that turn
/// one text into the other.
std::size_t editDistance(const std::string& a, const std::string& b) {
  // D(i, j): of the first i characters of a and the first j of b.
  std::vector<std::vector<std::size_t>> D(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
  for (std::size_t i = 0; i <= a.size(); ++i) {
    for (std::size_t j = 0; j <= b.size(); ++j) {
      if (i == 0 || j == 0) {
        D[i][j] = i + j;
        continue;
      }
      const bool same = a[i - 1] == b[j - 1];
      D[i][j] = std::min({D[i - 1][j] + 1, D[i][j - 1] + 1, D[i - 1][j - 1] + (same ? 0 : 1)});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
        D[i][j] = std::min(D[i][j], D[i - 2][j - 2] + 1);
      }
    }
  }
  return D[a.size()][b.size()];
}

/// The names that a word could stand for: options for a word that begins with a dash, else
/// commands.
std::vector<std::string> namesLike(const std::string& word, const CLI::App& app) {
  std::vector<std::string> names;
  if (word.starts_with('-')) {
    for (const CLI::Option* option : app.get_options({})) {
      for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
    }
  } else {
    for (const CLI::App* command : app.get_subcommands({})) names.push_back(command->get_name());
  }
  return names;
}

/// The name nearest to a mistyped word; "" if none is near.
std::string meant(const std::string& typed, const CLI::App& app) {
  const std::string word = typed.substr(0, typed.find('='));
  std::string best;
  std::size_t least = std::min(MAX_EDITS, word.size() / 2) + 1;
  for (const std::string& name : namesLike(word, app)) {
    if (name.size() > word.size() + MAX_EDITS || word.size() > name.size() + MAX_EDITS) continue;
    const std::size_t distance = editDistance(word, name);
    if (distance >= least) continue;
    least = distance;
    best = name;
  }
  return best;
}

/// The command that was named last, in which the rest was looked for.
const CLI::App& innermost(const CLI::App& app) {
  const std::vector<CLI::App*> named = app.get_subcommands();
  return named.empty() ? app : innermost(*named.back());
}

}  // namespace

std::string unexpectedArguments(const CLI::App& app) {
  const std::vector<std::string> words = app.remaining(true);
  if (words.empty()) return {};
  std::vector<std::string> suggestions;
  for (const std::string& word : words) {
    const std::string name = meant(word, innermost(app));
    if (!name.empty()) suggestions.push_back(name);
  }
  return fmt::format("The following argument{} not expected: {}{}{}",
                     words.size() == 1 ? " was" : "s were", fmt::join(words, " "),
                     suggestions.empty() ? "" : "; did you mean ",
                     suggestions.empty() ? "" : fmt::format("{}?", fmt::join(suggestions, ", ")));
}
