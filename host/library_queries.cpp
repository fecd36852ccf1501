#include "library_queries.h"

#include "api/exports.h"
#include "command_line.h"

namespace ostrel::host {

namespace {

// Copies a string of the library and gives it back.
std::optional<std::wstring> Take(wchar_t* text) {
  if (text == nullptr) return std::nullopt;
  std::optional<std::wstring> copy(text);
  DeallocStringPointer(&text);
  return copy;
}

// A getter sets one of the two strings, or none.
template <typename Getter>
QueryAnswer AnswerOf(Getter getter) {
  wchar_t* result = nullptr;
  wchar_t* error = nullptr;
  getter(&result, &error);
  return {Take(result), Take(error)};
}

}  // namespace

Queries LibraryQueries() {
  return {
      {"user", "who is logged on at the console",
       [](const Options&) { return AnswerOf(GetCurrentUserName); }},
      {"directories", "the directories of all user profiles",
       [](const Options&) { return AnswerOf(GetAllUserDirectories); }},
      {"proxy", "the URL of your automatic proxy configuration script",
       [](const Options&) { return AnswerOf(GetAutoProxyConfigUrlForUser); }},
  };
}

}  // namespace ostrel::host
