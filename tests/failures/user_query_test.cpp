#include <windows.h>
// Needs windows.h before it.
#include <objbase.h>

#include "library_test.h"
#include "string_getter.h"
#include "support/scripted_wmi.h"
#include "support/test_thread.h"

namespace ostrel::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Values;

const std::string INITIALIZE = "CoInitializeEx(null, 0)";
const std::string CREATE =
    "CoCreateInstance({4590F811-1D3A-11D0-891F-00AA004B2E24}, null, 1, "
    "{DC12A687-737F-11CF-884D-00AA004B2E24})";
const std::string CONNECT = "locator.ConnectServer(ROOT\\CIMV2, null, null, null, 0, null, null)";
const std::string SET_BLANKET = "CoSetProxyBlanket(services, 10, 0, null, 3, 3, null, 0)";
const std::string NEXT = "enumerator.Next(-1, 1)";
const std::string CONVERT = "VariantToString(256)";
const std::string CLEAR = "VariantClear()";
const std::string RELEASE_SERVICES = "services.Release()";
const std::string RELEASE_LOCATOR = "locator.Release()";
const std::string RELEASE_ENUMERATOR = "enumerator.Release()";
const std::string UNINITIALIZE = "CoUninitialize()";

constexpr HRESULT ACCESS_DENIED = static_cast<HRESULT>(0x80070005);
const std::string ACCESS_DENIED_TEXT = "-2147024891";

struct Query {
  const char* getter;
  const char* prefix;  // of the error texts
  const char* text;
};

constexpr Query USER_NAME{"GetCurrentUserName", "GetCurrentUserNameAndDomain. ",
                          "SELECT * FROM Win32_ComputerSystem"};
constexpr Query DIRECTORIES{"GetAllUserDirectories", "GetAllUserDirectories. ",
                            "SELECT * FROM Win32_UserProfile"};

std::string Execute(const Query& query) {
  return "services.ExecQuery(WQL, " + std::string(query.text) + ", 48, null)";
}

Lines UpToTheQuery(const Query& query) {
  return {INITIALIZE, CREATE, CONNECT, SET_BLANKET, Execute(query)};
}

const Lines RELEASE_ALL{RELEASE_SERVICES, RELEASE_LOCATOR, RELEASE_ENUMERATOR, UNINITIALIZE};

Lines ReadObject(int number, const std::string& property) {
  const std::string object = "object " + std::to_string(number);
  return {object + ".Get(" + property + ", 0, null, null)", CONVERT, CLEAR, object + ".Release()"};
}

// The user's is the only object, and is logged before it is released.
Lines ReadUserName(const std::string& logLine) {
  return {NEXT, "object 1.Get(UserName, 0, null, null)", CONVERT, logLine, CLEAR, "object 1.Release()"};
}

class WmiTest : public LibraryTest {
 protected:
  // The load fails at once, and leaves the log callback set.
  WmiTest() {
    system_.Fail("OpenProcessToken", 5);
    EXPECT_FALSE(Load());
    FailureLedger::OfThisProgram().SetTheStage();
    Forget();
  }
  ~WmiTest() override { EXPECT_EQ(wmi_.HeldTexts(), 0); }

  ScriptedWmi wmi_{library_.Module(), system_.transcript};
};

class AUserQuery : public WmiTest, public ::testing::WithParamInterface<Query> {
 protected:
  Answer AskIt() { return Ask(library_, GetParam().getter); }
  static Answer ErrorOf(const std::string& text) { return Error(GetParam().prefix + text); }
};

INSTANTIATE_TEST_SUITE_P(Both, AUserQuery, Values(USER_NAME, DIRECTORIES),
                         [](const auto& query) { return std::string(query.param.getter); });

TEST_P(AUserQuery, ReleasesNothingWhenComCannotBeInitialised) {
  wmi_.initialize = ACCESS_DENIED;
  EXPECT_EQ(AskIt(), ErrorOf("Could not initialize COM: " + ACCESS_DENIED_TEXT));
  EXPECT_THAT(Calls(), ElementsAre(INITIALIZE));
}

