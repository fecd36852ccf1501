#include "json_document.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <nlohmann/json.hpp>
#include <set>

namespace ostrel::lab {

namespace {

// Hands the text to the parser and lets everybody else see how far it has read.
class CountingIterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = const char&;

  CountingIterator(const char* at, const char** farthest) : at_(at), farthest_(farthest) {}
  reference operator*() const { return *at_; }
  CountingIterator& operator++() {
    ++at_;
    *farthest_ = std::max(*farthest_, at_);
    return *this;
  }
  CountingIterator operator++(int) {
    CountingIterator before = *this;
    ++*this;
    return before;
  }
  bool operator==(const CountingIterator& other) const { return at_ == other.at_; }

 private:
  const char* at_;
  const char** farthest_;
};

std::string Position(std::string_view text, std::size_t offset) {
  const std::string_view before = text.substr(0, std::min(offset, text.size()));
  const auto line = 1 + std::count(before.begin(), before.end(), '\n');
  const std::size_t lastBreak = before.rfind('\n');
  const std::size_t column = before.size() - (lastBreak == std::string_view::npos ? 0 : lastBreak + 1);
  return std::to_string(line) + ":" + std::to_string(std::max<std::size_t>(column, 1)) + ": ";
}

// The parser's own text without its exception number and its own idea of the place.
std::string WithoutPrefix(std::string text) {
  const std::size_t bracket = text.find("] ");
  if (bracket != std::string::npos) text.erase(0, bracket + 2);
  const std::size_t place = text.find(": syntax error");
  if (place != std::string::npos) text.erase(0, place + 2);
  return text;
}

// Builds the tree from the parser's events. The parser reports a value before it reads past it, except for
// one character after a number, so the lines up to the character before the last one read give the value's
// line.
class TreeBuilder : public nlohmann::json_sax<nlohmann::json> {
 public:
  TreeBuilder(std::string_view text, const char* const& farthest)
      : text_(text), counted_(text.data()), farthest_(farthest) {}

  std::optional<JsonValue> TakeRoot() { return std::move(root_); }
  const std::string& Error() const { return error_; }

  bool null() override { return Add(Value(JsonKind::Null)); }
  bool boolean(bool value) override {
    JsonValue fresh = Value(JsonKind::Boolean);
    fresh.boolean = value;
    return Add(std::move(fresh));
  }
  bool number_integer(number_integer_t value) override {
    JsonValue fresh = Value(JsonKind::Integer);
    fresh.integer = value;
    return Add(std::move(fresh));
  }
  bool number_unsigned(number_unsigned_t value) override {
    if (value > static_cast<number_unsigned_t>(std::numeric_limits<std::int64_t>::max())) {
      return Fail("number too large: " + std::to_string(value));
    }
    return number_integer(static_cast<number_integer_t>(value));
  }
  // The parser hands over whole numbers beyond 64 bits as well.
  bool number_float(number_float_t, const string_t& text) override {
    if (text.find_first_of(".eE") == std::string::npos) return Fail("number too large: " + text);
    return Add(Value(JsonKind::Real));
  }
  bool string(string_t& value) override {
    JsonValue fresh = Value(JsonKind::String);
    fresh.string = std::move(value);
    return Add(std::move(fresh));
  }
  bool binary(binary_t&) override { return Fail("binary value"); }
  bool start_object(std::size_t) override { return Open(JsonKind::Object); }
  bool start_array(std::size_t) override { return Open(JsonKind::Array); }
  bool end_object() override { return Close(); }
  bool end_array() override { return Close(); }
  bool key(string_t& value) override {
    if (!keysOfOpen_.back().insert(value).second) return Fail("key \"" + value + "\" twice");
    open_.back().keys.push_back(std::move(value));
    return true;
  }
  bool parse_error(std::size_t, const std::string&, const nlohmann::json::exception& failure) override {
    return Fail(WithoutPrefix(failure.what()));
  }

 private:
  JsonValue Value(JsonKind kind) {
    const char* const last = std::max(counted_, farthest_ == text_.data() ? farthest_ : farthest_ - 1);
    line_ += static_cast<std::size_t>(std::count(counted_, last, '\n'));
    counted_ = last;
    JsonValue fresh;
    fresh.kind = kind;
    fresh.line = line_;
    return fresh;
  }
  bool Add(JsonValue value) {
    if (open_.empty()) {
      root_ = std::move(value);
    } else {
      open_.back().elements.push_back(std::move(value));
    }
    return true;
  }
  bool Open(JsonKind kind) {
    if (open_.size() == MAXIMUM_JSON_DEPTH) {
      return Fail("nested deeper than " + std::to_string(MAXIMUM_JSON_DEPTH) + " levels");
    }
    open_.push_back(Value(kind));
    keysOfOpen_.emplace_back();
    return true;
  }
  bool Close() {
    JsonValue finished = std::move(open_.back());
    open_.pop_back();
    keysOfOpen_.pop_back();
    return Add(std::move(finished));
  }
  bool Fail(const std::string& what) {
    error_ = Position(text_, static_cast<std::size_t>(farthest_ - text_.data())) + what;
    // Keys may hold anything; an error stays one line.
    std::replace_if(
        error_.begin(), error_.end(), [](char c) { return c >= 0 && c < ' '; }, '?');
    return false;
  }

  std::string_view text_;
  const char* counted_;
  const char* const& farthest_;
  std::size_t line_ = 1;
  std::vector<JsonValue> open_;
  std::vector<std::set<std::string>> keysOfOpen_;
  std::optional<JsonValue> root_;
  std::string error_;
};

}  // namespace

JsonResult ParseJson(std::string_view text) {
  // The parser would take it for the end of the text and leave the rest unread.
  const std::size_t zero = text.find('\0');
  if (zero != std::string_view::npos) return {std::nullopt, Position(text, zero + 1) + "zero byte"};
  const char* farthest = text.data();
  TreeBuilder builder(text, farthest);
  const bool parsed =
      nlohmann::json::sax_parse(CountingIterator(text.data(), &farthest),
                                CountingIterator(text.data() + text.size(), &farthest), &builder);
  if (!parsed) return {std::nullopt, builder.Error()};
  return {builder.TakeRoot(), {}};
}

const char* NameOf(JsonKind kind) {
  switch (kind) {
    case JsonKind::Null:
      return "null";
    case JsonKind::Boolean:
      return "true or false";
    case JsonKind::Integer:
      return "a whole number";
    case JsonKind::Real:
      return "a number with a fraction";
    case JsonKind::String:
      return "a text";
    case JsonKind::Array:
      return "a list";
    case JsonKind::Object:
      return "an object";
  }
  return "an unknown value";
}

}  // namespace ostrel::lab
