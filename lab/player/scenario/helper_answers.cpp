#include "helper_answers.h"

#include <limits>

namespace ostrel::lab {

namespace {

template <typename Value>
bool Matches(const std::optional<Value>& expected, const std::optional<Value>& reported) {
  return !expected || expected == reported;
}

std::string Shortened(const std::string& text, std::size_t longest) {
  if (text.size() <= longest) return text;
  std::size_t end = longest;
  // Not within a character.
  while (end != 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
  return text.substr(0, end) + "...";
}

std::string DescribedText(const char* label, const std::optional<std::string>& text, std::size_t longest) {
  return text && !text->empty() ? std::string(", ") + label + Shortened(*text, longest) : std::string();
}

}  // namespace

HelperAnswers ReadHelperAnswers(ObjectReader& reader, ErrorList& errors) {
  HelperAnswers answers;
  if (const JsonValue* const list = reader.OptionalOf("destinationHints", JsonKind::Array)) {
    answers.destinationHints = ReadTexts(*list, reader.PlaceOf("destinationHints"), errors);
  }
  answers.tabTitleStatus = reader.Text("tabTitleStatus");
  answers.sha256 = reader.Text("sha256");
  answers.md5 = reader.Text("md5");
  answers.metadataFileSize = reader.Integer("metadataFileSize", 0, std::numeric_limits<std::uint32_t>::max());
  answers.metadataStatus = reader.Text("metadataStatus");
  return answers;
}

HelperAnswers OnlyWanted(const HelperAnswers& answers, const HelperAnswers& wanted) {
  HelperAnswers kept;
  if (wanted.destinationHints) kept.destinationHints = answers.destinationHints;
  if (wanted.tabTitleStatus) kept.tabTitleStatus = answers.tabTitleStatus;
  if (wanted.sha256) kept.sha256 = answers.sha256;
  if (wanted.md5) kept.md5 = answers.md5;
  if (wanted.metadataFileSize) kept.metadataFileSize = answers.metadataFileSize;
  if (wanted.metadataStatus) kept.metadataStatus = answers.metadataStatus;
  return kept;
}

bool Matches(const HelperAnswers& expected, const HelperAnswers& reported) {
  return Matches(expected.destinationHints, reported.destinationHints) &&
         Matches(expected.tabTitleStatus, reported.tabTitleStatus) &&
         Matches(expected.sha256, reported.sha256) && Matches(expected.md5, reported.md5) &&
         Matches(expected.metadataFileSize, reported.metadataFileSize) &&
         Matches(expected.metadataStatus, reported.metadataStatus);
}

std::string Described(const HelperAnswers& answers) {
  constexpr std::size_t LONGEST_TITLE = 40;
  constexpr std::size_t LONGEST_DIGEST = 8;
  constexpr std::size_t LONGEST_STATUS = 60;
  std::string text;
  for (const std::string& title : answers.destinationHints.value_or(std::vector<std::string>())) {
    text += ", \"" + Shortened(title, LONGEST_TITLE) + "\"";
  }
  text += DescribedText("", answers.tabTitleStatus, LONGEST_STATUS);
  text += DescribedText("sha256 ", answers.sha256, LONGEST_DIGEST);
  text += DescribedText("md5 ", answers.md5, LONGEST_DIGEST);
  if (answers.metadataFileSize.value_or(0) != 0) {
    text += ", " + std::to_string(*answers.metadataFileSize) + " bytes";
  }
  return text + DescribedText("", answers.metadataStatus, LONGEST_STATUS);
}

}  // namespace ostrel::lab
