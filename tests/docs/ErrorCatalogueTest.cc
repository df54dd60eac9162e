// docs/errors.md lists what the sources can tell a person, all of it and nothing else.

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>
#include <vector>

#include "gmock/gmock.h"
#include "tests/docs/SourceTexts.h"

namespace {

namespace fs = std::filesystem;

using Strings = std::vector<std::string>;

/// The parts of a text between matches of a pattern, without blanks and line ends around them.
Strings parts(const std::string& text, const std::string& pattern) {
  const std::regex separator("[ \n]*(?:" + pattern + ")[ \n]*|^[ \n]+|[ \n]+$");
  Strings result;
  for (std::sregex_token_iterator i(text.begin(), text.end(), separator, -1), end; i != end; ++i) {
    if (i->length() > 0) result.push_back(i->str());
  }
  return result;
}

/// The fixed parts of a literal that is a format: what stands around {…} and %….
Strings fixedParts(const std::string& literal) {
  return parts(literal, R"(\{[0-9]*(?::[^{}"]*)?\}|%[a-z])");
}

/// Whether a text holds the parts, in this order.
bool holds(const std::string& text, const Strings& wanted) {
  std::size_t at = 0;
  for (const std::string& part : wanted) {
    at = text.find(part, at);
    if (at == std::string::npos) return false;
    at += part.size();
  }
  return true;
}

/// Words that say something by themselves: two at least.
bool isProse(const std::string& text) {
  return std::regex_search(text, std::regex("[A-Za-z]{2,}[^A-Za-z]* [^A-Za-z]*[A-Za-z]{2,}")) ||
         std::regex_search(text, std::regex("[a-z]{2,} .*\\{|\\}.* [a-z]{2,}"));
}

std::vector<SourceStatement> allStatements() {
  std::vector<SourceStatement> all;
  for (const char* folder :
       {"matrix", "bf", "dsp", "audio", "scene", "fileio", "responses", "separation", "scoring",
        "pictures", "host", "nodes", "toolbox", "cli"}) {
    for (const auto& entry : fs::recursive_directory_iterator(fs::path(ZELK_SOURCE) / folder)) {
      const fs::path extension = entry.path().extension();
      if (extension != ".cc" && extension != ".h") continue;
      for (SourceStatement& statement : readStatements(entry.path())) all.push_back(statement);
    }
  }
  return all;
}

/// The lines of the catalogue's tables.
Strings rows() {
  std::ifstream file(fs::path(ZELK_SOURCE) / "docs/errors.md");
  Strings result;
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with("|")) result.push_back(line);
  }
  return result;
}

/// The messages in a row: the code spans of its first cell.
Strings messagesOf(const std::string& row) {
  const std::string cell = row.substr(1, row.find(" | ") - 1);
  const std::regex span("`+ ?(.*?) ?`+");
  Strings result;
  for (std::sregex_iterator i(cell.begin(), cell.end(), span), end; i != end; ++i) {
    result.push_back((*i)[1].str());
  }
  return result;
}

TEST(ErrorCatalogue, HasEveryMessageOfTheSources) {
  const Strings catalogue = rows();
  std::size_t messages = 0;
  for (const SourceStatement& statement : allStatements()) {
    for (const std::string& text : statement.told) {
      if (!isProse(text)) continue;
      ++messages;
      const Strings fixed = fixedParts(text);
      EXPECT_TRUE(std::any_of(catalogue.begin(), catalogue.end(),
                              [&](const std::string& row) { return holds(row, fixed); }))
          << statement.place << ": docs/errors.md has no row for \"" << text << "\"";
    }
  }
  EXPECT_GT(messages, 150U);  // or the sources were not found or not understood
}

TEST(ErrorCatalogue, HasNoMessageThatNoSourceHas) {
  std::vector<std::string> sources;
  for (const SourceStatement& statement : allStatements()) {
    std::string joined;
    for (const std::string& text : statement.texts) joined += text + "\n";
    sources.push_back(joined);
  }
  for (const std::string& row : rows()) {
    for (const std::string& message : messagesOf(row)) {
      const Strings fixed = parts(message, R"([ :.,;"'()<>]*«[^»]*»[ :.,;"'()<>]*)");
      EXPECT_FALSE(fixed.empty()) << message;
      EXPECT_TRUE(std::any_of(sources.begin(), sources.end(),
                              [&](const std::string& texts) { return holds(texts, fixed); }))
          << "docs/errors.md: no source has the message \"" << message << "\"";
    }
  }
}

TEST(SourceTexts, AreTheOnesThatAPersonIsTold) {
  const fs::path file = fs::path(testing::TempDir()) / "snippets.cc";
  std::ofstream(file) << R"--(
      if (a == "no no") throw E(f("one {} "  /* c " */ "two", "3"));  // throw E("no no");
      throw E(f("a b", P{1}, "c d")); g("no no");
      o->add("no no")->call([o] { f("no no"); throw E("e f"); });
      place.refuse("g \"h\"", x ? "i j" : "k l"); other("no no");
      r.warnings.push_back(f("m n")); r.rows.push_back("no no");
      std::cerr << "o p" << x; std::cout << "no no"; fputs("q r", stderr);
      const char* const expected = "s t"; const char* name = "no no";
      int n = 10'000; char c = '"'; throw E(R"(u v)");)--";
  Strings told;
  for (const SourceStatement& statement : readStatements(file)) {
    told.insert(told.end(), statement.told.begin(), statement.told.end());
  }
  EXPECT_THAT(told, testing::ElementsAre("one {} two", "3", "a b", "c d", "e f", "g \"h\"", "i j",
                                         "k l", "m n", "o p", "q r", "s t", "u v"));
  fs::remove(file);
}

}  // namespace
