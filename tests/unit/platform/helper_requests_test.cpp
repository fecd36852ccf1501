#include "userhelper/helper_requests.h"

#include <new>

#include "filter/cache_hooks.h"
#include "user_helper_test.h"
#include "userhelper/helper_channel.h"
#include "userhelper/proc_util_exception.h"
#include "util/ostrel_filter_lib_util.h"

namespace ostrel::test {

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string SPAWN_FAILED = "log 3 Could not successfully spawn a sub-process";

std::string Pipe(unsigned channel) {
  return "\\\\.\\pipe\\OstrelUserHelper\\" + Id(channel);
}

Lines Wait(unsigned channel, int attempts = 1) {
  Lines lines;
  for (int i = 0; i < attempts; ++i) {
    lines = std::move(lines) + Lines({"WaitNamedPipeW(" + Pipe(channel) + ", 0)", "Sleep(50)"});
  }
  return lines;
}

TEST(TheExceptionOfTheUserHelper, SaysWhatItIs) {
  EXPECT_STREQ(ProcUtilException().what(), "A ProcUtil exception occurred");
}

void (*originalFree)(void*) = nullptr;

class ConnectingToAHelper : public UserHelperTest {
 protected:
  std::wstring Connect(const std::wstring& commandId = L"command") {
    try {
      return Returned("ConnectToUserHelper", ConnectToUserHelper(commandId, L"response", status_));
    } catch (const ProcUtilException&) {
      CameTo("ConnectToUserHelper: throws, status " + Narrow(status_));
      throw;
    }
  }

  std::wstring status_ = L"BEFORE";
};

TEST_F(ConnectingToAHelper, LaunchesItAndWaitsForItsPipe) {
  EXPECT_EQ(Connect(), L"\\\\.\\pipe\\OstrelUserHelper\\" + ScriptedUserSession::Identifier(1));
  EXPECT_EQ(status_, L"BEFORE");
  EXPECT_EQ(Calls(), RANDOM_ID + SpawnedAsUser("command " + Id(1)) + Wait(1));
}

TEST_F(ConnectingToAHelper, SucceedsWhenThePipeAppearsAtThe39thAttempt) {
  session_.pipeAppearsAtAttempt = 39;
  EXPECT_NO_THROW(Connect());
  EXPECT_EQ(status_, L"BEFORE");
  EXPECT_EQ(Calls(), RANDOM_ID + SpawnedAsUser("command " + Id(1)) + Wait(1, 39));
}

TEST_F(ConnectingToAHelper, FailsWhenThePipeAppearsAtThe40thAttempt) {
  session_.pipeAppearsAtAttempt = 40;
  EXPECT_THROW(Connect(), ProcUtilException);
  EXPECT_EQ(status_, L"PIPE_NOT_AVAILABLE");
  EXPECT_EQ(Calls(), RANDOM_ID + SpawnedAsUser("command " + Id(1)) + Wait(1, 40) +
                         Lines({"log 3 Could not get information. Remote pipe not available"}));
}

TEST_F(ConnectingToAHelper, FailsWhenThePipeNeverAppears) {
  session_.Fail("WaitNamedPipeW", 2);
  EXPECT_THROW(Connect(), ProcUtilException);
  EXPECT_EQ(status_, L"PIPE_NOT_AVAILABLE");
  EXPECT_EQ(Calls(), RANDOM_ID + SpawnedAsUser("command " + Id(1)) + Wait(1, 40) +
                         Lines({"log 3 Could not get information. Remote pipe not available"}));
}

TEST_F(ConnectingToAHelper, FailsWithoutACommandIdentifier) {
  EXPECT_THROW(Connect(L""), ProcUtilException);
  EXPECT_EQ(status_, L"INVALID_COMMANDID");
  EXPECT_EQ(Calls(), RANDOM_ID + Lines({"log 3 invalid sub-process commandId", SPAWN_FAILED}));
}

TEST_F(ConnectingToAHelper, FailsWithoutAChannelName) {
  session_.Fail("BCryptGenRandom", 0xC0000001);
  EXPECT_THROW(Connect(), ProcUtilException);
  EXPECT_EQ(status_, L"INVALID_CHANNELNAME");
  EXPECT_EQ(Calls(), RANDOM_ID + Lines({"log 3 Error 0xc0000001 returned by BCryptGenRandom",
                                        "log 3 invalid channel name", SPAWN_FAILED}));
}

TEST_F(ConnectingToAHelper, FailsWithoutAUser) {
  FailureLedger::OfThisProgram().Concerns("WTSEnumerateSessionsW");
  session_.sessions.clear();
  EXPECT_THROW(Connect(), ProcUtilException);
  EXPECT_EQ(status_, L"NO_LOGGEDIN_USER");
  EXPECT_EQ(Calls(), RANDOM_ID + ASK_SESSIONS + Lines({"log 6 No one logged in", SPAWN_FAILED}));
}

TEST_F(ConnectingToAHelper, FailsWithoutAnEnvironmentForTheUser) {
  session_.Fail("CreateEnvironmentBlock", 8);
  EXPECT_THROW(Connect(), ProcUtilException);
  EXPECT_EQ(status_, L"NO_ENV_CREATED");
  EXPECT_THAT(Logs(), ElementsAre("log 3 No environment could be created.", SPAWN_FAILED));
}

TEST_F(ConnectingToAHelper, FailsWhenAServiceCannotCreateTheProcess) {
  session_.Fail("CreateProcessAsUserW", 2);
  EXPECT_THROW(Connect(), ProcUtilException);
  EXPECT_EQ(status_, L"PROCCREATE_FAILURE");
  EXPECT_THAT(Logs(), ElementsAre("log 3 Could not create process when running as a service", SPAWN_FAILED));
}

TEST_F(ConnectingToAHelper, FailsWhenAnApplicationCannotCreateTheProcess) {
  session_.Fail("WTSQueryUserToken", 1314);
  session_.Fail("CreateProcessW", 740);
  EXPECT_THROW(Connect(), ProcUtilException);
  EXPECT_EQ(status_, L"PROCCREATE_FAILURE");
  EXPECT_THAT(Logs(), ElementsAre("log 3 couldn't create proc as non service (lastError=740)", SPAWN_FAILED));
}

class AnExchange : public UserHelperTest {
 protected:
  bool Ask() { return Exchange(L"pipe", std::wstring(1000, L'r'), {2048, 2000}, reply_, error_); }

