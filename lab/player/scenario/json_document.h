#ifndef OSTREL_LAB_PLAYER_SCENARIO_JSON_DOCUMENT_H
#define OSTREL_LAB_PLAYER_SCENARIO_JSON_DOCUMENT_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ostrel::lab {

enum class JsonKind { Null, Boolean, Integer, Real, String, Array, Object };

// A JSON value that remembers the line on which it begins.
struct JsonValue {
  JsonKind kind = JsonKind::Null;
  std::size_t line = 0;
  bool boolean = false;
  std::int64_t integer = 0;
  std::string string;
  std::vector<std::string> keys;  // of an object, one for each element
  std::vector<JsonValue> elements;
};

struct JsonResult {
  std::optional<JsonValue> value;
  std::string error;  // "line:column: what is wrong", when there is no value
};

// Values nest at most MAXIMUM_JSON_DEPTH deep. Duplicate keys and numbers beyond 64 bits are errors.
constexpr std::size_t MAXIMUM_JSON_DEPTH = 16;
JsonResult ParseJson(std::string_view text);

const char* NameOf(JsonKind kind);

}  // namespace ostrel::lab

#endif
