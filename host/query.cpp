#include "query.h"

#include <nlohmann/json.hpp>

#include "utf8.h"

namespace ostrel::host {

namespace {

// Keeps the keys in the order in which they are written here.
using Json = nlohmann::ordered_json;

Json TextOrNull(const std::optional<std::wstring>& text) {
  return text ? Json(ToUtf8(*text)) : Json(nullptr);
}

}  // namespace

std::string QueryJson(std::string_view name, const QueryAnswer& answer) {
  Json json;
  json["query"] = name;
  json["result"] = TextOrNull(answer.result);
  json["error"] = TextOrNull(answer.error);
  return json.dump();
}

}  // namespace ostrel::host
