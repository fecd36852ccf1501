#ifndef OSTREL_TESTS_E2E_SESSION_SETTING_H
#define OSTREL_TESTS_E2E_SESSION_SETTING_H

#include <windows.h>

namespace ostrel::test {

// What the lab's terminal services library says in the programs that are started meanwhile.
class SessionSetting {
 public:
  explicit SessionSetting(const wchar_t* setting) { SetEnvironmentVariableW(NAME, setting); }
  SessionSetting(const SessionSetting&) = delete;
  SessionSetting& operator=(const SessionSetting&) = delete;
  ~SessionSetting() { SetEnvironmentVariableW(NAME, nullptr); }

 private:
  static constexpr const wchar_t* NAME = L"OSTREL_LAB_SESSION";
};

}  // namespace ostrel::test

#endif