TEST_P(AUserQuery, LeavesComInitialisedWhenTheLocatorCannotBeMade) {
  wmi_.createInstance = static_cast<HRESULT>(0x80040154);
  EXPECT_EQ(AskIt(), ErrorOf("Failed to CreateInstance. -2147221164"));
  EXPECT_THAT(Calls(), ElementsAre(INITIALIZE, CREATE));
}

TEST_P(AUserQuery, ReleasesTheLocatorWhenTheNamespaceRefuses) {
  wmi_.connectServer = ACCESS_DENIED;
  EXPECT_EQ(AskIt(), ErrorOf("Failed to connect to the root\\cimv2 namespace. " + ACCESS_DENIED_TEXT));
  EXPECT_THAT(Calls(), ElementsAre(INITIALIZE, CREATE, CONNECT, RELEASE_LOCATOR, UNINITIALIZE));
  EXPECT_THAT(wmi_.HeldObjects(), IsEmpty());
}

TEST_P(AUserQuery, ReleasesServicesAndLocatorWhenTheProxyCannotBeSecured) {
  wmi_.setProxyBlanket = E_INVALIDARG;
  EXPECT_EQ(AskIt(), ErrorOf("Failed to setProxyBlanket. -2147024809"));
  EXPECT_THAT(Calls(), ElementsAre(INITIALIZE, CREATE, CONNECT, SET_BLANKET, RELEASE_SERVICES,
                                   RELEASE_LOCATOR, UNINITIALIZE));
  EXPECT_THAT(wmi_.HeldObjects(), IsEmpty());
}

TEST_P(AUserQuery, ReleasesServicesAndLocatorWhenTheQueryFails) {
  wmi_.execQuery = static_cast<HRESULT>(0x80041010);
  EXPECT_EQ(AskIt(), ErrorOf("Failed to exec query. -2147217392"));
  EXPECT_THAT(Calls(), UpToTheQuery(GetParam()) + Lines({RELEASE_SERVICES, RELEASE_LOCATOR, UNINITIALIZE}));
  EXPECT_THAT(wmi_.HeldObjects(), IsEmpty());
}

TEST_P(AUserQuery, IsRefusedWhenThereIsNoMemoryForTheNameOfTheNamespace) {
  wmi_.refusedText = L"ROOT\\CIMV2";
  EXPECT_EQ(AskIt(), ErrorOf("Failed to connect to the root\\cimv2 namespace. -2147217400"));
  EXPECT_THAT(Calls(),
              ElementsAre(INITIALIZE, CREATE, "locator.ConnectServer(null, null, null, null, 0, null, null)",
                          RELEASE_LOCATOR, UNINITIALIZE));
}

TEST_P(AUserQuery, IsRefusedWhenThereIsNoMemoryForTheNameOfTheLanguage) {
  wmi_.refusedText = L"WQL";
  EXPECT_EQ(AskIt(), ErrorOf("Failed to exec query. -2147217400"));
  EXPECT_THAT(Calls(), ElementsAre(INITIALIZE, CREATE, CONNECT, SET_BLANKET,
                                   "services.ExecQuery(null, " + std::string(GetParam().text) + ", 48, null)",
                                   RELEASE_SERVICES, RELEASE_LOCATOR, UNINITIALIZE));
}

TEST_P(AUserQuery, IsRefusedWhenThereIsNoMemoryForTheQuery) {
  const std::string text = GetParam().text;
  wmi_.refusedText.assign(text.begin(), text.end());
  EXPECT_EQ(AskIt(), ErrorOf("Failed to exec query. -2147217400"));
  EXPECT_THAT(Calls(),
              ElementsAre(INITIALIZE, CREATE, CONNECT, SET_BLANKET, "services.ExecQuery(WQL, null, 48, null)",
                          RELEASE_SERVICES, RELEASE_LOCATOR, UNINITIALIZE));
}

// A thread that has COM in the multithreaded apartment already counts as initialised once more.
TEST_P(AUserQuery, GoesOnWhenComWasInitialisedBefore) {
  wmi_.initialize = S_FALSE;
  wmi_.objects = {L"VM"};
  EXPECT_EQ(AskIt().second, UNTOUCHED);
  EXPECT_EQ(Calls().back(), UNINITIALIZE);
}

