// A helper that dies, hangs, comes late or lies: what the library makes of it, and what it costs.

#include <windows.h>
// Needs windows.h before it.
#include <psapi.h>

#include <chrono>

#include "stand_in_helper.h"
#include "user_session.h"
#include "util/unique_handle.h"

namespace ostrel::test {

namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string STARTED = "log 7 Created Ostrel user proc successfully when running as an application.";
const std::string NO_PIPE = "log 3 Could not get information. Remote pipe not available";
const std::string NO_PROCESS = "log 3 Could not successfully spawn a sub-process";
const Answer NO_PROXY{
    std::nullopt, "PROXY:: Exception occurred while attempting to get Windows auto proxy configuration url."};
const Answer NO_LOGIN{std::nullopt, "CLOUDLOGIN:: Exception occurred while attempting to get cloud Login."};

const std::wstring SHA_256(64, L'a');
const std::wstring MD5(32, L'b');

// How long a call takes.
template <typename Call>
std::chrono::milliseconds Duration(Call call) {
  const auto start = std::chrono::steady_clock::now();
  call();
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
}

class AHelperThat : public UserSession {
 protected:
  AHelperThat() {
    GoTo(std::filesystem::path(ProgramDirectory()) / "stand_in");
    ResetEvent(over_.Get());
  }
  // It may wait for this.
  ~AHelperThat() override { EndRequest(); }

  void EndRequest() { SetEvent(over_.Get()); }

  void Behave(const wchar_t* behaviour, const std::wstring& reply = L"") {
    SetVariable(BEHAVIOUR_VARIABLE, behaviour);
    SetVariable(REPLY_VARIABLE, reply);
    SetVariable(UNITS_VARIABLE, L"");
  }
  void AnswerWith(const std::wstring& reply) { Behave(ANSWER, reply); }
  void AnswerFilledUp(const std::wstring& reply, std::size_t units) {
    AnswerWith(reply);
    SetVariable(UNITS_VARIABLE, std::to_wstring(units));
  }

  Answer AskForOneDrive() { return AskForLogin(L"OneDrive", L"C:\\Users\\ann"); }
  MetaData AskForAFile() { return AskForMetaData(L"M:\\minutes.docx"); }

