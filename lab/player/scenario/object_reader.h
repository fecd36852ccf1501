#ifndef OSTREL_LAB_PLAYER_SCENARIO_OBJECT_READER_H
#define OSTREL_LAB_PLAYER_SCENARIO_OBJECT_READER_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "json_document.h"

namespace ostrel::lab {

// Collects what is wrong with a document, each as "file:line: place: what".
class ErrorList {
 public:
  explicit ErrorList(std::string_view fileName) : fileName_(fileName) {}

  void Add(std::size_t line, std::string_view place, std::string_view what);
  bool IsEmpty() const { return errors_.empty(); }
  std::vector<std::string> Take() { return std::move(errors_); }

 private:
  std::string fileName_;
  std::vector<std::string> errors_;
};

// Reads the members of one JSON object by key, complains about wrong types and missing members, and in the
// end about members that nobody asked for. A getter that complained gives the same as for an absent member.
class ObjectReader {
 public:
  ObjectReader(const JsonValue& value, std::string place, ErrorList& errors);

  bool Has(std::string_view key) const;
  const JsonValue* Required(std::string_view key);
  const JsonValue* Optional(std::string_view key);
  const JsonValue* OptionalOf(std::string_view key, JsonKind kind);
  std::optional<std::string> Text(std::string_view key);
  std::optional<std::string> RequiredText(std::string_view key);
  std::optional<std::int64_t> Integer(std::string_view key, std::int64_t least, std::int64_t most);
  std::optional<bool> Boolean(std::string_view key);

  void Complain(std::string_view key, std::string_view what);
  void ComplainAboutUnknownKeys();

  std::string PlaceOf(std::string_view key) const;

 private:
  const JsonValue* Find(std::string_view key) const;

  const JsonValue& value_;
  std::string place_;
  ErrorList& errors_;
  std::vector<std::string> asked_;
};

// The elements of a list of texts.
std::vector<std::string> ReadTexts(const JsonValue& list, const std::string& place, ErrorList& errors);

}  // namespace ostrel::lab

#endif
