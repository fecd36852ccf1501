// Every link of the documents in OSTREL_DOCUMENTS leads to a file in the same folder, and to a heading that
// is there.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace {

using ::testing::IsEmpty;

namespace fs = std::filesystem;

// Lines outside of code blocks.
std::vector<std::string> Prose(const fs::path& document) {
  std::vector<std::string> lines;
  std::ifstream file(document);
  EXPECT_TRUE(file) << document;
  bool isCode = false;
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with("```")) {
      isCode = !isCode;
    } else if (!isCode && !line.starts_with("    ")) {
      lines.push_back(line);
    }
  }
  return lines;
}

std::vector<fs::path> Documents() {
  std::vector<fs::path> documents;
  for (auto entry = fs::recursive_directory_iterator(OSTREL_DOCUMENTS); entry != fs::end(entry); ++entry) {
    const std::string name = entry->path().filename().string();
    if (name == "build" || name == ".git") {
      entry.disable_recursion_pending();
    } else if (entry->path().extension() == ".md") {
      documents.push_back(entry->path());
    }
  }
  return documents;
}

// The name that the usual viewers give to a heading.
std::string Anchor(std::string_view heading) {
  std::string anchor;
  for (const char character : heading.substr(heading.find_first_not_of("# "))) {
    const auto byte = static_cast<unsigned char>(character);
    if (std::isalnum(byte) != 0 || character == '-' || character == '_') {
      anchor += static_cast<char>(std::tolower(byte));
    } else if (character == ' ') {
      anchor += '-';
    }
  }
  return anchor;
}

bool HasAnchor(const fs::path& document, const std::string& anchor) {
  const std::vector<std::string> lines = Prose(document);
  return std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
    return line.starts_with("#") && Anchor(line) == anchor;
  });
}

std::vector<std::string> Links(const fs::path& document) {
  constexpr std::string_view BEFORE_TARGET = "](";
  std::vector<std::string> links;
  for (const std::string& line : Prose(document)) {
    for (std::size_t at = line.find(BEFORE_TARGET); at != std::string::npos;
         at = line.find(BEFORE_TARGET, at + 1)) {
      const std::size_t start = at + BEFORE_TARGET.size();
      links.push_back(line.substr(start, line.find(')', start) - start));
    }
  }
  return links;
}

bool IsInside(const fs::path& path) {
  const fs::path relative = fs::weakly_canonical(path).lexically_relative(fs::canonical(OSTREL_DOCUMENTS));
  return !relative.empty() && *relative.begin() != "..";
}

bool Resolves(const fs::path& document, const std::string& link) {
  const std::size_t hash = std::min(link.find('#'), link.size());
  const fs::path target = hash == 0 ? document : document.parent_path() / link.substr(0, hash);
  if (!fs::exists(target) || !IsInside(target)) return false;
  return hash == link.size() || HasAnchor(target, link.substr(hash + 1));
}

TEST(Documents, LinkOnlyToWhatIsThere) {
  std::vector<std::string> broken;
  std::size_t looked = 0;
  for (const fs::path& document : Documents()) {
    for (const std::string& link : Links(document)) {
      ++looked;
      if (!Resolves(document, link)) broken.push_back(document.string() + ": " + link);
    }
  }
  EXPECT_THAT(broken, IsEmpty());
  EXPECT_GT(looked, 20U) << "the documents were not found, or are not read rightly";
}

TEST(Documents, AreReachedFromTheFirstPage) {
  const fs::path folder = OSTREL_DOCUMENTS;
  const std::vector<std::string> links = Links(folder / "README.md");
  std::vector<std::string> unlinked;
  for (const auto& entry : fs::directory_iterator(folder / "docs")) {
    if (entry.path().extension() != ".md") continue;
    const std::string page = "docs/" + entry.path().filename().string();
    const bool isLinked = std::any_of(links.begin(), links.end(),
                                      [&](const std::string& link) { return link.starts_with(page); });
    if (!isLinked) unlinked.push_back(page);
  }
  EXPECT_THAT(unlinked, IsEmpty());
}

}  // namespace
