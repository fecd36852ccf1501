#include "support/internet_settings.h"

#include <gtest/gtest.h>

namespace ostrel::test {

namespace {

constexpr wchar_t CONNECTIONS[] =
    L"Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings\\Connections";
constexpr wchar_t SETTINGS[] = L"DefaultConnectionSettings";

}  // namespace

InternetSettings::InternetSettings() {
  EXPECT_EQ(
      RegCreateKeyExW(HKEY_CURRENT_USER, CONNECTIONS, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key_, nullptr),
      ERROR_SUCCESS);
  DWORD size = 0;
  if (RegQueryValueExW(key_, SETTINGS, nullptr, nullptr, nullptr, &size) != ERROR_SUCCESS) return;
  before_.emplace(size);
  RegQueryValueExW(key_, SETTINGS, nullptr, nullptr, before_->data(), &size);
}

InternetSettings::~InternetSettings() {
  if (before_) {
    Write(*before_);
  } else {
    RegDeleteValueW(key_, SETTINGS);
  }
  RegCloseKey(key_);
}

void InternetSettings::Set(std::uint8_t inUse, const std::string& proxy, const std::string& scriptUrl) {
  std::vector<BYTE> settings{0x46, 0, 0, 0, 1, 0, 0, 0, inUse, 0, 0, 0};
  for (const std::string& text : {proxy, std::string(), scriptUrl}) {
    settings.insert(settings.end(), {static_cast<BYTE>(text.size()), 0, 0, 0});
    settings.insert(settings.end(), text.begin(), text.end());
  }
  settings.resize(settings.size() + 32);
  Write(settings);
}

void InternetSettings::Write(const std::vector<BYTE>& settings) {
  EXPECT_EQ(
      RegSetValueExW(key_, SETTINGS, 0, REG_BINARY, settings.data(), static_cast<DWORD>(settings.size())),
      ERROR_SUCCESS);
}

}  // namespace ostrel::test
