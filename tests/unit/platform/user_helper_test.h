#ifndef OSTREL_TESTS_UNIT_PLATFORM_USER_HELPER_TEST_H
#define OSTREL_TESTS_UNIT_PLATFORM_USER_HELPER_TEST_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "log/log.h"
#include "support/failure_ledger.h"
#include "support/scripted_user_session.h"

namespace ostrel::test {

// What the library does to reach the user's session, with a user logged on and a helper that comes up at
// once. The library runs as a service.
class UserHelperTest : public ::testing::Test {
 protected:
  UserHelperTest() {
    SetLogSink(&Transcript::RecordLog, LOG_DETAIL);
    session_.LogOn();
  }
  ~UserHelperTest() override { EXPECT_THAT(session_.OpenHandles(), ::testing::IsEmpty()); }

  Lines Calls() const { return transcript_.OfThisThread(); }
  Lines Logs() const { return transcript_.Logs(); }

  Transcript transcript_;
  ScriptedUserSession session_{GetModuleHandleW(nullptr),
                               [this](std::string line) { transcript_.Add(std::move(line)); }};
};

inline Lines operator+(Lines left, const Lines& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

// The n-th identifier of a test, as the transcript shows it.
inline std::string Id(unsigned n) {
  return Narrow(ScriptedUserSession::Identifier(n));
}

inline const Lines RANDOM_ID = {"HeapAlloc(32)", "BCryptGenRandom(null, 32, 0x2)"};
inline const Lines ASK_SESSIONS = {"WTSEnumerateSessionsW(here, 0, version 1)",
                                   "WTSFreeMemory(session list)"};

// A service starts a helper for this command line.
inline Lines SpawnedAsUser(const std::string& commandLine) {
  return ASK_SESSIONS +
         Lines({"WTSQueryUserToken(1)", "CreateEnvironmentBlock(user token, inherited)",
                "CreateProcessAsUserW(user token, nlib\\OstrelUserHelper.exe, [" + commandLine +
                    "], 0x8000420, in null, on winsta0\\default, with environment)",
                "DestroyEnvironmentBlock(environment)", "CloseHandle(user token)",
                "log 7 Created Ostrel user proc successfully.", "CloseHandle(helper thread)",
                "CloseHandle(helper)"});
}

}  // namespace ostrel::test

#endif