TEST_P(AUserQuery, AnswersAnEmptyTextWhenThereIsNothingToEnumerate) {
  wmi_.givesEnumerator = false;
  FailureLedger::OfThisProgram().FailedOtherwise("services.ExecQuery", "succeeds without an enumerator");
  FailureLedger::OfThisProgram().Chosen("services.ExecQuery", "nothing to enumerate is no failure");
  EXPECT_EQ(AskIt(), Result(""));
  EXPECT_THAT(wmi_.HeldObjects(), IsEmpty());
  EXPECT_EQ(Calls().back(), UNINITIALIZE);
}

TEST_P(AUserQuery, SetsItsErrorToNullWhenThereIsNoMemoryForIt) {
  wmi_.connectServer = ACCESS_DENIED;
  const RefusedMemory memory(library_.Module(), STRING_BYTES, STRING_BYTES);
  EXPECT_EQ(AskIt(), Error("(null)"));
  EXPECT_EQ(memory.Refusals(), 1);
  EXPECT_THAT(wmi_.HeldObjects(), IsEmpty());
}

TEST_P(AUserQuery, SetsItsResultToNullWhenThereIsNoMemoryForIt) {
  wmi_.objects = {L"VM"};
  const RefusedMemory memory(library_.Module(), STRING_BYTES, STRING_BYTES);
  EXPECT_EQ(AskIt(), Result("(null)"));
  EXPECT_EQ(memory.Refusals(), 1);
  EXPECT_THAT(wmi_.HeldObjects(), IsEmpty());
  EXPECT_EQ(Calls().back(), UNINITIALIZE);
}

TEST_P(AUserQuery, AnswersWithoutALogCallback) {
  ASSERT_EQ(library_.LoadDriver(nullptr, 7), 0);
  FailureLedger::OfThisProgram().SetTheStage();
  Forget();
  wmi_.objects = {L"VM"};
  EXPECT_EQ(AskIt().second, UNTOUCHED);
  EXPECT_THAT(Logs(), IsEmpty());
}

class CurrentUserName : public WmiTest {
 protected:
  Answer AskIt() { return Ask(library_, USER_NAME.getter); }
};

TEST_F(CurrentUserName, IsThatOfTheFirstObject) {
  wmi_.objects = {L"VM\\ann", L"VM\\ben"};
  EXPECT_EQ(AskIt(), Result("VM\\ann"));
  EXPECT_THAT(Calls(),
              UpToTheQuery(USER_NAME) + ReadUserName("log 7 Domain with username: VM\\ann") + RELEASE_ALL);
  EXPECT_THAT(wmi_.HeldObjects(), IsEmpty());
}

// By design: the caller learns of a machine that is out of order, and keeps what was made.
TEST_F(CurrentUserName, LeavesEverythingHeldWhenThereIsNoObject) {
  FailureLedger::OfThisProgram().Concerns("enumerator.Next");
  EXPECT_EQ(AskIt(), Error("GetCurrentUserNameAndDomain. Failed to find next object. 1"));
  EXPECT_THAT(Calls(), UpToTheQuery(USER_NAME) + Lines({NEXT}));
  EXPECT_THAT(wmi_.HeldObjects(), ElementsAre("enumerator", "locator", "services"));
}

TEST_F(CurrentUserName, LeavesEverythingHeldWhenTheObjectCannotBeFetched) {
  wmi_.next = static_cast<HRESULT>(0x80041003);
  EXPECT_EQ(AskIt(), Error("GetCurrentUserNameAndDomain. Failed to find next object. -2147217405"));
  EXPECT_THAT(Calls(), UpToTheQuery(USER_NAME) + Lines({NEXT}));
  EXPECT_THAT(wmi_.HeldObjects(), ElementsAre("enumerator", "locator", "services"));
}

TEST_F(CurrentUserName, IsCutTo255Characters) {
  FailureLedger::OfThisProgram().Concerns("VariantToString");
  wmi_.objects = {std::wstring(255, L'u')};
  EXPECT_EQ(AskIt(), Result(std::string(255, 'u')));
  Forget();
  wmi_.objects = {std::wstring(256, L'u')};
  EXPECT_EQ(AskIt(), Result(std::string(255, 'u')));
  EXPECT_THAT(Logs(), ElementsAre("log 7 Domain with username: " + std::string(255, 'u')));
}

