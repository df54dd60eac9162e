#include "tests/cli/CommandTest.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>

std::vector<std::string> wordsOf(const std::string& text) {
  std::istringstream stream(text);
  return {std::istream_iterator<std::string>(stream), {}};
}

void CommandTest::expectRefused(int status, const std::vector<Refusal>& cases) const {
  const std::vector<std::string> before = folder.names();
  for (const Refusal& c : cases) {
    SCOPED_TRACE(c.arguments);
    const CommandRun result = run(c.arguments);
    EXPECT_EQ(result.status, status);
    EXPECT_EQ(result.output, "");
    const std::string told =
        "zelk-sss: " + c.message + (status == 2 ? " (--help shows the usage)\n" : "\n");
    const std::size_t gap = told.find("…");
    if (gap == std::string::npos) {
      EXPECT_EQ(result.errors, told);
    } else {
      EXPECT_THAT(result.errors, testing::StartsWith(told.substr(0, gap)));
      EXPECT_THAT(result.errors, testing::EndsWith(told.substr(gap + std::string("…").size())));
    }
    EXPECT_EQ(std::count(result.errors.begin(), result.errors.end(), '\n'), 1) << result.errors;
  }
  EXPECT_EQ(folder.names(), before);
}

std::string CommandTest::content(const std::string& name) const {
  std::ifstream file(folder / name, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}
