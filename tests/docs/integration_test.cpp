// docs/integration.md shows the examples as they are: what it prints is what the package test builds and
// runs.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

using ::testing::Contains;

namespace fs = std::filesystem;

const fs::path EXAMPLES = OSTREL_CHECKOUT "/docs/examples";

std::string Read(const fs::path& path) {
  std::ifstream file(path);
  EXPECT_TRUE(file) << path;
  return {std::istreambuf_iterator<char>(file), {}};
}

struct Block {
  std::string file;  // relative to the examples' folder
  std::string text;
};

// The code blocks that are C++ or CMake, each with the file that the nearest line before it names:
// "`examples/...`:".
std::vector<Block> ShownFiles() {
  constexpr std::string_view QUOTE = "`examples/";
  std::vector<Block> blocks;
  std::ifstream page(OSTREL_CHECKOUT "/docs/integration.md");
  EXPECT_TRUE(page);
  std::string file;
  for (std::string line; std::getline(page, line);) {
    if (const std::size_t at = line.find(QUOTE); at != std::string::npos) {
      const std::size_t start = at + QUOTE.size();
      file = line.substr(start, line.find('`', start) - start);
    } else if (line == "```cpp" || line == "```cmake") {
      Block block{std::exchange(file, {}), {}};
      while (std::getline(page, line) && line != "```") block.text += line + "\n";
      blocks.push_back(block);
    }
  }
  return blocks;
}

TEST(IntegrationPage, ShowsTheExamplesAsTheyAre) {
  for (const Block& block : ShownFiles()) {
    ASSERT_NE(block.file, "") << "no line names the file of the block:\n" << block.text;
    EXPECT_EQ(block.text, Read(EXAMPLES / block.file)) << block.file;
  }
}

TEST(IntegrationPage, ShowsEveryExample) {
  std::set<std::string> shown;
  for (const Block& block : ShownFiles()) shown.insert(block.file);
  std::size_t examples = 0;
  for (const auto& entry : fs::recursive_directory_iterator(EXAMPLES)) {
    if (entry.path().extension() != ".cpp") continue;
    ++examples;
    EXPECT_THAT(shown, Contains(entry.path().lexically_relative(EXAMPLES).generic_string()));
  }
  EXPECT_EQ(examples, 3U);
}

}  // namespace
