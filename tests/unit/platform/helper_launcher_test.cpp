#include "userhelper/helper_launcher.h"

#include "user_helper_test.h"
#include "userhelper/random_hex_id.h"

namespace ostrel::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ARandomIdentifier : public UserHelperTest {
 protected:
  static std::wstring Generate() { return Returned("GenerateRandomHexId", GenerateRandomHexId()); }
};

TEST_F(ARandomIdentifier, IsMadeOf32RandomBytes) {
  EXPECT_EQ(Generate(), std::wstring(32, L'1'));
  EXPECT_EQ(Generate(), std::wstring(32, L'2'));
  EXPECT_EQ(Calls(), RANDOM_ID + RANDOM_ID);
}

TEST_F(ARandomIdentifier, WritesEachByteInLowerCaseWithoutALeadingZero) {
  session_.randomBytes = {0x05, 0x00, 0x0A, 0xFF, 0x10, 0xAB};
  EXPECT_EQ(Generate(), L"50aff10ab" + std::wstring(26, L'1'));
}

TEST_F(ARandomIdentifier, HasAtMost64Digits) {
  session_.randomBytes = std::vector<std::uint8_t>(32, 0xFE);
  std::wstring expected;
  for (int i = 0; i < 32; ++i) expected += L"fe";
  EXPECT_EQ(Generate(), expected);
}

TEST_F(ARandomIdentifier, IsEmptyWhenMemoryIsShort) {
  session_.Fail("HeapAlloc", 8);
  EXPECT_EQ(Generate(), L"");
  EXPECT_THAT(Calls(), ElementsAre("HeapAlloc(32)", "log 3 memory allocation failed"));
}

TEST_F(ARandomIdentifier, IsEmptyWithoutRandomNumbers) {
  session_.Fail("BCryptGenRandom", 0xC0000008);
  EXPECT_EQ(Generate(), L"");
  EXPECT_EQ(Calls(), RANDOM_ID + Lines({"log 3 Error 0xc0000008 returned by BCryptGenRandom"}));
}

TEST_F(ARandomIdentifier, TakesAStatusThatIsNotNegativeForASuccess) {
  session_.Fail("BCryptGenRandom", 0x40000000);
  // Of bytes that nobody has filled.
  EXPECT_GE(GenerateRandomHexId().size(), 32U);
  CameTo("GenerateRandomHexId: an identifier");
  EXPECT_EQ(Calls(), RANDOM_ID);
}

class TheActiveSession : public UserHelperTest {
 protected:
  static ULong32 Get() { return Returned("GetActiveSessionId", GetActiveSessionId()); }
};

TEST_F(TheActiveSession, IsTheFirstActiveOne) {
  session_.sessions = {{0, WTSDisconnected}, {3, WTSConnected}, {2, WTSActive}, {1, WTSActive}};
  EXPECT_EQ(Get(), 2U);
  EXPECT_EQ(Calls(), ASK_SESSIONS);
}

TEST_F(TheActiveSession, IsNoneWhenNoneIsActive) {
  session_.sessions = {{1, WTSDisconnected}, {2, WTSIdle}};
  EXPECT_EQ(Get(), 0U);
  session_.sessions.clear();
  EXPECT_EQ(Get(), 0U);
  EXPECT_EQ(Calls(), ASK_SESSIONS + ASK_SESSIONS);
}

// The walk ends at the first active session even if it is that of the services.
TEST_F(TheActiveSession, IsNoneWhenTheServicesSessionIsTheFirstActiveOne) {
  session_.sessions = {{0, WTSActive}, {1, WTSActive}};
  EXPECT_EQ(Get(), 0U);
}

TEST_F(TheActiveSession, IsNoneWhenTheyCannotBeListed) {
  session_.Fail("WTSEnumerateSessionsW", 5);
  EXPECT_EQ(Get(), 0U);
  EXPECT_THAT(Calls(), ElementsAre("WTSEnumerateSessionsW(here, 0, version 1)"));
}

