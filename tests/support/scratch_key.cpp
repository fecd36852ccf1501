#include "support/scratch_key.h"

#include <stdexcept>
#include <utility>

namespace ostrel::test {

namespace {

// In every key that a test has made, also one that crashed.
constexpr wchar_t MARK[] = L"OstrelTest";

bool HasKey(const std::wstring& path) {
  HKEY key = nullptr;
  if (RegOpenKeyExW(HKEY_CURRENT_USER, path.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) return false;
  RegCloseKey(key);
  return true;
}

bool IsMarked(const std::wstring& path) {
  return RegGetValueW(HKEY_CURRENT_USER, path.c_str(), MARK, RRF_RT_ANY, nullptr, nullptr, nullptr) ==
         ERROR_SUCCESS;
}

}  // namespace

ScratchKey::ScratchKey(std::wstring path) : path_(std::move(path)) {
  if (HasKey(path_) && !IsMarked(path_)) throw std::runtime_error("a registry key is somebody's own");
  RegDeleteTreeW(HKEY_CURRENT_USER, path_.c_str());
  Set(L"", MARK, L"");
}

ScratchKey::~ScratchKey() {
  RegDeleteTreeW(HKEY_CURRENT_USER, path_.c_str());
}

void ScratchKey::Set(const std::wstring& subkey, const std::wstring& value, const std::wstring& text) {
  const std::wstring path = subkey.empty() ? path_ : path_ + L"\\" + subkey;
  const LSTATUS status = RegSetKeyValueW(HKEY_CURRENT_USER, path.c_str(), value.c_str(), REG_SZ, text.c_str(),
                                         static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
  if (status != ERROR_SUCCESS) throw std::runtime_error("a registry value cannot be written");
}

}  // namespace ostrel::test
