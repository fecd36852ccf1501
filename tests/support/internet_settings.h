#ifndef OSTREL_TESTS_SUPPORT_INTERNET_SETTINGS_H
#define OSTREL_TESTS_SUPPORT_INTERNET_SETTINGS_H

#include <windows.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ostrel::test {

// What the settings say is in use, and in which order their texts follow.
enum SettingsInUse : std::uint8_t { NO_PROXY = 1, FIXED_PROXY = 2, PROXY_SCRIPT = 4 };

// The Internet settings of this user, put back at the end.
class InternetSettings {
 public:
  InternetSettings();
  InternetSettings(const InternetSettings&) = delete;
  InternetSettings& operator=(const InternetSettings&) = delete;
  ~InternetSettings();

  void Set(std::uint8_t inUse, const std::string& proxy, const std::string& scriptUrl);

 private:
  void Write(const std::vector<BYTE>& settings);

  HKEY key_ = nullptr;
  std::optional<std::vector<BYTE>> before_;
};

}  // namespace ostrel::test

#endif
