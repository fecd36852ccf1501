#include "library_test.h"

namespace ostrel::test {

namespace {

using ::testing::ElementsAre;

using ::testing::IsEmpty;

EventMessage Event(std::uint64_t id, std::int32_t type, const std::u16string& fileName) {
  EventMessage message{};
  message.messageId = id;
  message.processId = 42;
  message.eventTime = 1000;
  message.eventType = type;
  message.streamFlag = 1;
  message.deviceSourceType = 2;
  std::copy(fileName.begin(), fileName.end(), message.fileName);
  message.readSize = 10;
  return message;
}

// The DLL with a user logged on and a helper that comes up at once.
class TheUserHelper : public LibraryTest {
 protected:
  TheUserHelper() { session_.LogOn(); }
  ~TheUserHelper() override {
    if (result_ != nullptr) library_.DeallocStringPointer(&result_);
    if (error_ != nullptr) library_.DeallocStringPointer(&error_);
  }

  // The helper's answer to the first request, with the head that carries its identifier.
  void Answer(const std::wstring& type, const std::wstring& rest) {
    session_.answer = [=](const std::wstring&) {
      return type + L",32," + ScriptedUserSession::Identifier(2) + L"," + rest;
    };
  }

  void AskForProxy() {
    library_.Find<decltype(&GetAutoProxyConfigUrlForSystem)>("GetAutoProxyConfigUrlForSystem")(&result_,
                                                                                               &error_);
  }

  void AskForLogin(const wchar_t* provider, const wchar_t* homeDirectory) {
    library_.Find<decltype(&GetCloudStorageProviderLoginForSystem)>("GetCloudStorageProviderLoginForSystem")(
        provider, homeDirectory, &result_, &error_);
  }

