#ifndef OSTREL_LAB_PLAYER_SCENARIO_HELPER_ANSWERS_H
#define OSTREL_LAB_PLAYER_SCENARIO_HELPER_ANSWERS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "object_reader.h"

namespace ostrel::lab {

// What a detection owes to the helper in the user's session. The same members in the host's output and in
// what a scenario expects of it, where those that are absent are not compared.
struct HelperAnswers {
  std::optional<std::vector<std::string>> destinationHints = std::nullopt;
  std::optional<std::string> tabTitleStatus = std::nullopt;
  std::optional<std::string> sha256 = std::nullopt;
  std::optional<std::string> md5 = std::nullopt;
  std::optional<std::int64_t> metadataFileSize = std::nullopt;
  std::optional<std::string> metadataStatus = std::nullopt;
};

HelperAnswers ReadHelperAnswers(ObjectReader& reader, ErrorList& errors);

// The members of `answers` that `wanted` has too.
HelperAnswers OnlyWanted(const HelperAnswers& answers, const HelperAnswers& wanted);

// Whether `reported` has all that is expected.
bool Matches(const HelperAnswers& expected, const HelperAnswers& reported);

// As a continuation: empty, or beginning with a comma. Long titles and digests are cut.
std::string Described(const HelperAnswers& answers);

}  // namespace ostrel::lab

#endif
