#include "utf8.h"

#include <windows.h>

#include <stdexcept>

namespace ostrel::host {

namespace {

int LengthOf(std::size_t length) {
  if (length > MAXINT) throw std::length_error("text too long");
  return static_cast<int>(length);
}

}  // namespace

std::string ToUtf8(std::wstring_view text) {
  if (text.empty()) return {};
  const int length = LengthOf(text.size());
  const int needed = WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
  std::string converted(static_cast<std::size_t>(needed), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.data(), length, converted.data(), needed, nullptr, nullptr);
  return converted;
}

std::wstring ToUtf16(std::string_view text) {
  if (text.empty()) return {};
  const int length = LengthOf(text.size());
  const int needed = MultiByteToWideChar(CP_UTF8, 0, text.data(), length, nullptr, 0);
  std::wstring converted(static_cast<std::size_t>(needed), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, text.data(), length, converted.data(), needed);
  return converted;
}

}  // namespace ostrel::host