  std::wstring reply_ = L"BEFORE";
  ULong32 error_ = 77;
};

TEST_F(AnExchange, GivesTheReplyUpToItsFirstZero) {
  session_.answer = [](const std::wstring&) { return std::wstring(L"ab\0cd", 5); };
  EXPECT_TRUE(Ask());
  EXPECT_EQ(reply_, L"ab");
  EXPECT_EQ(error_, 77U);
}

// Freeing what the exchange took may change the last error.
TEST_F(AnExchange, KeepsTheCodeOfItsFailureBeforeItFreesAnything) {
  const auto freeAndForget = [](void* block) {
    SetLastError(ERROR_SUCCESS);
    originalFree(block);
  };
  const auto fail = [](const wchar_t*, void*, DWORD, void*, DWORD, DWORD*, DWORD) WINAPI -> BOOL {
    SetLastError(ERROR_SEM_TIMEOUT);
    return FALSE;
  };
  bool isAnswered = true;
  {
    const ImportPatch call(GetModuleHandleW(nullptr), "CallNamedPipeW",
                           reinterpret_cast<void*>(static_cast<decltype(&::CallNamedPipeW)>(fail)));
    const ImportPatch patch(GetModuleHandleW(nullptr), "free",
                            reinterpret_cast<void*>(static_cast<void (*)(void*)>(freeAndForget)));
    originalFree = reinterpret_cast<void (*)(void*)>(patch.Original());
    isAnswered = Ask();
  }
  EXPECT_FALSE(isAnswered);
  EXPECT_EQ(error_, DWORD{ERROR_SEM_TIMEOUT});
  EXPECT_EQ(reply_, L"BEFORE");
}

const char* const MEMORY = "Memory";
const char* const NO_WORD = "no status word stands for it, so the status is empty, and nothing is logged";

// The first identifier of a request is the command's, the second the response's, the third the channel's.
class Requesting : public UserHelperTest {
 protected:
  Requesting() {
    session_.answer = [this](const std::wstring&) {
      if (!flaw_.empty()) FailureLedger::OfThisProgram().FailedOtherwise("Answer of the user helper", flaw_);
      return reply_;
    };
  }
  ~Requesting() override {
    OstrelFilterLibUtil::DeallocStringPointer(&result_);
    OstrelFilterLibUtil::DeallocStringPointer(&error_);
  }

  // The helper's answer, with the head that carries the response's identifier.
  void Answer(const std::wstring& type, const std::wstring& rest) {
    reply_ = type + L",32," + ScriptedUserSession::Identifier(2) + L"," + rest;
  }

  // While the answer is awaited.
  void RunOutOfMemory() {
    session_.answer = [](const std::wstring&) -> std::wstring {
      FailureLedger::OfThisProgram().FailedOtherwise(MEMORY, "short while an answer is taken");
      throw std::bad_alloc();
    };
  }

  // Everything up to the exchange.
  static Lines Connected() {
    return RANDOM_ID + RANDOM_ID + RANDOM_ID + SpawnedAsUser(Id(1) + " " + Id(3)) + Wait(3);
  }

