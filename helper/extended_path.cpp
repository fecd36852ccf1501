#include "extended_path.h"

#include <string_view>

#include "util/text.h"

namespace ostrel::helper {

namespace {

constexpr std::wstring_view SHARE = L"\\\\";
constexpr std::wstring_view EXTENDED = L"\\\\?\\";
constexpr std::wstring_view EXTENDED_SHARE = L"\\\\?\\UNC\\";
constexpr std::size_t LONGEST_PLAIN_PATH = 259;

bool IsOnDriveLetter(const std::wstring& path) {
  const wchar_t letter = path.empty() ? L'\0' : FoldAsciiCase(path[0]);
  return letter >= L'a' && letter <= L'z' && path.compare(1, 2, L":\\") == 0;
}

bool IsDeviceForm(const std::wstring& path) {
  return path.starts_with(L"\\\\?\\") || path.starts_with(L"\\\\.\\");
}

}  // namespace

bool IsTooLong(const std::wstring& path) {
  return path.size() > LONGEST_PLAIN_PATH && !IsDeviceForm(path);
}

std::wstring ExtendedPath(const std::wstring& path) {
  if (!IsTooLong(path)) return path;
  if (IsOnDriveLetter(path)) return std::wstring(EXTENDED) + path;
  if (path.starts_with(SHARE)) return std::wstring(EXTENDED_SHARE) + path.substr(SHARE.size());
  return path;
}

std::wstring PlainPath(const std::wstring& path) {
  if (path.starts_with(EXTENDED_SHARE)) return std::wstring(SHARE) + path.substr(EXTENDED_SHARE.size());
  if (path.starts_with(EXTENDED)) return path.substr(EXTENDED.size());
  return path;
}

}  // namespace ostrel::helper
