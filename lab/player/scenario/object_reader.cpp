#include "object_reader.h"

#include <algorithm>

namespace ostrel::lab {

namespace {

constexpr std::size_t MOST_ERRORS = 50;

std::string Joined(const std::vector<std::string>& names) {
  std::string joined;
  for (const std::string& name : names) joined += (joined.empty() ? "" : ", ") + name;
  return joined;
}

}  // namespace

void ErrorList::Add(std::size_t line, std::string_view place, std::string_view what) {
  if (errors_.size() > MOST_ERRORS) return;
  if (errors_.size() == MOST_ERRORS) {
    errors_.push_back(fileName_ + ": more errors are not shown");
    return;
  }
  std::string error = fileName_ + ":" + std::to_string(line) + ": ";
  if (!place.empty()) error.append(place).append(": ");
  error.append(what);
  // Keys and texts of the file may hold anything; an error stays one line.
  std::replace_if(
      error.begin(), error.end(), [](char c) { return c >= 0 && c < ' '; }, '?');
  errors_.push_back(std::move(error));
}

ObjectReader::ObjectReader(const JsonValue& value, std::string place, ErrorList& errors)
    : value_(value), place_(std::move(place)), errors_(errors) {
  if (value_.kind != JsonKind::Object) {
    errors_.Add(value_.line, place_, std::string("must be an object, is ") + NameOf(value_.kind));
  }
}

const JsonValue* ObjectReader::Find(std::string_view key) const {
  const auto found = std::find(value_.keys.begin(), value_.keys.end(), key);
  if (found == value_.keys.end()) return nullptr;
  return &value_.elements[static_cast<std::size_t>(found - value_.keys.begin())];
}

std::string ObjectReader::PlaceOf(std::string_view key) const {
  std::string place = place_;
  if (!place.empty()) place += '/';
  return place.append(key);
}

bool ObjectReader::Has(std::string_view key) const {
  return Find(key) != nullptr;
}

const JsonValue* ObjectReader::Optional(std::string_view key) {
  asked_.emplace_back(key);
  return Find(key);
}

const JsonValue* ObjectReader::Required(std::string_view key) {
  const JsonValue* const member = Optional(key);
  if (member == nullptr && value_.kind == JsonKind::Object) {
    errors_.Add(value_.line, place_, "\"" + std::string(key) + "\" is missing");
  }
  return member;
}

const JsonValue* ObjectReader::OptionalOf(std::string_view key, JsonKind kind) {
  const JsonValue* const member = Optional(key);
  if (member == nullptr || member->kind == kind) return member;
  Complain(key, std::string("must be ") + NameOf(kind) + ", is " + NameOf(member->kind));
  return nullptr;
}

std::optional<std::string> ObjectReader::Text(std::string_view key) {
  const JsonValue* const member = OptionalOf(key, JsonKind::String);
  if (member == nullptr) return std::nullopt;
  return member->string;
}

std::optional<std::string> ObjectReader::RequiredText(std::string_view key) {
  if (Required(key) == nullptr) return std::nullopt;
  return Text(key);
}

std::optional<std::int64_t> ObjectReader::Integer(std::string_view key, std::int64_t least,
                                                  std::int64_t most) {
  const JsonValue* const member = OptionalOf(key, JsonKind::Integer);
  if (member == nullptr) return std::nullopt;
  if (member->integer >= least && member->integer <= most) return member->integer;
  Complain(key, "must be from " + std::to_string(least) + " to " + std::to_string(most) + ", is " +
                    std::to_string(member->integer));
  return std::nullopt;
}

std::optional<bool> ObjectReader::Boolean(std::string_view key) {
  const JsonValue* const member = OptionalOf(key, JsonKind::Boolean);
  if (member == nullptr) return std::nullopt;
  return member->boolean;
}

void ObjectReader::Complain(std::string_view key, std::string_view what) {
  const JsonValue* const member = Find(key);
  errors_.Add(member == nullptr ? value_.line : member->line, PlaceOf(key), what);
}

std::vector<std::string> ReadTexts(const JsonValue& list, const std::string& place, ErrorList& errors) {
  std::vector<std::string> texts;
  for (std::size_t i = 0; i < list.elements.size(); ++i) {
    const JsonValue& element = list.elements[i];
    if (element.kind != JsonKind::String) {
      errors.Add(element.line, place + "/" + std::to_string(i),
                 std::string("must be a text, is ") + NameOf(element.kind));
    }
    texts.push_back(element.string);
  }
  return texts;
}

void ObjectReader::ComplainAboutUnknownKeys() {
  for (std::size_t i = 0; i < value_.keys.size(); ++i) {
    if (std::find(asked_.begin(), asked_.end(), value_.keys[i]) != asked_.end()) continue;
    std::vector<std::string> known = asked_;
    std::sort(known.begin(), known.end());
    known.erase(std::unique(known.begin(), known.end()), known.end());
    errors_.Add(value_.elements[i].line, PlaceOf(value_.keys[i]),
                "unknown key; known here: " + Joined(known));
  }
}

}  // namespace ostrel::lab