  static std::string Request(const std::string& type, const std::string& rest) {
    return "1," + type + ",32," + Id(1) + ",32," + Id(2) + "," + rest;
  }

  static std::string Call(const std::string& request, const std::string& limits) {
    return "CallNamedPipeW(" + Pipe(3) + ", " + std::to_string(request.size() * 2) + ", " + limits + ")";
  }

  // Of the two functions that return strings.
  std::wstring Outcome() const {
    std::wstring outcome;
    if (result_ != nullptr) outcome += std::wstring(L"result: ") + result_;
    if (error_ != nullptr) outcome += std::wstring(L"error: ") + error_;
    return outcome;
  }

  std::wstring reply_;
  std::string flaw_;  // of the answer, for the ledger
  std::wstring status_ = L"BEFORE";
  wchar_t* result_ = nullptr;
  wchar_t* error_ = nullptr;
};

class RequestingTitles : public Requesting {
 protected:
  std::vector<std::wstring> Ask() {
    auto titles = GetTabTitlesFromUserHelper(4512, L"chrome.exe", status_);
    CameTo("GetTabTitlesFromUserHelper: " + std::to_string(titles.size()) + " titles, status " +
           Narrow(status_));
    return titles;
  }

  const std::string request_ = Request("0", "4512,10,chrome.exe");
};

TEST_F(RequestingTitles, TakesItsStepsInOrder) {
  Answer(L"0", L"0,2,4,Mail,5,Drive");
  EXPECT_THAT(Ask(), ElementsAre(L"Mail", L"Drive"));
  EXPECT_EQ(status_, L"TABTITLE_SUCCESS");
  EXPECT_EQ(Calls(),
            Connected() +
                Lines({"log 7 Sending tabtitle message " + request_, Call(request_, "2048, 2000"),
                       "log 7 Received buffer from user process when requesting titles: " + Narrow(reply_),
                       "log 6 Received application title information"}));
  EXPECT_EQ(Narrow(session_.Requests().at(0)), request_);
}

TEST_F(RequestingTitles, IsWhatTheCachesHookDoes) {
  Answer(L"0", L"0,1,4,Mail");
  EXPECT_THAT(GetTabTitlesOfProcess(4512, L"chrome.exe", status_), ElementsAre(L"Mail"));
  EXPECT_EQ(status_, L"TABTITLE_SUCCESS");
  EXPECT_EQ(Narrow(session_.Requests().at(0)), request_);
}

TEST_F(RequestingTitles, TellsTheCachesHookWhyThereIsNone) {
  session_.sessions.clear();
  EXPECT_THAT(GetTabTitlesOfProcess(4512, L"chrome.exe", status_), IsEmpty());
  EXPECT_EQ(status_, L"NO_LOGGEDIN_USER");
  session_.LogOn();
  session_.Fail("CallNamedPipeW", 121);
  EXPECT_THAT(GetTabTitlesOfProcess(4512, L"chrome.exe", status_), IsEmpty());
  EXPECT_EQ(status_, L"TABTITLE_CONNECT_PIPE_FAILED");
  CameTo("GetTabTitlesOfProcess: no titles, status " + Narrow(status_));
}

TEST_F(RequestingTitles, KeepsTheHelpersReasonWhicheverItIs) {
  Answer(L"0", L"3,0");
  EXPECT_THAT(GetTabTitlesOfProcess(4512, L"chrome.exe", status_), IsEmpty());
  EXPECT_EQ(status_, L"TABTITLE_NOAPP_FRAME_HOST");
}

TEST_F(RequestingTitles, IsEmptyWithoutAStatusWhenMemoryIsShort) {
  RunOutOfMemory();
  FailureLedger::OfThisProgram().Chosen(MEMORY, NO_WORD);
  EXPECT_THAT(Ask(), IsEmpty());
  EXPECT_EQ(status_, L"");
  EXPECT_THAT(transcript_.StartingWith("log 3"), IsEmpty());
}

TEST_F(RequestingTitles, ReportsEachReasonWhyThereIsNoHelper) {
  session_.Fail("CreateEnvironmentBlock", 8);
  EXPECT_THAT(Ask(), IsEmpty());
  EXPECT_EQ(status_, L"NO_ENV_CREATED");
  session_.Fail("WTSQueryUserToken", 1314);
  session_.Fail("CreateProcessW", 2);
  EXPECT_THAT(Ask(), IsEmpty());
  EXPECT_EQ(status_, L"PROCCREATE_FAILURE");
}

TEST_F(RequestingTitles, ReportsTheHelpersCode) {
  flaw_ = "code 4";
  Answer(L"0", L"4,0");
  EXPECT_THAT(Ask(), IsEmpty());
  EXPECT_EQ(status_, L"TABTITLE_MAIN_WINDOWS_NOT_FOUND");
  EXPECT_THAT(Logs(), Contains("log 3 Couldn't get tab titles. Error code: 4"));
}

TEST_F(RequestingTitles, ReportsThatThereIsNone) {
  flaw_ = "no title";
  Answer(L"0", L"0,0");
  EXPECT_THAT(Ask(), IsEmpty());
  EXPECT_EQ(status_, L"TABTITLE_NO_TITLE_FOUND");
  EXPECT_THAT(Logs(), Contains("log 6 No application title information found for chrome.exe"));
}

TEST_F(RequestingTitles, ReportsAnAnswerThatItCannotRead) {
  flaw_ = "unreadable";
  for (const std::wstring& reply : {std::wstring(), std::wstring(L"0,"), std::wstring(L"0,65,x")}) {
    reply_ = reply;
    EXPECT_THAT(Ask(), IsEmpty());
    EXPECT_EQ(status_, L"TABTITLE_DESERIALIZE_FAILURE");
  }
  EXPECT_THAT(Logs(), Contains("log 3 Couldn't deserialize tab title message").Times(3));
}

TEST_F(RequestingTitles, ReportsAnAnswerToSomebodyElse) {
  flaw_ = "of another identifier";
  reply_ = L"0,4,9f3a,0,0";
  EXPECT_THAT(Ask(), IsEmpty());
  EXPECT_EQ(status_, L"TABTITLE_COMMAND_ID");
}

TEST_F(RequestingTitles, ReportsAFailedPipe) {
  session_.Fail("CallNamedPipeW", 121);
  EXPECT_THAT(Ask(), IsEmpty());
  EXPECT_EQ(status_, L"TABTITLE_CONNECT_PIPE_FAILED");
  EXPECT_EQ(Calls(),
            Connected() + Lines({"log 7 Sending tabtitle message " + request_, Call(request_, "2048, 2000"),
                                 "log 3 Couldn't get tab titles from pipe: 121"}));
}

TEST_F(RequestingTitles, ReportsWhyThereIsNoHelper) {
  session_.sessions.clear();
  EXPECT_THAT(Ask(), IsEmpty());
  EXPECT_EQ(status_, L"NO_LOGGEDIN_USER");
}

TEST_F(RequestingTitles, ReportsAPipeThatDoesNotAppear) {
  session_.pipeAppearsAtAttempt = 41;
  EXPECT_THAT(Ask(), IsEmpty());
  EXPECT_EQ(status_, L"PIPE_NOT_AVAILABLE");
}

TEST_F(RequestingTitles, ReportsThatThereAreNoIdentifiers) {
  session_.Fail("BCryptGenRandom", 0xC0000001);
  EXPECT_THAT(Ask(), IsEmpty());
  EXPECT_EQ(status_, L"INVALID_COMMANDID");
}

// 1024 units without a zero among them are everything that the buffer holds.
TEST_F(RequestingTitles, ReadsAnAnswerThatFillsTheBufferUpToItsEnd) {
  Answer(L"0", L"0,1,1000,");
  reply_.resize(1024, L't');
  const std::size_t titleUnits = 1024 - reply_.find(L't');
  const auto titles = Ask();
  ASSERT_EQ(titles.size(), 1U);
  EXPECT_EQ(titles[0], std::wstring(titleUnits, L't') + std::wstring(1000 - titleUnits, L'\0'));
}

TEST_F(RequestingTitles, RefusesAnAnswerThatIsLargerThanTheBuffer) {
  Answer(L"0", L"0,1,1000,");
  reply_.resize(1025, L't');
  EXPECT_THAT(Ask(), IsEmpty());
  EXPECT_EQ(status_, L"TABTITLE_CONNECT_PIPE_FAILED");
  EXPECT_THAT(Logs(), Contains("log 3 Couldn't get tab titles from pipe: 234"));
}

TEST_F(RequestingTitles, ReadsAnAnswerUpToItsFirstZero) {
  Answer(L"0", L"0,0");
  reply_ += std::wstring(L"\0garbage", 8);
  EXPECT_THAT(Ask(), IsEmpty());
  EXPECT_EQ(status_, L"TABTITLE_NO_TITLE_FOUND");
}

class RequestingMetaData : public Requesting {
 protected:
  FileMetaData Ask() {
    const FileMetaData metaData = GetFileMetaDataFromUserHelper(L"\\\\s\\a,b", status_);
    CameTo("GetFileMetaDataFromUserHelper: status " + Narrow(status_));
    return metaData;
  }

