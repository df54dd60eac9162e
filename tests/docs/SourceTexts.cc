#include "tests/docs/SourceTexts.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string_view>

namespace {

using Names = std::set<std::string, std::less<>>;

const Names REPORTERS = {"fail", "refuse", "misuse", "check", "number",
                         "warn", "note",   "report", "puts"};
const Names PRINTERS = {"fprintf", "fputs", "print"};
const Names REPORT_LISTS = {"warnings", "remarks", "findings", "notes"};

struct Token {
  enum Kind { Word, Text, Mark };
  Kind kind;
  std::string text;
  int line;
};

/// Splits a source into words, string literals and single characters; comments, preprocessor lines
/// and character literals are left out.
class Tokenizer {
 public:
  explicit Tokenizer(const std::string& sourceText) : source(sourceText) {}

  std::vector<Token> run() {
    while (at < source.size()) step();
    return std::move(tokens);
  }

 private:
  bool sees(std::string_view text) const { return source.compare(at, text.size(), text) == 0; }

  void skipTo(std::string_view end) {
    at = std::min(source.find(end, at), source.size() - end.size()) + end.size();
  }

  void step() {
    const char c = source[at];
    if (sees("//") || c == '#') return skipTo("\n");
    if (sees("/*")) return skipTo("*/");
    if (sees("R\"(")) return raw();
    if (c == '"') return literal();
    if (c == '\'') {
      at += source[at + 1] == '\\' ? 2 : 1;
      return skipTo("'");
    }
    if (std::isalnum(static_cast<unsigned char>(c)) || c == '_') return word();
    if (!std::isspace(static_cast<unsigned char>(c))) add(Token::Mark, std::string(1, c));
    ++at;
  }

  void word() {
    const std::size_t begin = at;
    const bool isNumber = std::isdigit(static_cast<unsigned char>(source[at])) != 0;
    while (std::isalnum(static_cast<unsigned char>(source[at])) || source[at] == '_' ||
           (isNumber && source[at] == '\'')) {
      ++at;
    }
    add(Token::Word, source.substr(begin, at - begin));
  }

  void raw() {
    const std::size_t begin = at + 3;
    skipTo(")\"");
    add(Token::Text, source.substr(begin, at - 2 - begin));
  }

  void literal() {
    std::string text;
    for (++at; source[at] != '"'; ++at) {
      if (source[at] != '\\') {
        text += source[at];
      } else {
        ++at;
        text += source[at] == 'n' ? '\n' : source[at];
      }
    }
    ++at;
    add(Token::Text, text);
  }

  void add(Token::Kind kind, const std::string& text) {
    if (kind == Token::Text && !tokens.empty() && tokens.back().kind == Token::Text) {
      tokens.back().text += text;  // adjacent literals are one
      return;
    }
    const auto end = source.begin() + static_cast<std::ptrdiff_t>(std::min(at, source.size()));
    tokens.push_back({kind, text, 1 + static_cast<int>(std::count(source.begin(), end, '\n'))});
  }

  const std::string& source;
  std::size_t at = 0;
  std::vector<Token> tokens;
};

/// The texts of one statement.
class StatementReader {
 public:
  StatementReader(const std::vector<Token>& statementTokens, bool isNode)
      : tokens(statementTokens), coutTells(isNode) {}

  SourceStatement run() {
    SourceStatement statement;
    for (std::size_t i = 0; i < tokens.size(); ++i) {
      const Token& token = tokens[i];
      if (token.text == "(" && token.kind == Token::Mark) calls.push_back(reports(i));
      if (token.text == ")" && token.kind == Token::Mark && !calls.empty()) calls.pop_back();
      if (token.kind == Token::Word && startsTelling(i)) telling = true;
      if (token.kind != Token::Text) continue;
      statement.texts.push_back(token.text);
      const bool inReport = std::find(calls.begin(), calls.end(), true) != calls.end();
      if (telling || inReport) statement.told.push_back(token.text);
    }
    return statement;
  }

 private:
  const std::string& before(std::size_t i, std::size_t steps) const {
    static const std::string NOTHING;
    return i < steps ? NOTHING : tokens[i - steps].text;
  }

  bool startsTelling(std::size_t i) const {
    const std::string& word = tokens[i].text;
    const std::string& next = i + 1 < tokens.size() ? tokens[i + 1].text : before(0, 1);
    if (word == "throw") return true;
    if (word == "expected") return next == "=";
    if (word == "cout") return coutTells && next == "<";
    return (word == "cerr" || word == "out" || word == "err") && next == "<";
  }

  /// Whether the parenthesis at i begins the arguments of a report.
  bool reports(std::size_t i) const {
    const std::string& name = before(i, 1);
    if (name == "push_back") return REPORT_LISTS.contains(before(i, 3));
    if (REPORTERS.contains(name)) return true;
    return PRINTERS.contains(name) && std::any_of(tokens.begin(), tokens.end(), [](const Token& t) {
             return t.text == "stderr";
           });
  }

  const std::vector<Token>& tokens;
  bool coutTells;
  bool telling = false;
  std::vector<bool> calls;  // the open parentheses: whether they hold a report's arguments
};

}  // namespace

std::vector<SourceStatement> readStatements(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  const std::string source{std::istreambuf_iterator<char>(in), {}};
  const bool isNode = file.parent_path().filename() == "nodes";
  std::vector<SourceStatement> statements;
  std::vector<Token> tokens;
  int depth = 0;  // of parentheses, from the statement's begin
  for (const Token& token : Tokenizer(source).run()) {
    const char mark = token.kind == Token::Mark ? token.text[0] : ' ';
    depth += mark == '(' ? 1 : mark == ')' ? -1 : 0;
    if (mark != ';' && !((mark == '{' || mark == '}') && depth <= 0)) {
      tokens.push_back(token);
      continue;
    }
    SourceStatement statement = StatementReader(tokens, isNode).run();
    statement.place = file.filename().string() + ":" + std::to_string(token.line);
    if (!statement.texts.empty()) statements.push_back(statement);
    tokens.clear();
    depth = 0;
  }
  return statements;
}