class SpawningAHelper : public UserHelperTest {
 protected:
  ULong32 Spawn(const wchar_t* command = L"command", const wchar_t* channel = L"channel") {
    const ULong32 id = SpawnUserHelper(command, channel, status_);
    CameTo("SpawnUserHelper: " + std::to_string(id) + ", status " + Narrow(status_));
    return id;
  }

  std::wstring status_ = L"BEFORE";
};

TEST_F(SpawningAHelper, FromAServiceStartsItAsTheUser) {
  EXPECT_EQ(Spawn(), 4711U);
  EXPECT_EQ(status_, L"BEFORE");
  EXPECT_EQ(Calls(), SpawnedAsUser("command channel"));
}

TEST_F(SpawningAHelper, FromAnApplicationStartsItAsItselfWithoutAnEnvironment) {
  session_.Fail("WTSQueryUserToken", 1314);
  EXPECT_EQ(Spawn(), 4711U);
  EXPECT_EQ(status_, L"BEFORE");
  EXPECT_EQ(
      Calls(),
      ASK_SESSIONS + Lines({"WTSQueryUserToken(1)",
                            "CreateProcessW(OstrelUserHelper.exe, [command channel], 0x8000420, in null, on "
                            "winsta0\\default, with null)",
                            "log 7 Created Ostrel user proc successfully when running as an application.",
                            "CloseHandle(helper thread)", "CloseHandle(helper)"}));
}

TEST_F(SpawningAHelper, NeedsACommandIdentifier) {
  FailureLedger::OfThisProgram().FailedOtherwise("Command identifier", "empty");
  EXPECT_EQ(Spawn(L"", L""), 0U);
  EXPECT_EQ(status_, L"INVALID_COMMANDID");
  EXPECT_THAT(Calls(), ElementsAre("log 3 invalid sub-process commandId"));
}

TEST_F(SpawningAHelper, NeedsAChannelName) {
  FailureLedger::OfThisProgram().FailedOtherwise("Channel name", "empty");
  EXPECT_EQ(Spawn(L"command", L""), 0U);
  EXPECT_EQ(status_, L"INVALID_CHANNELNAME");
  EXPECT_THAT(Calls(), ElementsAre("log 3 invalid channel name"));
}

TEST_F(SpawningAHelper, NeedsAUser) {
  FailureLedger::OfThisProgram().Concerns("WTSEnumerateSessionsW");
  session_.sessions = {{0, WTSActive}};
  EXPECT_EQ(Spawn(), 0U);
  EXPECT_EQ(status_, L"NO_LOGGEDIN_USER");
  EXPECT_EQ(Calls(), ASK_SESSIONS + Lines({"log 6 No one logged in"}));
}

TEST_F(SpawningAHelper, FromAServiceNeedsAnEnvironment) {
  session_.Fail("CreateEnvironmentBlock", 8);
  EXPECT_EQ(Spawn(), 0U);
  EXPECT_EQ(status_, L"NO_ENV_CREATED");
  EXPECT_EQ(Calls(),
            ASK_SESSIONS + Lines({"WTSQueryUserToken(1)", "CreateEnvironmentBlock(user token, inherited)",
                                  "log 3 No environment could be created.", "CloseHandle(user token)"}));
}

TEST_F(SpawningAHelper, FromAServiceReleasesEverythingWhenTheProcessCannotBeCreated) {
  session_.Fail("CreateProcessAsUserW", 2);
  EXPECT_EQ(Spawn(), 0U);
  EXPECT_EQ(status_, L"PROCCREATE_FAILURE");
  Lines expected = SpawnedAsUser("command channel");
  expected.resize(expected.size() - 3);
  EXPECT_EQ(Calls(), expected + Lines({"log 3 Could not create process when running as a service"}));
}

TEST_F(SpawningAHelper, FromAnApplicationSaysWhyTheProcessCannotBeCreated) {
  session_.Fail("WTSQueryUserToken", 1314);
  session_.Fail("CreateProcessW", 2);
  EXPECT_EQ(Spawn(), 0U);
  EXPECT_EQ(status_, L"PROCCREATE_FAILURE");
  EXPECT_THAT(Logs(), ElementsAre("log 3 couldn't create proc as non service (lastError=2)"));
}

}  // namespace

}  // namespace ostrel::test