 private:
  UniqueKernelHandle over_{CreateEventW(nullptr, TRUE, FALSE, OVER_EVENT)};
};

TEST_F(AHelperThat, EndsAtOnceHasNoPipe) {
  Behave(END_AT_ONCE);
  EXPECT_EQ(AskForTitles(), (Titles{"PIPE_NOT_AVAILABLE", {}}));
  EXPECT_THAT(Logs(), ElementsAre(STARTED, NO_PIPE));
}

TEST_F(AHelperThat, HangsBeforeItsPipeIsGivenUpAfterTwoSeconds) {
  Behave(HANG);
  Answer answer;
  const auto duration = Duration([&] { answer = AskForProxy(); });
  EXPECT_EQ(answer, NO_PROXY);
  EXPECT_GE(duration, 2s);
  EXPECT_LT(duration, 10s);
  EXPECT_THAT(Logs(), ElementsAre(STARTED, NO_PIPE));
}

TEST_F(AHelperThat, MakesItsPipeLateIsStillAsked) {
  Behave(MAKE_THE_PIPE_LATE, L"2,{id},0,8,http://a");
  Answer answer;
  EXPECT_GE(Duration([&] { answer = AskForProxy(); }), std::chrono::milliseconds(LATE_PIPE_MILLISECONDS));
  EXPECT_EQ(answer, (Answer{"http://a", std::nullopt}));
  EXPECT_THAT(Errors(), IsEmpty());
}

TEST_F(AHelperThat, MakesItsPipeTooLateIsGivenUp) {
  Behave(MAKE_THE_PIPE_TOO_LATE);
  EXPECT_EQ(AskForOneDrive(), NO_LOGIN);
  const MetaData file = AskForAFile();
  EXPECT_EQ(file.status, "PIPE_NOT_AVAILABLE");
  EXPECT_EQ(file.metaData.sha256Hex, L"");
  EXPECT_THAT(Logs(), ElementsAre(STARTED, NO_PIPE, STARTED, NO_PIPE));
  EXPECT_TRUE(DoesAHelperRun()) << "whoever is late is left running";
}

TEST_F(AHelperThat, EndsInsteadOfAnsweringBreaksThePipe) {
  Behave(HEAR_AND_END);
  EXPECT_EQ(AskForProxy(), (Answer{std::nullopt, "PROXY:: Couldn't get AutoProxyConfigUrl from pipe: 109"}));
  EXPECT_EQ(AskForOneDrive(), (Answer{std::nullopt, "CLOUDLOGIN:: Couldn't get cloud Login from pipe: 109"}));
  EXPECT_THAT(Errors(), IsEmpty());
  EXPECT_EQ(AskForTitles(), (Titles{"TABTITLE_CONNECT_PIPE_FAILED", {}}));
  EXPECT_EQ(AskForAFile().status, "METADATA_CONNECT_PIPE_FAILED");
  EXPECT_THAT(Errors(), ElementsAre("log 3 Couldn't get tab titles from pipe: 109",
                                    "log 3 Couldn't get metadata from pipe: 109"));
}

// The call's time-out is for finding the pipe free; an answer that is due has none.
TEST_F(AHelperThat, HangsInsteadOfAnsweringIsWaitedForUntilItEnds) {
  Behave(HEAR_AND_HANG);
  Answer answer;
  const auto duration = Duration([&] { answer = AskForProxy(); });
  EXPECT_EQ(answer, (Answer{std::nullopt, "PROXY:: Couldn't get AutoProxyConfigUrl from pipe: 109"}));
  EXPECT_GE(duration, std::chrono::milliseconds(LATE_ANSWER_MILLISECONDS));
  EXPECT_LT(duration, 10s);
}

TEST_F(AHelperThat, AnswersAfterTheTimeOutIsHeardAllTheSame) {
  Behave(ANSWER_LATE, L"0,{id},0,1,4,News");
  Titles titles;
  const auto duration = Duration([&] { titles = AskForTitles(); });
  EXPECT_EQ(titles, (Titles{"TABTITLE_SUCCESS", {"News"}}));
  EXPECT_GE(duration, std::chrono::milliseconds(LATE_ANSWER_MILLISECONDS));
}

TEST_F(AHelperThat, AnswersTwiceIsHeardOnce) {
  Behave(ANSWER_TWICE, L"0,{id},0,1,4,News");
  EXPECT_EQ(AskForTitles(), (Titles{"TABTITLE_SUCCESS", {"News"}}));
  AnswerWith(L"0,{id},0,1,4,Mail");
  EXPECT_EQ(AskForTitles(), (Titles{"TABTITLE_SUCCESS", {"Mail"}}));
  EXPECT_THAT(Errors(), IsEmpty());
}

TEST_F(AHelperThat, StaysAfterItsAnswerIsNeitherWaitedForNorEnded) {
  Behave(ANSWER_AND_STAY, L"0,{id},0,1,4,News");
  EXPECT_EQ(AskForTitles(), (Titles{"TABTITLE_SUCCESS", {"News"}}));
  EXPECT_TRUE(DoesAHelperRun());
  EndRequest();
  EXPECT_TRUE(WaitUntilNoHelperRuns());
}

TEST_F(AHelperThat, CarriesAnotherIdentifierIsNotBelieved) {
  AnswerWith(L"0,4,07c2,0,1,4,News");
  EXPECT_EQ(AskForTitles(), (Titles{"TABTITLE_COMMAND_ID", {}}));
  AnswerWith(L"1,4,07c2,0," + SHA_256 + L"," + MD5 + L",7,0,");
  const MetaData file = AskForAFile();
  EXPECT_EQ(file.status, "TABTITLE_COMMAND_ID");
  EXPECT_EQ(file.metaData.sha256Hex, L"");
  EXPECT_EQ(file.metaData.fileSize, 0U);
  EXPECT_THAT(Errors(), ElementsAre("log 3 Couldn't get tab titles. Error code: 2",
                                    "log 3 Couldn't get metadata. Error code: 2"));
  AnswerWith(L"2,4,07c2,0,8,http://a");
  EXPECT_EQ(AskForProxy(),
            (Answer{std::nullopt,
                    "PROXY:: Couldn't deserialize AutoProxyConfigUrl message: 2,4,07c2,0,8,http://a"}));
  AnswerWith(L"3,4,07c2,0,3,ann");
  EXPECT_EQ(
      AskForOneDrive(),
      (Answer{std::nullopt, "CLOUDLOGIN:: Couldn't deserialize cloud Login message: 3,4,07c2,0,3,ann"}));
}

TEST_F(AHelperThat, SaysNothingIsNotUnderstood) {
  AnswerWith(L"");
  EXPECT_EQ(AskForProxy(),
            (Answer{std::nullopt, "PROXY:: Couldn't deserialize AutoProxyConfigUrl message: "}));
  EXPECT_EQ(AskForOneDrive(),
            (Answer{std::nullopt, "CLOUDLOGIN:: Couldn't deserialize cloud Login message: "}));
}

// No unit is left for the zero that ends the text.
TEST_F(AHelperThat, FillsTheBufferIsReadToItsEnd) {
  AnswerFilledUp(L"0,{id},0,1,900,", 1024);
  EXPECT_EQ(AskForTitles(), (Titles{"TABTITLE_SUCCESS", {std::string(900, 'x')}}));
  AnswerFilledUp(L"1,{id},0," + SHA_256 + L"," + MD5 + L",7,4900,", 5120);
  const MetaData file = AskForAFile();
  EXPECT_EQ(file.status, "METADATA_SUCCESS");
  EXPECT_EQ(file.metaData.extraText, std::wstring(4900, L'x'));
  AnswerFilledUp(L"2,{id},0,2040,", 2200);
  EXPECT_EQ(AskForProxy(), (Answer{std::string(2040, 'x'), std::nullopt}));
  AnswerFilledUp(L"3,{id},0,2040,", 2200);
  EXPECT_EQ(AskForOneDrive(), (Answer{std::string(2040, 'x'), std::nullopt}));
}

// The host's strings are shorter than the reply's buffer.
TEST_F(AHelperThat, SaysMoreThanAStringForTheHostHoldsIsCut) {
  AnswerFilledUp(L"2,{id},0,2046,", 2170);
  EXPECT_EQ(AskForProxy(), (Answer{std::string(2046, 'x'), std::nullopt}));
  AnswerFilledUp(L"2,{id},0,2047,", 2170);
  EXPECT_EQ(AskForProxy(), (Answer{std::string(2046, 'x'), std::nullopt}));
  AnswerFilledUp(L"2,{id},26,2080,", 2190);
  EXPECT_EQ(AskForProxy(), (Answer{std::nullopt, std::string(2046, 'x')}));
  AnswerFilledUp(L"3,{id},0,2080,", 2190);
  EXPECT_EQ(AskForOneDrive(), (Answer{std::string(2046, 'x'), std::nullopt}));
  AnswerFilledUp(L"3,{id},17,2080,", 2190);
  EXPECT_EQ(AskForOneDrive(), (Answer{std::nullopt, std::string(2046, 'x')}));
}

TEST_F(AHelperThat, SaysMoreThanTheBufferHoldsIsNotHeard) {
  AnswerFilledUp(L"0,{id},0,1,4,News", 1025);
  EXPECT_EQ(AskForTitles(), (Titles{"TABTITLE_CONNECT_PIPE_FAILED", {}}));
  AnswerFilledUp(L"1,{id},0," + SHA_256 + L"," + MD5 + L",7,0", 5121);
  EXPECT_EQ(AskForAFile().status, "METADATA_CONNECT_PIPE_FAILED");
  EXPECT_THAT(Errors(), ElementsAre("log 3 Couldn't get tab titles from pipe: 234",
                                    "log 3 Couldn't get metadata from pipe: 234"));
  AnswerFilledUp(L"2,{id},0,8,http://a", 2201);
  EXPECT_EQ(AskForProxy(), (Answer{std::nullopt, "PROXY:: Couldn't get AutoProxyConfigUrl from pipe: 234"}));
  AnswerFilledUp(L"3,{id},0,3,ann", 2201);
  EXPECT_EQ(AskForOneDrive(), (Answer{std::nullopt, "CLOUDLOGIN:: Couldn't get cloud Login from pipe: 234"}));
}

// Asked handle by handle: Wine's GetProcessHandleCount counts none.
DWORD HandleCount() {
  constexpr ULONG_PTR HIGHEST_HANDLE = 0x8000;
  DWORD count = 0;
  for (ULONG_PTR handle = 4; handle < HIGHEST_HANDLE; handle += 4) {
    DWORD flags = 0;
    if (GetHandleInformation(reinterpret_cast<HANDLE>(handle), &flags)) ++count;
  }
  return count;
}

TEST_F(AHelperThat, FailsLeavesNoHandleOpen) {
  const auto failInEveryWay = [this] {
    SetSession(L"service");
    Behave(HEAR_AND_END);
    AskForProxy();
    SetSession(L"application");
    AskForTitles();
    AnswerFilledUp(L"1,", 5121);
    AskForAFile();
    AnswerWith(L"3,4,07c2,0,3,ann");
    AskForOneDrive();
    SetSession(L"none");
    AskForProxy();
  };
  // What the first requests of all open for good.
  failInEveryWay();
  const DWORD before = HandleCount();
  for (int round = 0; round < 5; ++round) failInEveryWay();
  EXPECT_EQ(HandleCount(), before);
}

// Longer than any reply: 2^31 - 1, 2^31 and 2^64 - 1.
const wchar_t* const ENORMOUS[] = {L"2147483647", L"2147483648", L"18446744073709551615"};

PROCESS_MEMORY_COUNTERS Memory() {
  PROCESS_MEMORY_COUNTERS memory{};
  EXPECT_TRUE(GetProcessMemoryInfo(GetCurrentProcess(), &memory, sizeof(memory)));
  return memory;
}

// No length is believed, and nothing is set aside for it.
class AnEnormousLength : public AHelperThat {
 protected:
  AnEnormousLength() {
    // What the first request of all takes once.
    AnswerWith(L"2,{id},0,0,");
    AskForProxy();
    atRest_ = Memory().WorkingSetSize;
  }
  void TearDown() override {
    constexpr SIZE_T ENOUGH = 20'000'000;
    const SIZE_T peak = Memory().PeakWorkingSetSize;
    ASSERT_GT(atRest_, 0U);
    EXPECT_GE(peak, atRest_);
    EXPECT_LT(peak, atRest_ + ENOUGH);
  }

