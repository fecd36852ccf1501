#include "request_reader.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace ostrel::helper {

namespace {

constexpr std::size_t LONGEST_IDENTIFIER = 64;

constexpr bool IsDigit(wchar_t character) {
  return character >= L'0' && character <= L'9';
}

}  // namespace

std::optional<RequestHead> RequestReader::ReadHead() {
  const std::optional<std::uint32_t> version = ReadNumber();
  if (!version || !ReadComma()) return std::nullopt;
  const std::optional<std::uint32_t> messageType = ReadNumber();
  if (!messageType || !ReadComma()) return std::nullopt;
  std::optional<std::wstring> commandId = ReadIdentifier();
  if (!commandId || !ReadComma()) return std::nullopt;
  std::optional<std::wstring> responseId = ReadIdentifier();
  if (!responseId || !ReadComma()) return std::nullopt;
  return RequestHead{*version, *messageType, std::move(*commandId), std::move(*responseId)};
}

std::optional<TitlesRequest> RequestReader::ReadTitlesBody() {
  const std::optional<std::uint32_t> processId = ReadNumber();
  if (!processId || !ReadComma()) return std::nullopt;
  std::optional<std::wstring> processName = ReadLastText();
  if (!processName) return std::nullopt;
  return TitlesRequest{*processId, std::move(*processName)};
}

std::optional<std::wstring> RequestReader::ReadFilePathBody() {
  return ReadLastText();
}

bool RequestReader::ReadEmptyBody() const {
  return rest_.empty();
}

std::optional<CloudLoginRequest> RequestReader::ReadCloudLoginBody() {
  std::optional<std::wstring> provider = ReadFreeText();
  if (!provider || !ReadComma()) return std::nullopt;
  std::optional<std::wstring> homeDirectory = ReadLastText();
  if (!homeDirectory) return std::nullopt;
  return CloudLoginRequest{std::move(*provider), std::move(*homeDirectory)};
}

std::optional<std::uint32_t> RequestReader::ReadNumber() {
  const auto end = std::find_if_not(rest_.begin(), rest_.end(), IsDigit);
  const auto length = static_cast<std::size_t>(end - rest_.begin());
  constexpr std::size_t MOST_DIGITS = std::numeric_limits<std::uint32_t>::digits10 + 1;
  if (length == 0 || length > MOST_DIGITS || (length > 1 && rest_.front() == L'0')) return std::nullopt;
  std::uint64_t value = 0;
  for (const wchar_t digit : rest_.substr(0, length))
    value = value * 10 + static_cast<unsigned>(digit - L'0');
  if (value > std::numeric_limits<std::uint32_t>::max()) return std::nullopt;
  rest_.remove_prefix(length);
  return static_cast<std::uint32_t>(value);
}

bool RequestReader::ReadComma() {
  if (rest_.empty() || rest_.front() != L',') return false;
  rest_.remove_prefix(1);
  return true;
}

std::optional<std::wstring> RequestReader::ReadText(std::size_t shortest, std::size_t longest) {
  const std::optional<std::uint32_t> length = ReadNumber();
  if (!length || *length < shortest || *length > longest || !ReadComma() || *length > rest_.size()) {
    return std::nullopt;
  }
  const std::wstring_view text = rest_.substr(0, *length);
  // Whoever takes the text as zero-terminated would take less than was checked.
  if (text.find(L'\0') != std::wstring_view::npos) return std::nullopt;
  rest_.remove_prefix(*length);
  return std::wstring(text);
}

std::optional<std::wstring> RequestReader::ReadIdentifier() {
  return ReadText(1, LONGEST_IDENTIFIER);
}

std::optional<std::wstring> RequestReader::ReadFreeText() {
  return ReadText(0, std::numeric_limits<std::uint32_t>::max());
}

std::optional<std::wstring> RequestReader::ReadLastText() {
  std::optional<std::wstring> text = ReadFreeText();
  return rest_.empty() ? text : std::nullopt;
}

}  // namespace ostrel::helper