  wchar_t* result_ = nullptr;
  wchar_t* error_ = nullptr;
};

TEST_F(TheUserHelper, TellsTheProxyUrlWithoutALoadedDriver) {
  Answer(L"2", L"0,8,http://a");
  AskForProxy();
  EXPECT_STREQ(result_, L"http://a");
  EXPECT_EQ(error_, nullptr);
  EXPECT_THAT(session_.Requests(), ElementsAre(L"1,2,32," + ScriptedUserSession::Identifier(1) + L",32," +
                                               ScriptedUserSession::Identifier(2) + L","));
  EXPECT_THAT(session_.OpenHandles(), IsEmpty());
}

TEST_F(TheUserHelper, TellsTheCloudLoginOfTheTextsThatTheHostNames) {
  Answer(L"3", L"0,3,ann");
  AskForLogin(L"OneDrive", L"C:\\Users\\ann");
  EXPECT_STREQ(result_, L"ann");
  EXPECT_EQ(error_, nullptr);
  EXPECT_THAT(session_.Requests(),
              ElementsAre(L"1,3,32," + ScriptedUserSession::Identifier(1) + L",32," +
                          ScriptedUserSession::Identifier(2) + L",8,OneDrive,12,C:\\Users\\ann"));
}

TEST_F(TheUserHelper, TakesTextsThatAreNullForEmpty) {
  Answer(L"3", L"8,0,");
  AskForLogin(nullptr, nullptr);
  EXPECT_EQ(result_, nullptr);
  EXPECT_STREQ(error_, L"CLOUDLOGIN:: Incorrect CloudStorageProvider Type");
  ASSERT_EQ(session_.Requests().size(), 1U);
  EXPECT_TRUE(session_.Requests()[0].ends_with(L",0,,0,"));
}

TEST_F(TheUserHelper, IsNotAskedWithoutARoomForTheAnswer) {
  const auto proxy =
      library_.Find<decltype(&GetAutoProxyConfigUrlForSystem)>("GetAutoProxyConfigUrlForSystem");
  const auto login = library_.Find<decltype(&GetCloudStorageProviderLoginForSystem)>(
      "GetCloudStorageProviderLoginForSystem");
  proxy(nullptr, &error_);
  proxy(&result_, nullptr);
  login(L"OneDrive", L"C:\\", nullptr, &error_);
  login(L"OneDrive", L"C:\\", &result_, nullptr);
  EXPECT_EQ(result_, nullptr);
  EXPECT_EQ(error_, nullptr);
  EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(TheUserHelper, ThatCannotBeStartedIsAnErrorForTheHost) {
  session_.sessions.clear();
  AskForProxy();
  EXPECT_EQ(result_, nullptr);
  EXPECT_STREQ(error_,
               L"PROXY:: Exception occurred while attempting to get Windows auto proxy configuration url.");
  library_.DeallocStringPointer(&error_);
  error_ = nullptr;
  AskForLogin(L"OneDrive", L"C:\\");
  EXPECT_EQ(result_, nullptr);
  EXPECT_STREQ(error_, L"CLOUDLOGIN:: Exception occurred while attempting to get cloud Login.");
}

TEST_F(TheUserHelper, LeavesWhatIsNotSetAsTheHostLeftIt) {
  wchar_t untouched[] = L"untouched";
  Answer(L"2", L"0,0,");
  wchar_t* result = untouched;
  wchar_t* error = untouched;
  library_.Find<decltype(&GetAutoProxyConfigUrlForSystem)>("GetAutoProxyConfigUrlForSystem")(&result, &error);
  EXPECT_EQ(result, untouched);
  EXPECT_EQ(error, untouched);
}

// The driver holds a file operation until its message is acknowledged.
TEST_F(TheUserHelper, ThatHangsDoesNotDelayTheAcknowledgement) {
  session_.Hang();
  ASSERT_TRUE(Load());
  ASSERT_TRUE(system_.WaitUntilHandled());
  system_.Send(Event(7, 1, u"\\a.txt"));
  ASSERT_TRUE(system_.transcript.WaitFor("CallNamedPipeW("));
  EXPECT_THAT(system_.transcript.StartingWith("FilterReplyMessage("),
              ElementsAre("FilterReplyMessage(notification port, status 0, id 7, 16 bytes)"));
  session_.Release();
  EXPECT_TRUE(system_.WaitUntilHandled());
}

TEST_F(TheUserHelper, IsAskedForTitlesOnceForAFileAndAProcess) {
  ASSERT_TRUE(Load());
  ASSERT_TRUE(system_.WaitUntilHandled());
  system_.Send(Event(7, 1, u"\\a.txt"));
  system_.Send(Event(8, 1, u"\\a.txt"));
  ASSERT_TRUE(system_.WaitUntilHandled());
  const auto requests = session_.Requests();
  ASSERT_EQ(requests.size(), 1U);
  EXPECT_TRUE(requests[0].ends_with(L",42,34,\\Device\\HarddiskVolume3\\chrome.exe"));
}

TEST_F(TheUserHelper, IsNotAskedForTitlesOfCloudDriveEventsNorWhileCaptureIsOff) {
  ASSERT_TRUE(Load());
  ASSERT_TRUE(system_.WaitUntilHandled());
  library_.DisableTabTitles();
  system_.Send(Event(7, 1, u"\\a.txt"));
  system_.Send(Event(8, 4, u"\\b.txt"));
  ASSERT_TRUE(system_.WaitUntilHandled());
  EXPECT_THAT(session_.Requests(), IsEmpty());
  library_.EnableTabTitles();
  system_.Send(Event(9, 1, u"\\c.txt"));
  ASSERT_TRUE(system_.WaitUntilHandled());
  EXPECT_EQ(session_.Requests().size(), 1U);
}

TEST_F(TheUserHelper, LeavesNothingOpenAfterTitles) {
  ASSERT_TRUE(Load());
  ASSERT_TRUE(system_.WaitUntilHandled());
  Answer(L"0", L"0,1,4,Mail");
  system_.Send(Event(7, 1, u"\\a.txt"));
  ASSERT_TRUE(system_.WaitUntilHandled());
  EXPECT_THAT(session_.OpenHandles(), IsEmpty());
  EXPECT_THAT(system_.transcript.StartingWith("log 6 Received"),
              ElementsAre("log 6 Received application title information"));
}

}  // namespace

}  // namespace ostrel::test