TEST_F(CurrentUserName, IsEmptyWhenNobodyIsLoggedOn) {
  for (const std::optional<std::wstring>& nobody : {std::optional<std::wstring>(L""), {}}) {
    wmi_.objects = {nobody};
    EXPECT_EQ(AskIt(), Result(""));
    EXPECT_THAT(Logs(), ElementsAre("log 7 Domain with username: "));
    Forget();
  }
  EXPECT_THAT(wmi_.HeldObjects(), IsEmpty());
}

TEST_F(CurrentUserName, IsEmptyWhenTheObjectDoesNotTellIt) {
  wmi_.objects = {L"VM\\ann"};
  wmi_.get = static_cast<HRESULT>(0x80041002);
  FailureLedger::OfThisProgram().Chosen("object.Get", "a text that cannot be read is empty");
  EXPECT_EQ(AskIt(), Result(""));
  EXPECT_THAT(wmi_.HeldObjects(), IsEmpty());
}

TEST_F(CurrentUserName, IsEmptyWhenItCannotBeConverted) {
  wmi_.objects = {L"VM\\ann"};
  wmi_.convert = E_OUTOFMEMORY;
  FailureLedger::OfThisProgram().Chosen("VariantToString", "a text that cannot be read is empty");
  EXPECT_EQ(AskIt(), Result(""));
  EXPECT_THAT(Calls(), UpToTheQuery(USER_NAME) + ReadUserName("log 7 Domain with username: ") + RELEASE_ALL);
  EXPECT_THAT(wmi_.HeldObjects(), IsEmpty());
}

// Only at level 7 does the log name a user.
TEST_F(CurrentUserName, IsNotLoggedAtLevelSix) {
  Load(6);
  FailureLedger::OfThisProgram().SetTheStage();
  Forget();
  wmi_.objects = {L"VM\\ann"};
  EXPECT_EQ(AskIt(), Result("VM\\ann"));
  EXPECT_THAT(Logs(), IsEmpty());
}

TEST_F(CurrentUserName, MayHoldPercentSigns) {
  wmi_.objects = {L"VM\\%s%n"};
  EXPECT_EQ(AskIt(), Result("VM\\%s%n"));
  EXPECT_THAT(Logs(), ElementsAre("log 7 Domain with username: VM\\%s%n"));
}

class AllUserDirectories : public WmiTest {
 protected:
  Answer AskIt() { return Ask(library_, DIRECTORIES.getter); }
};

const std::string DIRECTORIES_LINE = "log 7 List of all Directories (semi-colon delimited): ";

TEST_F(AllUserDirectories, AreEachFollowedByASemicolonInTheOrderOfTheObjects) {
  wmi_.objects = {L"C:\\Users\\b", L"C:\\Users\\a"};
  const std::string directories = "C:\\Users\\b;C:\\Users\\a;";
  EXPECT_EQ(AskIt(), Result(directories));
  EXPECT_THAT(Calls(), UpToTheQuery(DIRECTORIES) + Lines({NEXT}) + ReadObject(1, "LocalPath") +
                           Lines({NEXT}) + ReadObject(2, "LocalPath") +
                           Lines({NEXT, DIRECTORIES_LINE + directories}) + RELEASE_ALL);
  EXPECT_THAT(wmi_.HeldObjects(), IsEmpty());
}

TEST_F(AllUserDirectories, AreAnEmptyTextWithoutProfiles) {
  EXPECT_EQ(AskIt(), Result(""));
  EXPECT_THAT(Calls(), UpToTheQuery(DIRECTORIES) + Lines({NEXT, DIRECTORIES_LINE}) + RELEASE_ALL);
  EXPECT_THAT(wmi_.HeldObjects(), IsEmpty());
}

TEST_F(AllUserDirectories, HoldALoneSemicolonForAProfileWithoutAPath) {
  wmi_.objects = {L"C:\\Users\\a", L"", std::nullopt, L"C:\\Users\\b"};
  EXPECT_EQ(AskIt(), Result("C:\\Users\\a;;;C:\\Users\\b;"));
  EXPECT_THAT(wmi_.HeldObjects(), IsEmpty());
}

