#include "windows_registry.h"

#include <windows.h>

#include <algorithm>
#include <iterator>

#include "util/unique_handle.h"

namespace ostrel::helper {

namespace {

struct RegistryKeyPolicy {
  using Handle = HKEY;
  static Handle Invalid() noexcept { return nullptr; }
  static void Close(Handle key) noexcept { RegCloseKey(key); }
};
using UniqueRegistryKey = UniqueHandle<RegistryKeyPolicy>;

HKEY HandleOf(RegistryRoot root) {
  switch (root) {
    case RegistryRoot::CurrentUser:
      return HKEY_CURRENT_USER;
    case RegistryRoot::LocalMachine:
      return HKEY_LOCAL_MACHINE;
    case RegistryRoot::Users:
      return HKEY_USERS;
  }
  return nullptr;
}

bool MeansMissing(LSTATUS status) {
  return status == ERROR_FILE_NOT_FOUND || status == ERROR_PATH_NOT_FOUND;
}

// Empty when there is no such key.
UniqueRegistryKey Open(RegistryRoot root, const std::wstring& key) {
  HKEY opened = nullptr;
  const LSTATUS status =
      RegOpenKeyExW(HandleOf(root), key.c_str(), 0, KEY_QUERY_VALUE | KEY_ENUMERATE_SUB_KEYS, &opened);
  if (status != ERROR_SUCCESS && !MeansMissing(status)) throw RegistryError(key, status);
  return UniqueRegistryKey(status == ERROR_SUCCESS ? opened : nullptr);
}

}  // namespace

bool WindowsRegistry::HasKey(RegistryRoot root, const std::wstring& key) const {
  return static_cast<bool>(Open(root, key));
}

std::optional<std::wstring> WindowsRegistry::Text(RegistryRoot root, const std::wstring& key,
                                                  const std::wstring& value) const {
  const UniqueRegistryKey opened = Open(root, key);
  if (!opened) return std::nullopt;
  std::wstring text(256, L'\0');
  LSTATUS status = ERROR_MORE_DATA;
  // Also when the value grows in between.
  while (status == ERROR_MORE_DATA) {
    auto size = static_cast<DWORD>(text.size() * sizeof(wchar_t));
    status = RegGetValueW(opened.Get(), nullptr, value.c_str(), RRF_RT_REG_SZ, nullptr, text.data(), &size);
    if (status == ERROR_MORE_DATA)
      text.resize(std::max<std::size_t>(size / sizeof(wchar_t) + 1, text.size() * 2));
  }
  if (MeansMissing(status) || status == ERROR_UNSUPPORTED_TYPE) return std::nullopt;
  if (status != ERROR_SUCCESS) throw RegistryError(key, status);
  text.resize(std::min(text.find(L'\0'), text.size()));
  return text.empty() ? std::nullopt : std::optional(std::move(text));
}

std::vector<std::wstring> WindowsRegistry::SubkeyNames(RegistryRoot root, const std::wstring& key) const {
  std::vector<std::wstring> names;
  const UniqueRegistryKey opened = Open(root, key);
  if (!opened) return names;
  // The longest name that a key can have, and its terminator.
  wchar_t name[256];
  for (DWORD index = 0;; ++index) {
    DWORD length = static_cast<DWORD>(std::size(name));
    const LSTATUS status =
        RegEnumKeyExW(opened.Get(), index, name, &length, nullptr, nullptr, nullptr, nullptr);
    if (status == ERROR_NO_MORE_ITEMS) break;
    if (status != ERROR_SUCCESS) throw RegistryError(key, status);
    names.emplace_back(name, length);
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace ostrel::helper