  const std::string request_ = Request("1", "7,\\\\s\\a,b");
  const std::wstring digests_ = std::wstring(64, L'a') + L"," + std::wstring(32, L'b');
};

TEST_F(RequestingMetaData, TakesItsStepsInOrder) {
  Answer(L"1", L"0," + digests_ + L",4294967297,3,x,y");
  const FileMetaData metaData = Ask();
  EXPECT_EQ(metaData.sha256Hex, std::wstring(64, L'a'));
  EXPECT_EQ(metaData.md5Hex, std::wstring(32, L'b'));
  EXPECT_EQ(metaData.fileSize, 4294967297U);
  EXPECT_EQ(metaData.extraText, L"x,y");
  EXPECT_EQ(status_, L"METADATA_SUCCESS");
  EXPECT_EQ(Calls(),
            Connected() +
                Lines({"log 7 Sending metadata message " + request_, Call(request_, "10240, 10000"),
                       "log 7 Received buffer from user process when requesting metadata: " + Narrow(reply_),
                       "log 6 Received metadata"}));
  EXPECT_EQ(Narrow(session_.Requests().at(0)), request_);
}

TEST_F(RequestingMetaData, ReportsTheHelpersCode) {
  flaw_ = "code 18";
  Answer(L"1", L"18," + digests_ + L",10,0");
  EXPECT_EQ(Ask().fileSize, 0U);
  EXPECT_EQ(status_, L"METADATA_FILE_DOES_NOT_EXIST");
  EXPECT_THAT(Logs(), Contains("log 3 Couldn't get metadata. Error code: 18"));
}

// How an error is answered is the helper's choice.
TEST_F(RequestingMetaData, ReportsTheHelpersCodeWithEmptyDigestsAsWithZeros) {
  const std::wstring zeros = std::wstring(64, L'0') + L"," + std::wstring(32, L'0');
  unsigned identifier = 2;
  for (const std::wstring& digests : {std::wstring(L","), zeros}) {
    reply_ = L"1,32," + ScriptedUserSession::Identifier(identifier) + L",19," + digests + L",0,0";
    const FileMetaData metaData = Ask();
    EXPECT_EQ(status_, L"METADATA_CANNOT_READ_FILE");
    EXPECT_EQ(metaData.sha256Hex, L"");
    EXPECT_EQ(metaData.md5Hex, L"");
    // Of the next request; each makes three.
    identifier += 3;
  }
  EXPECT_THAT(Logs(), Contains("log 3 Couldn't get metadata. Error code: 19").Times(2));
}

// Digests have a fixed length, so an answer without them is one that is cut short.
TEST_F(RequestingMetaData, CannotReadASuccessWithoutDigests) {
  Answer(L"1", L"0,,,10,0");
  EXPECT_EQ(Ask().fileSize, 0U);
  EXPECT_EQ(status_, L"METADATA_DESERIALIZE_FAILURE");
}

TEST_F(RequestingMetaData, IsEmptyWithoutAStatusWhenMemoryIsShort) {
  RunOutOfMemory();
  FailureLedger::OfThisProgram().Chosen(MEMORY, NO_WORD);
  EXPECT_EQ(Ask().fileSize, 0U);
  EXPECT_EQ(status_, L"");
  EXPECT_THAT(transcript_.StartingWith("log 3"), IsEmpty());
}

TEST_F(RequestingMetaData, ReportsEachReasonWhyThereIsNoHelper) {
  session_.Fail("BCryptGenRandom", 0xC0000001);
  Ask();
  EXPECT_EQ(status_, L"INVALID_COMMANDID");
  session_.sessions.clear();
  session_.Succeed("BCryptGenRandom");
  Ask();
  EXPECT_EQ(status_, L"NO_LOGGEDIN_USER");
  session_.LogOn();
  session_.pipeAppearsAtAttempt = 41;
  Ask();
  EXPECT_EQ(status_, L"PIPE_NOT_AVAILABLE");
  session_.Fail("CreateEnvironmentBlock", 8);
  Ask();
  EXPECT_EQ(status_, L"NO_ENV_CREATED");
}

TEST_F(RequestingMetaData, ReportsAnAnswerThatItCannotRead) {
  flaw_ = "unreadable";
  Answer(L"1", L"0," + digests_ + L",10,9,short");
  EXPECT_EQ(Ask().fileSize, 0U);
  EXPECT_EQ(status_, L"METADATA_DESERIALIZE_FAILURE");
  EXPECT_THAT(Logs(), Contains("log 3 Couldn't deserialize metadata message"));
}

// Nothing to read is the number 0, which is the type of titles.
TEST_F(RequestingMetaData, TakesAnEmptyAnswerForOneToAnotherQuestion) {
  flaw_ = "empty";
  reply_.clear();
  EXPECT_EQ(Ask().fileSize, 0U);
  EXPECT_EQ(status_, L"METADATA_INCORRECT_MESSAGE_TYPE");
}

TEST_F(RequestingMetaData, ReportsAFailedPipe) {
  session_.Fail("CallNamedPipeW", 2);
  EXPECT_EQ(Ask().fileSize, 0U);
  EXPECT_EQ(status_, L"METADATA_CONNECT_PIPE_FAILED");
  EXPECT_EQ(Calls(),
            Connected() + Lines({"log 7 Sending metadata message " + request_, Call(request_, "10240, 10000"),
                                 "log 3 Couldn't get metadata from pipe: 2"}));
}

TEST_F(RequestingMetaData, ReportsWhyThereIsNoHelper) {
  session_.Fail("CreateProcessAsUserW", 2);
  EXPECT_EQ(Ask().fileSize, 0U);
  EXPECT_EQ(status_, L"PROCCREATE_FAILURE");
}

class RequestingTheProxyUrl : public Requesting {
 protected:
  std::wstring Ask() {
    GetAutoProxyConfigUrlFromUserHelper(&result_, &error_);
    return Returned("GetAutoProxyConfigUrlFromUserHelper", Outcome());
  }