TEST_F(AllUserDirectories, HoldALoneSemicolonForAProfileThatDoesNotTellItsPath) {
  wmi_.objects = {L"C:\\Users\\a", L"C:\\Users\\b"};
  wmi_.get = static_cast<HRESULT>(0x80041002);
  FailureLedger::OfThisProgram().Chosen("object.Get", "a text that cannot be read is empty");
  EXPECT_EQ(AskIt(), Result(";;"));
  EXPECT_THAT(wmi_.HeldObjects(), IsEmpty());
}

TEST_F(AllUserDirectories, HoldALoneSemicolonForAPathThatCannotBeConverted) {
  wmi_.objects = {L"C:\\Users\\a", L"C:\\Users\\b"};
  wmi_.convert = E_OUTOFMEMORY;
  FailureLedger::OfThisProgram().Chosen("VariantToString", "a text that cannot be read is empty");
  EXPECT_EQ(AskIt(), Result(";;"));
  EXPECT_THAT(wmi_.HeldObjects(), IsEmpty());
}

// What came before is the answer.
TEST_F(AllUserDirectories, EndWhereAProfileCannotBeFetched) {
  wmi_.objects = {L"C:\\Users\\a"};
  wmi_.next = static_cast<HRESULT>(0x80041003);
  FailureLedger::OfThisProgram().Chosen("enumerator.Next",
                                        "what came before a profile that cannot be fetched is the answer");
  EXPECT_EQ(AskIt(), Result("C:\\Users\\a;"));
  EXPECT_THAT(wmi_.HeldObjects(), IsEmpty());
}

TEST_F(AllUserDirectories, AreEachCutTo255Characters) {
  wmi_.objects = {std::wstring(300, L'a'), L"b"};
  EXPECT_EQ(AskIt(), Result(std::string(255, 'a') + ";b;"));
}

TEST_F(AllUserDirectories, AreCutTo2046CharactersAltogether) {
  wmi_.objects.assign(9, std::wstring(255, L'a'));
  std::string uncut;
  for (int i = 0; i < 9; ++i) uncut += std::string(255, 'a') + ";";
  EXPECT_EQ(AskIt(), Result(uncut.substr(0, 2046)));
  EXPECT_THAT(Logs(), ElementsAre((DIRECTORIES_LINE + uncut).substr(0, 6 + 1003)));
}

// Nothing is thrown into the host, and nothing stays held.
TEST_F(AllUserDirectories, AreGivenUpWhenMemoryIsShort) {
  wmi_.objects.assign(3, std::wstring(255, L'a'));
  const RefusedMemory memory(library_.Module(), 1000, STRING_BYTES - 1);
  FailureLedger::OfThisProgram().Chosen(
      "malloc", "nothing is thrown into the host, and where there is no memory for a text neither is set");
  EXPECT_EQ(AskIt(), Answer(UNTOUCHED, UNTOUCHED));
  EXPECT_GE(memory.Refusals(), 1);
  EXPECT_THAT(wmi_.HeldObjects(), IsEmpty());
  EXPECT_EQ(Calls().back(), UNINITIALIZE);
}

// The system's own COM, which refuses a thread that has chosen the other kind of apartment.
class OnAThreadOfASingleThreadedApartment : public ::testing::TestWithParam<Query> {
 protected:
  LibraryCopy library_;
};

INSTANTIATE_TEST_SUITE_P(Both, OnAThreadOfASingleThreadedApartment, Values(USER_NAME, DIRECTORIES),
                         [](const auto& query) { return std::string(query.param.getter); });

TEST_P(OnAThreadOfASingleThreadedApartment, AUserQueryFailsAndTheApartmentStays) {
  const ostrel_test::TestThread thread([&] {
    ASSERT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK);
    FailureLedger::OfThisProgram().FailedOtherwise("CoInitializeEx",
                                                   "the thread is in a single-threaded apartment");
    EXPECT_EQ(Ask(library_, GetParam().getter),
              Error(std::string(GetParam().prefix) + "Could not initialize COM: -2147417850"));
    // Still in the apartment, and once only: it was entered and not left.
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_FALSE);
    CoUninitialize();
    CoUninitialize();
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
    CoUninitialize();
  });
}

}  // namespace

}  // namespace ostrel::test
