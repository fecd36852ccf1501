// docs/troubleshooting.md explains every error line of the library, and no line that the library does not
// write.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace {

using ::testing::Contains;
using ::testing::IsEmpty;

using Texts = std::set<std::string>;

std::string Read(const std::filesystem::path& path) {
  std::ifstream file(path);
  EXPECT_TRUE(file) << path;
  return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::string> Sources() {
  std::vector<std::string> sources;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(OSTREL_CHECKOUT "/src")) {
    if (entry.path().extension() == ".cpp") sources.push_back(Read(entry.path()));
  }
  return sources;
}

std::string_view WithoutSpace(std::string_view code) {
  while (!code.empty() && std::isspace(static_cast<unsigned char>(code.front()))) code.remove_prefix(1);
  return code;
}

bool IsLiteral(std::string_view code) {
  return WithoutSpace(code).starts_with("L\"");
}

// The wide literal that the code begins with, put together from its parts, as the documents write it: without
// a line end of its own.
std::string Literal(std::string_view code) {
  std::string text;
  for (code = WithoutSpace(code); code.starts_with("L\""); code = WithoutSpace(code)) {
    const std::size_t end = code.find('"', 2);
    text += code.substr(2, end - 2);
    code.remove_prefix(end + 1);
  }
  constexpr std::string_view LINE_END = "\\n";
  if (text.ends_with(LINE_END)) text.resize(text.size() - LINE_END.size());
  return text;
}

// What follows each occurrence of the words.
std::vector<std::string_view> After(std::string_view words, const std::string& source) {
  std::vector<std::string_view> found;
  for (std::size_t at = source.find(words); at != std::string::npos; at = source.find(words, at + 1)) {
    found.push_back(std::string_view(source).substr(at + words.size()));
  }
  return found;
}

void AddLiterals(std::string_view words, const std::string& source, Texts& texts) {
  for (const std::string_view code : After(words, source)) {
    if (IsLiteral(code)) texts.insert(Literal(code));
  }
}

// The lines that are passed to Log at the level, where they stand as such.
Texts LinesLoggedAt(std::string_view level) {
  Texts lines;
  for (const std::string& source : Sources()) AddLiterals("Log(" + std::string(level) + ",", source, lines);
  return lines;
}

// Functions and members through which a line gets to a Log that passes on what it was given.
constexpr std::string_view ERROR_LINE_CARRIERS[] = {
    "LogFailure(",          ".openFailed =",          ".transactionFailed =",
    ".flowCalloutFailed =", ".streamCalloutFailed =", ".commitFailed =",
};
// What those pass on.
const Texts PASSED_ON{"format", "line", "objects.openFailed"};

Texts ErrorLines() {
  Texts lines = LinesLoggedAt("LOG_ERROR");
  for (const std::string& source : Sources()) {
    for (const std::string_view carrier : ERROR_LINE_CARRIERS) AddLiterals(carrier, source, lines);
  }
  return lines;
}

struct Explained {
  Texts errors;
  Texts notable;
};

// The first column of the tables of lines.
Explained ExplainedLines() {
  Explained explained;
  std::ifstream file(OSTREL_CHECKOUT "/docs/troubleshooting.md");
  EXPECT_TRUE(file);
  bool inLines = false;
  for (std::string row; std::getline(file, row);) {
    if (!row.starts_with("|")) inLines = false;
    if (row.starts_with("| Line |")) inLines = true;
    if (!inLines || !row.starts_with("| `")) continue;
    const std::size_t end = row.find('`', 3);
    const bool isNotable = row.compare(end, 12, "` (level 6) ") == 0;
    (isNotable ? explained.notable : explained.errors).insert(row.substr(3, end - 3));
  }
  return explained;
}

Texts Missing(const Texts& wanted, const Texts& there) {
  Texts missing;
  for (const std::string& text : wanted) {
    if (there.count(text) == 0) missing.insert(text);
  }
  return missing;
}

TEST(Troubleshooting, ExplainsEveryErrorLine) {
  EXPECT_THAT(Missing(ErrorLines(), ExplainedLines().errors), IsEmpty());
}

TEST(Troubleshooting, ExplainsNoErrorLineThatIsNotThere) {
  EXPECT_THAT(Missing(ExplainedLines().errors, ErrorLines()), IsEmpty());
}

TEST(Troubleshooting, ExplainsNoNotableLineThatIsNotThere) {
  const Explained explained = ExplainedLines();
  EXPECT_THAT(explained.notable, Contains("Driver unloaded."));
  EXPECT_THAT(Missing(explained.notable, LinesLoggedAt("LOG_NOTABLE")), IsEmpty());
}

// Where no literal is logged, this test must know the ways of the line, or would miss it.
TEST(Troubleshooting, KnowsEveryWayOfAnErrorLine) {
  for (const std::string& source : Sources()) {
    for (const std::string_view code : After("Log(LOG_ERROR,", source)) {
      if (IsLiteral(code)) continue;
      const std::string_view passed = WithoutSpace(code);
      EXPECT_THAT(PASSED_ON, Contains(passed.substr(0, passed.find(','))));
    }
    for (const std::string_view code : After("LogAbortAndClose(engine, ", source)) {
      constexpr std::string_view OBJECTS = "objects";
      const std::string member(code.substr(OBJECTS.size(), code.find(',') - OBJECTS.size()));
      EXPECT_THAT(ERROR_LINE_CARRIERS, Contains(member + " ="));
    }
  }
  EXPECT_THAT(ErrorLines(), Contains("Could not add persistent stream V6 callout. %ld"));
  EXPECT_THAT(ErrorLines(), Contains("Could not look up privilege. %lu"));
  EXPECT_THAT(ErrorLines(), Contains("Couldn't resolve user. %d"));
}

}  // namespace
