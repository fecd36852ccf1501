#include "filter/cache_hooks.h"

#include "platform_test.h"

namespace ostrel::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string OPEN = "OpenProcessToken(null, 0x8)";
const std::string ASK_SIZE = "GetTokenInformation(token, 1, 0)";
const std::string ALLOCATE = "HeapAlloc(zeroed, 104)";
const std::string ASK_USER = "GetTokenInformation(token, 1, 104)";
const std::string LOOK_UP = "LookupAccountSidW(null, 512, one length)";
const std::string FREE = "HeapFree()";
const std::string CLOSE = "CloseHandle(token)";

class UserOfAProcess : public PlatformTest {
 protected:
  ~UserOfAProcess() override { EXPECT_THAT(system_.OpenHandles(), IsEmpty()); }

  bool Look() { return Returned("The look-up of the user", GetUserOfProcess(nullptr, user_) != 0); }

  std::wstring user_ = L"before";
};

TEST_F(UserOfAProcess, IsTheAccountNameInItsToken) {
  EXPECT_TRUE(Look());
  EXPECT_EQ(user_, L"ann");
  EXPECT_THAT(Calls(), ElementsAre(OPEN, ASK_SIZE, ALLOCATE, ASK_USER, LOOK_UP, FREE, CLOSE));
}

TEST_F(UserOfAProcess, IsUnknownWhenTheTokenCannotBeOpened) {
  system_.Fail("OpenProcessToken", 5);
  EXPECT_FALSE(Look());
  EXPECT_EQ(user_, L"before");
  EXPECT_THAT(Calls(), ElementsAre(OPEN, "log 3 Could not open process token. 5"));
}

TEST_F(UserOfAProcess, IsUnknownWhenTheSizeCannotBeLearned) {
  system_.Fail(ASK_SIZE, 6);
  EXPECT_FALSE(Look());
  EXPECT_EQ(user_, L"before");
  EXPECT_THAT(Calls(), ElementsAre(OPEN, ASK_SIZE, "log 3 Could not get token information. 6", CLOSE));
}

TEST_F(UserOfAProcess, IsUnknownWhenMemoryIsShort) {
  system_.Fail("HeapAlloc", 8);
  EXPECT_FALSE(Look());
  EXPECT_EQ(user_, L"before");
  EXPECT_THAT(Calls(),
              ElementsAre(OPEN, ASK_SIZE, ALLOCATE, "log 3 Could not allocate token memory.", CLOSE));
}

TEST_F(UserOfAProcess, IsUnknownWhenTheTokenCannotBeRead) {
  system_.Fail(ASK_USER, 998);
  EXPECT_FALSE(Look());
  EXPECT_EQ(user_, L"before");
  EXPECT_THAT(Calls(),
              ElementsAre(OPEN, ASK_SIZE, ALLOCATE, ASK_USER,
                          "log 3 Could not get correctly sized token information. 998", FREE, CLOSE));
}

// What the failed look-up left in the account buffer is handed over all the same.
TEST_F(UserOfAProcess, IsCopiedEvenWhenTheLookUpFails) {
  system_.Fail("LookupAccountSidW", 122);
  EXPECT_FALSE(Look());
  EXPECT_EQ(user_, L"ann");
  EXPECT_THAT(Calls(), ElementsAre(OPEN, ASK_SIZE, ALLOCATE, ASK_USER, LOOK_UP,
                                   "log 3 Could not get account info from SID. 122", FREE, CLOSE));
}

// So that what the stack held before is not mistaken for a name.
void LeaveTracesOnTheStack() {
  volatile wchar_t traces[8192];
  for (volatile wchar_t& trace : traces) trace = L'#';
}

TEST_F(UserOfAProcess, IsEmptyWhenTheLookUpFailsAndWritesNothing) {
  system_.account.clear();
  system_.Fail("LookupAccountSidW", 1332);
  LeaveTracesOnTheStack();
  EXPECT_FALSE(Look());
  EXPECT_EQ(user_, L"");
}

class DirectoryHook : public PlatformTest {};

TEST_F(DirectoryHook, FollowsTheShellsAnswer) {
  system_.directories = {L"C:\\folder"};
  EXPECT_EQ(IsDirectory(L"C:\\folder"), 1);
  EXPECT_EQ(IsDirectory(L"C:\\file"), 0);
  EXPECT_THAT(Calls(), ElementsAre("PathIsDirectoryW(C:\\folder)", "PathIsDirectoryW(C:\\file)"));
}

}  // namespace

}  // namespace ostrel::test