  const std::string request_ = Request("2", "");
};

TEST_F(RequestingTheProxyUrl, TakesItsStepsInOrder) {
  Answer(L"2", L"0,8,http://a");
  EXPECT_EQ(Ask(), L"result: http://a");
  EXPECT_EQ(
      Calls(),
      Connected() +
          Lines({"log 7 PROXY:: Sending AutoProxyConfigUrl message " + request_, Call(request_, "4400, 2000"),
                 "log 7 PROXY:: Received buffer from user process when requesting AutoProxyConfigUrl: " +
                     Narrow(reply_)}));
  EXPECT_EQ(Narrow(session_.Requests().at(0)), request_);
}

TEST_F(RequestingTheProxyUrl, SetsNothingForAnEmptyUrl) {
  Answer(L"2", L"0,0,");
  EXPECT_EQ(Ask(), L"");
}

TEST_F(RequestingTheProxyUrl, ReturnsTheHelpersExplanation) {
  flaw_ = "code 26";
  Answer(L"2", L"26,3,why");
  EXPECT_EQ(Ask(), L"error: why");
}

TEST_F(RequestingTheProxyUrl, ReportsAnAnswerThatItCannotRead) {
  flaw_ = "unreadable";
  reply_ = L"2;%s";
  EXPECT_EQ(Ask(), L"error: PROXY:: Couldn't deserialize AutoProxyConfigUrl message: 2;%s");
}

TEST_F(RequestingTheProxyUrl, ReportsAFailedPipe) {
  session_.Fail("CallNamedPipeW", 121);
  EXPECT_EQ(Ask(), L"error: PROXY:: Couldn't get AutoProxyConfigUrl from pipe: 121");
}

TEST_F(RequestingTheProxyUrl, ReportsThatThereIsNoHelperAsAnException) {
  const std::wstring error =
      L"error: PROXY:: Exception occurred while attempting to get Windows auto proxy configuration url.";
  session_.sessions.clear();
  EXPECT_EQ(Ask(), error);
  OstrelFilterLibUtil::DeallocStringPointer(&error_);
  session_.LogOn();
  session_.pipeAppearsAtAttempt = 40;
  EXPECT_EQ(Ask(), error);
}

TEST_F(RequestingTheProxyUrl, ReportsThatMemoryIsShortAsAnException) {
  RunOutOfMemory();
  EXPECT_EQ(
      Ask(),
      L"error: PROXY:: Exception occurred while attempting to get Windows auto proxy configuration url.");
}

class RequestingACloudLogin : public Requesting {
 protected:
  std::wstring Ask() {
    GetCloudStorageProviderLoginFromUserHelper(L"OneDrive", L"C:\\Users\\ann", &result_, &error_);
    return Returned("GetCloudStorageProviderLoginFromUserHelper", Outcome());
  }