  void ExpectNoTitles(const std::wstring& reply) {
    AnswerWith(reply);
    EXPECT_EQ(AskForTitles(), (Titles{"TABTITLE_DESERIALIZE_FAILURE", {}}));
  }
  void ExpectNoMetaData(const std::wstring& reply) {
    AnswerWith(reply);
    const MetaData file = AskForAFile();
    EXPECT_EQ(file.status, "METADATA_DESERIALIZE_FAILURE");
    EXPECT_EQ(file.metaData.sha256Hex, L"");
    EXPECT_EQ(file.metaData.extraText, L"");
  }
  void ExpectNoProxy(const std::wstring& reply) {
    AnswerWith(reply);
    transcript_.Clear();
    const Answer answer = AskForProxy();
    EXPECT_EQ(answer, (Answer{std::nullopt,
                              "PROXY:: Couldn't deserialize AutoProxyConfigUrl message: " + Received()}));
  }
  void ExpectNoLogin(const std::wstring& reply) {
    AnswerWith(reply);
    transcript_.Clear();
    const Answer answer = AskForOneDrive();
    EXPECT_EQ(answer,
              (Answer{std::nullopt, "CLOUDLOGIN:: Couldn't deserialize cloud Login message: " + Received()}));
  }

 private:
  SIZE_T atRest_ = 0;
};

TEST_F(AnEnormousLength, OfTheIdentifierIsNoHead) {
  for (const std::wstring length : ENORMOUS) {
    ExpectNoTitles(L"0," + length + L",07c2,0,1,4,News");
    ExpectNoProxy(L"2," + length + L",07c2,0,8,http://a");
  }
}

TEST_F(AnEnormousLength, OfTitlesIsNoAnswer) {
  for (const std::wstring length : ENORMOUS) {
    ExpectNoTitles(L"0,{id},0," + length + L",4,News");
    ExpectNoTitles(L"0,{id},0,1," + length + L",News");
  }
  EXPECT_THAT(Errors(), ::testing::Each("log 3 Couldn't deserialize tab title message"));
}

TEST_F(AnEnormousLength, OfMetaDataIsNoAnswer) {
  for (const std::wstring length : ENORMOUS) {
    ExpectNoMetaData(L"1,{id},0," + SHA_256 + L"," + MD5 + L",7," + length + L",text");
  }
  EXPECT_THAT(Errors(), ::testing::Each("log 3 Couldn't deserialize metadata message"));
}

TEST_F(AnEnormousLength, OfTheFileIsAsGoodAsAnyOther) {
  AnswerWith(L"1,{id},0," + SHA_256 + L"," + MD5 + L",18446744073709551615,0,");
  const MetaData file = AskForAFile();
  EXPECT_EQ(file.status, "METADATA_SUCCESS");
  EXPECT_EQ(file.metaData.fileSize, 18'446'744'073'709'551'615U);
}

TEST_F(AnEnormousLength, OfTheProxyUrlIsNoAnswer) {
  for (const std::wstring length : ENORMOUS) ExpectNoProxy(L"2,{id},0," + length + L",http://a");
}

TEST_F(AnEnormousLength, OfTheLoginIsNoAnswer) {
  for (const std::wstring length : ENORMOUS) ExpectNoLogin(L"3,{id},0," + length + L",ann");
}

// Whoever knows the channel's name may take the pipe; the helper then refuses to be the second, and the
// library cannot tell whom it asks.
TEST_F(AHelperThat, FindsItsNameTakenDoesNotServe) {
  Behave(TAKE_THE_NAME, L"2,{id},0,15,helper's code {exit}");
  SetVariable(RIVAL_VARIABLE, (Stage() / "OstrelUserHelper.exe").wstring());
  EXPECT_EQ(AskForProxy(), (Answer{"helper's code 3", std::nullopt}));
}

TEST_F(AHelperThat, IsMissingCannotBeStartedByAnApplication) {
  GoTo(std::filesystem::temp_directory_path());
  EXPECT_EQ(AskForProxy(), NO_PROXY);
  EXPECT_EQ(AskForTitles(), (Titles{"PROCCREATE_FAILURE", {}}));
  const std::string noProcess = "log 3 couldn't create proc as non service (lastError=2)";
  EXPECT_THAT(Logs(), ElementsAre(noProcess, NO_PROCESS, noProcess, NO_PROCESS));
}

TEST_F(AHelperThat, IsMissingCannotBeStartedByAService) {
  SetSession(L"service");
  GoTo(std::filesystem::temp_directory_path());
  EXPECT_EQ(AskForOneDrive(), NO_LOGIN);
  EXPECT_EQ(AskForAFile().status, "PROCCREATE_FAILURE");
  const std::string noProcess = "log 3 Could not create process when running as a service";
  EXPECT_THAT(Logs(), ElementsAre(noProcess, NO_PROCESS, noProcess, NO_PROCESS));
}

TEST_F(AHelperThat, NobodyCouldUseIsNotStarted) {
  SetSession(L"none");
  Behave(ANSWER, L"0,{id},0,1,4,News");
  EXPECT_EQ(AskForTitles(), (Titles{"NO_LOGGEDIN_USER", {}}));
  EXPECT_EQ(AskForProxy(), NO_PROXY);
  const std::string nobody = "log 6 No one logged in";
  EXPECT_THAT(Logs(), ElementsAre(nobody, NO_PROCESS, nobody, NO_PROCESS));
}

}  // namespace

}  // namespace ostrel::test
