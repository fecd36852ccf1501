#include "registry_key.h"

namespace ostrel::lab {

namespace {

void Require(LSTATUS status) {
  if (status != ERROR_SUCCESS) throw RegistryError{static_cast<DWORD>(status)};
}

HKEY CreateKey(HKEY parent, const wchar_t* name, RegistryKey::Kept kept) {
  HKEY key = nullptr;
  const DWORD options =
      kept == RegistryKey::Kept::UntilRestart ? REG_OPTION_VOLATILE : REG_OPTION_NON_VOLATILE;
  Require(RegCreateKeyExW(parent, name, 0, nullptr, options, KEY_ALL_ACCESS, nullptr, &key, nullptr));
  return key;
}

}  // namespace

RegistryKey RegistryKey::CreateForMachine(const wchar_t* path, Kept kept) {
  return RegistryKey(CreateKey(HKEY_LOCAL_MACHINE, path, kept));
}

RegistryKey RegistryKey::Create(const std::wstring& name, Kept kept) const {
  return RegistryKey(CreateKey(key_.Get(), name.c_str(), kept));
}

std::optional<RegistryKey> RegistryKey::Open(const std::wstring& name) const {
  HKEY key = nullptr;
  const LSTATUS status = RegOpenKeyExW(key_.Get(), name.c_str(), 0, KEY_ALL_ACCESS, &key);
  if (status == ERROR_FILE_NOT_FOUND) return std::nullopt;
  Require(status);
  return RegistryKey(key);
}

void RegistryKey::Delete(const std::wstring& name) const {
  const LSTATUS status = RegDeleteTreeW(key_.Get(), name.c_str());
  if (status != ERROR_FILE_NOT_FOUND) Require(status);
}

std::vector<std::wstring> RegistryKey::Names() const {
  constexpr DWORD LONGEST_NAME = 256;
  std::vector<std::wstring> names;
  for (;;) {
    wchar_t name[LONGEST_NAME];
    DWORD length = LONGEST_NAME;
    const LSTATUS status = RegEnumKeyExW(key_.Get(), static_cast<DWORD>(names.size()), name, &length, nullptr,
                                         nullptr, nullptr, nullptr);
    if (status == ERROR_NO_MORE_ITEMS) return names;
    Require(status);
    names.emplace_back(name, length);
  }
}

void RegistryKey::Set(const wchar_t* name, const std::wstring& text) const {
  const auto bytes = static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t));
  Require(RegSetValueExW(key_.Get(), name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()), bytes));
}

void RegistryKey::Set(const wchar_t* name, std::uint64_t number) const {
  Require(
      RegSetValueExW(key_.Get(), name, 0, REG_QWORD, reinterpret_cast<const BYTE*>(&number), sizeof(number)));
}

std::wstring RegistryKey::Text(const wchar_t* name) const {
  DWORD bytes = 0;
  LSTATUS status = RegGetValueW(key_.Get(), nullptr, name, RRF_RT_REG_SZ, nullptr, nullptr, &bytes);
  if (status == ERROR_FILE_NOT_FOUND) return {};
  Require(status);
  std::wstring text(bytes / sizeof(wchar_t), L'\0');
  Require(RegGetValueW(key_.Get(), nullptr, name, RRF_RT_REG_SZ, nullptr, text.data(), &bytes));
  text.resize(bytes / sizeof(wchar_t));
  while (!text.empty() && text.back() == L'\0') text.pop_back();
  return text;
}

std::uint64_t RegistryKey::Number(const wchar_t* name) const {
  std::uint64_t number = 0;
  DWORD bytes = sizeof(number);
  const LSTATUS status = RegGetValueW(key_.Get(), nullptr, name, RRF_RT_REG_QWORD, nullptr, &number, &bytes);
  if (status == ERROR_FILE_NOT_FOUND) return 0;
  Require(status);
  return number;
}

}  // namespace ostrel::lab
