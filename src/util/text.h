#ifndef OSTREL_UTIL_TEXT_H
#define OSTREL_UTIL_TEXT_H

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace ostrel {

// Folds A-Z to a-z and nothing else, whatever locale the host has set.
constexpr wchar_t FoldAsciiCase(wchar_t character) {
  return character >= L'A' && character <= L'Z' ? static_cast<wchar_t>(character - L'A' + L'a') : character;
}

constexpr bool EqualsIgnoringAsciiCase(std::wstring_view left, std::wstring_view right) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](wchar_t a, wchar_t b) { return FoldAsciiCase(a) == FoldAsciiCase(b); });
}

constexpr bool StartsWithIgnoringAsciiCase(std::wstring_view text, std::wstring_view prefix) {
  return text.size() >= prefix.size() && EqualsIgnoringAsciiCase(text.substr(0, prefix.size()), prefix);
}

constexpr bool EndsWithIgnoringAsciiCase(std::wstring_view text, std::wstring_view suffix) {
  return text.size() >= suffix.size() &&
         EqualsIgnoringAsciiCase(text.substr(text.size() - suffix.size()), suffix);
}

inline bool EndsWithAnyIgnoringAsciiCase(std::wstring_view text, const std::vector<std::wstring>& suffixes) {
  return std::any_of(suffixes.begin(), suffixes.end(),
                     [text](const std::wstring& suffix) { return EndsWithIgnoringAsciiCase(text, suffix); });
}

// Copies as much of `text` as fits into `capacity` characters with its terminator; `capacity` is at least 1.
inline void CopyBounded(std::wstring_view text, wchar_t* destination, std::size_t capacity) {
  const std::size_t length = std::min(text.size(), capacity - 1);
  std::copy_n(text.data(), length, destination);
  destination[length] = L'\0';
}

// An array of NUL-terminated texts as a host hands it in; valid only during the call it came with.
struct TextList {
  const wchar_t* const* texts = nullptr;
  int count = 0;

  // A count of 0 or less, or a null array, is the empty list; a null entry counts as an empty text, so that
  // the number of entries stays the host's.
  std::vector<std::wstring> Copy() const {
    std::vector<std::wstring> copies;
    if (texts == nullptr || count <= 0) return copies;
    copies.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) copies.emplace_back(texts[i] == nullptr ? L"" : texts[i]);
    return copies;
  }
};

}  // namespace ostrel

#endif