  const std::string request_ = Request("3", "8,OneDrive,12,C:\\Users\\ann");
};

TEST_F(RequestingACloudLogin, TakesItsStepsInOrder) {
  Answer(L"3", L"0,3,ann");
  EXPECT_EQ(Ask(), L"result: ann");
  EXPECT_EQ(Calls(),
            Connected() + Lines({"log 7 CLOUDLOGIN:: Sending cloud Login message " + request_ +
                                     " for provider: OneDrive",
                                 Call(request_, "4400, 2000"),
                                 "log 7 CLOUDLOGIN:: Received buffer from user process when requesting cloud "
                                 "Login: " +
                                     Narrow(reply_)}));
  EXPECT_EQ(Narrow(session_.Requests().at(0)), request_);
}

TEST_F(RequestingACloudLogin, SetsNothingForAnEmptyLogin) {
  Answer(L"3", L"0,-1,");
  EXPECT_EQ(Ask(), L"");
}

TEST_F(RequestingACloudLogin, ReturnsTheTextOfItsCode) {
  flaw_ = "code 8";
  Answer(L"3", L"8,3,own");
  EXPECT_EQ(Ask(), L"error: CLOUDLOGIN:: Incorrect CloudStorageProvider Type");
}

TEST_F(RequestingACloudLogin, ReturnsTheHelpersExplanation) {
  flaw_ = "code 17";
  Answer(L"3", L"17,3,own");
  EXPECT_EQ(Ask(), L"error: own");
}

TEST_F(RequestingACloudLogin, ReportsAnAnswerThatItCannotRead) {
  flaw_ = "unreadable";
  reply_ = L"3;%s";
  EXPECT_EQ(Ask(), L"error: CLOUDLOGIN:: Couldn't deserialize cloud Login message: 3;%s");
}

TEST_F(RequestingACloudLogin, ReportsAFailedPipe) {
  session_.Fail("CallNamedPipeW", 121);
  EXPECT_EQ(Ask(), L"error: CLOUDLOGIN:: Couldn't get cloud Login from pipe: 121");
}

TEST_F(RequestingACloudLogin, ReportsThatMemoryIsShortAsAnException) {
  RunOutOfMemory();
  EXPECT_EQ(Ask(), L"error: CLOUDLOGIN:: Exception occurred while attempting to get cloud Login.");
}

TEST_F(RequestingACloudLogin, ReportsThatThereIsNoHelperAsAnException) {
  session_.sessions.clear();
  EXPECT_EQ(Ask(), L"error: CLOUDLOGIN:: Exception occurred while attempting to get cloud Login.");
}

// One of the four requests, with what it comes to in words.
struct Request {
  const char* name;
  const wchar_t* type;
  std::wstring (*ask)();
  const char* withoutHelper;        // %s: the status word
  const char* afterUnreadableText;  // %s: the text
  const char* afterAnotherType;     // %s: the text
};

std::wstring AskForTitles() {
  std::wstring status = L"BEFORE";
  const auto titles = GetTabTitlesFromUserHelper(4512, L"chrome.exe", status);
  return std::to_wstring(titles.size()) + L" titles, status " + status;
}

std::wstring AskForMetaData() {
  std::wstring status = L"BEFORE";
  const FileMetaData metaData = GetFileMetaDataFromUserHelper(L"C:\\a", status);
  EXPECT_EQ(metaData.sha256Hex + metaData.md5Hex + metaData.extraText, L"");
  EXPECT_EQ(metaData.fileSize, 0U);
  return L"status " + status;
}

std::wstring Taken(const wchar_t* name, wchar_t* text) {
  if (text == nullptr) return {};
  const std::wstring taken = name + std::wstring(text);
  OstrelFilterLibUtil::DeallocStringPointer(&text);
  return taken;
}

std::wstring AskForProxyUrl() {
  wchar_t* result = nullptr;
  wchar_t* error = nullptr;
  GetAutoProxyConfigUrlFromUserHelper(&result, &error);
  return Taken(L"result: ", result) + Taken(L"error: ", error);
}

std::wstring AskForCloudLogin() {
  wchar_t* result = nullptr;
  wchar_t* error = nullptr;
  GetCloudStorageProviderLoginFromUserHelper(L"OneDrive", L"C:\\Users\\ann", &result, &error);
  return Taken(L"result: ", result) + Taken(L"error: ", error);
}

const Request REQUESTS[] = {
    {"GetTabTitlesFromUserHelper", L"0", &AskForTitles, "0 titles, status %s",
     "0 titles, status TABTITLE_DESERIALIZE_FAILURE", "0 titles, status TABTITLE_INCORRECT_MESSAGE_TYPE"},
    {"GetFileMetaDataFromUserHelper", L"1", &AskForMetaData, "status %s",
     "status METADATA_DESERIALIZE_FAILURE", "status METADATA_INCORRECT_MESSAGE_TYPE"},
    {"GetAutoProxyConfigUrlFromUserHelper", L"2", &AskForProxyUrl,
     "error: PROXY:: Exception occurred while attempting to get Windows auto proxy configuration url.",
     "error: PROXY:: Couldn't deserialize AutoProxyConfigUrl message: %s",
     "error: PROXY:: Couldn't deserialize AutoProxyConfigUrl message: %s"},
    {"GetCloudStorageProviderLoginFromUserHelper", L"3", &AskForCloudLogin,
     "error: CLOUDLOGIN:: Exception occurred while attempting to get cloud Login.",
     "error: CLOUDLOGIN:: Couldn't deserialize cloud Login message: %s",
     "error: CLOUDLOGIN:: Couldn't deserialize cloud Login message: %s"},
};

class AnyRequest : public UserHelperTest, public ::testing::WithParamInterface<Request> {
 protected:
  std::string AskIt() {
    const std::string outcome = Narrow(GetParam().ask());
    CameTo(std::string(GetParam().name) + ": " + outcome);
    return outcome;
  }

  static std::string With(std::string outcome, const std::string& word) {
    const std::size_t place = outcome.find("%s");
    return place == std::string::npos ? outcome : outcome.replace(place, 2, word);
  }
  static std::string WithoutHelper(const std::string& status) {
    return With(GetParam().withoutHelper, status);
  }
};

INSTANTIATE_TEST_SUITE_P(OfTheFour, AnyRequest, ::testing::ValuesIn(REQUESTS),
                         [](const auto& request) { return std::string(request.param.name); });

TEST_P(AnyRequest, StartsNoHelperWithoutMemoryForTheCommandIdentifier) {
  session_.Fail("HeapAlloc", 8, 1);
  EXPECT_EQ(AskIt(), WithoutHelper("INVALID_COMMANDID"));
  EXPECT_EQ(Calls(), Lines({"HeapAlloc(32)", "log 3 memory allocation failed"}) + RANDOM_ID + RANDOM_ID +
                         Lines({"log 3 invalid sub-process commandId", SPAWN_FAILED}));
}

TEST_P(AnyRequest, StartsNoHelperWithoutMemoryForTheChannelName) {
  session_.Fail("HeapAlloc", 8, 3);
  EXPECT_EQ(AskIt(), WithoutHelper("INVALID_CHANNELNAME"));
  EXPECT_EQ(Calls(), RANDOM_ID + RANDOM_ID +
                         Lines({"HeapAlloc(32)", "log 3 memory allocation failed",
                                "log 3 invalid channel name", SPAWN_FAILED}));
}

TEST_P(AnyRequest, StartsNoHelperWithoutRandomNumbersForTheChannelName) {
  session_.Fail("BCryptGenRandom", 0xC0000001, 3);
  EXPECT_EQ(AskIt(), WithoutHelper("INVALID_CHANNELNAME"));
  EXPECT_EQ(Calls(), RANDOM_ID + RANDOM_ID + RANDOM_ID +
                         Lines({"log 3 Error 0xc0000001 returned by BCryptGenRandom",
                                "log 3 invalid channel name", SPAWN_FAILED}));
}

// Nothing tells the helper's answer apart then, so none is taken, whatever identifier it carries.
TEST_P(AnyRequest, IsSentWithoutAResponseIdentifierAndTakesNoAnswer) {
  session_.Fail("BCryptGenRandom", 0xC0000001, 2);
  const std::wstring answer = std::wstring(GetParam().type) + L",0,,0,0,";
  session_.answer = [=](const std::wstring&) { return answer; };
  EXPECT_EQ(AskIt(), With(GetParam().afterUnreadableText, Narrow(answer)));
  ASSERT_EQ(session_.Requests().size(), 1U);
  EXPECT_TRUE(
      Narrow(session_.Requests()[0]).starts_with("1," + Narrow(GetParam().type) + ",32," + Id(1) + ",0,,"));
  EXPECT_THAT(Logs(), Contains("log 3 Error 0xc0000001 returned by BCryptGenRandom").Times(1));
}

TEST_P(AnyRequest, StartsNoHelperWhenTheSessionsCannotBeListed) {
  session_.Fail("WTSEnumerateSessionsW", 5);
  EXPECT_EQ(AskIt(), WithoutHelper("NO_LOGGEDIN_USER"));
  EXPECT_EQ(Calls(),
            RANDOM_ID + RANDOM_ID + RANDOM_ID +
                Lines({"WTSEnumerateSessionsW(here, 0, version 1)", "log 6 No one logged in", SPAWN_FAILED}));
}

TEST_P(AnyRequest, TakesNoAnswerOfAnotherType) {
  unsigned identifier = 2;
  for (const Request& other : REQUESTS) {
    if (other.type == GetParam().type) continue;
    const std::wstring answer =
        other.type + (L",32," + ScriptedUserSession::Identifier(identifier)) + L",0,0,";
    // Of the next request; each makes three.
    identifier += 3;
    session_.answer = [=](const std::wstring&) {
      FailureLedger::OfThisProgram().FailedOtherwise("Answer of the user helper", "of another type");
      return answer;
    };
    EXPECT_EQ(AskIt(), With(GetParam().afterAnotherType, Narrow(answer)));
  }
}

}  // namespace

}  // namespace ostrel::test
