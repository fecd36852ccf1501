#include <cwctype>

#include "library_test.h"

namespace ostrel::test {

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const Lines SENT = {"FilterConnectCommunicationPort(\\FB6CBA80-7A14-42C2-8697-0D4F43B3405F, 0, 0 bytes)",
                    "FilterSendMessage(control port, 138176 bytes, no reply 0)", "CloseHandle(control port)"};

// Byte offsets of the message.
constexpr std::size_t IDS = 8;
constexpr std::size_t NAMES = 2056;
constexpr std::size_t EXCLUDED = 6152;
constexpr std::size_t CLOUD = 126152;
constexpr std::size_t CLOUD_EXCLUDED = 132152;
constexpr std::size_t ID_COUNT = 138152;
constexpr std::size_t NAME_COUNT = 138156;
constexpr std::size_t EXCLUDED_COUNT = 138160;
constexpr std::size_t CLOUD_COUNT = 138164;
constexpr std::size_t CLOUD_EXCLUDED_COUNT = 138168;
constexpr std::size_t OPTION = 138172;
constexpr std::size_t ENABLED = 138173;
constexpr std::size_t KIND = 138174;

class Message {
 public:
  explicit Message(std::vector<std::uint8_t> bytes) : bytes_(std::move(bytes)) {}

  int Byte(std::size_t offset) const { return bytes_.at(offset); }

  std::uint32_t Number(std::size_t offset) const {
    return static_cast<std::uint32_t>(Byte(offset) | Byte(offset + 1) << 8 | Byte(offset + 2) << 16) |
           static_cast<std::uint32_t>(Byte(offset + 3)) << 24;
  }

  std::wstring Text(std::size_t offset) const {
    std::wstring text;
    for (; Byte(offset) != 0 || Byte(offset + 1) != 0; offset += 2) {
      text += static_cast<wchar_t>(Byte(offset) | Byte(offset + 1) << 8);
    }
    return text;
  }

  std::vector<std::wstring> Texts(std::size_t offset, std::size_t stride, std::size_t count) const {
    std::vector<std::wstring> texts;
    for (std::size_t i = 0; i < count; ++i) texts.push_back(Text(offset + i * stride));
    return texts;
  }

 private:
  std::vector<std::uint8_t> bytes_;
};

// The host's arrays of texts.
class Texts {
 public:
  explicit Texts(std::vector<std::wstring> texts) : texts_(std::move(texts)) {
    for (const std::wstring& text : texts_) pointers_.push_back(text.c_str());
  }
  const wchar_t** Get() { return pointers_.data(); }
  std::int32_t Count() const { return static_cast<std::int32_t>(pointers_.size()); }

 private:
  std::vector<std::wstring> texts_;
  std::vector<const wchar_t*> pointers_;
};

class Configuring : public LibraryTest {
 protected:
  Configuring() {
    system_.waitDivisor = 50;
    EXPECT_TRUE(Load());
    EXPECT_TRUE(system_.WaitUntilHandled());
    Forget();
    handles_ = system_.OpenHandles();
  }
  ~Configuring() override { EXPECT_EQ(system_.OpenHandles(), handles_); }

  void AddDirectory(const std::wstring& directory, const std::wstring& onDisk) {
    system_.drives = {{L"C:", L"\\Device\\V3"}};
    system_.shortPaths[directory] = directory;
    system_.longPaths[directory] = onDisk;
  }

  int Enable(const std::vector<std::wstring>& processes, const std::vector<std::wstring>& excluded = {},
             std::uint8_t option = 0, bool tabTitles = true) {
    Texts names(processes);
    Texts paths(excluded);
    return Returned("EnableActivityDetection",
                    library_.EnableActivityDetection(nullptr, L"ann", names.Get(), names.Count(), paths.Get(),
                                                     paths.Count(), option, 0, tabTitles ? 1 : 0));
  }

  int EnableCloud(const std::vector<std::wstring>& processes, const std::vector<std::wstring>& paths = {},
                  const std::vector<std::wstring>& excluded = {}) {
    Texts names(processes);
    Texts cloud(paths);
    Texts exclusions(excluded);
    return Returned("EnablePCDDetection",
                    library_.EnablePCDDetection(nullptr, names.Get(), names.Count(), cloud.Get(),
                                                cloud.Count(), exclusions.Get(), exclusions.Count()));
  }

  int Disable() { return Returned("DisableActivityDetection", library_.DisableActivityDetection()); }
  int DisableCloud() { return Returned("DisablePCDDetection", library_.DisablePCDDetection()); }

  // The last lines of what the calls came to.
  Lines LastCalls(std::size_t count) const {
    const Lines calls = Calls();
    return Lines(calls.end() - static_cast<std::ptrdiff_t>(std::min(count, calls.size())), calls.end());
  }

  Message Sent(std::size_t index) const { return Message(system_.SentMessages().at(index)); }
  Message LastSent() const { return Message(system_.SentMessages().back()); }

  Lines handles_;
};

TEST_F(Configuring, EnablingActivityTakesItsStepsInOrder) {
  AddDirectory(L"c:\\skip", L"C:\\Skip");
  system_.processes = {{42, L"chrome.exe", L"chrome.exe"}};
  EXPECT_EQ(Enable({L"Chrome.exe", L"FIREFOX.EXE"}, {L"c:\\skip", L"c:\\none"}, 5), 1);
  EXPECT_THAT(
      Calls(),
      Lines({"GetShortPathNameW(c:\\skip, 300)", "GetLongPathNameW(c:\\skip, 300)",
             "QueryDosDeviceW(C:, 300)", "log 7 Excluding path: \\Device\\V3\\Skip",
             "GetShortPathNameW(c:\\none, 300)", "log 7 Could not find directory: c:\\none",
             "log 7 Excluding path: c:\\none", "log 6 Created filter processor with pCount=2, exCount=2",
             "log 7 Monitoring process: Chrome.exe", "log 7 Monitoring process: FIREFOX.EXE",
             "CreateToolhelp32Snapshot(0x2, 0)", "Process32FirstW(process snapshot)",
             "CreateToolhelp32Snapshot(0x8, 42)", "Module32FirstW(modules of 42)",
             "log 7 Added process 42 chrome.exe to list of processes to monitor",
             "CloseHandle(modules of 42)", "Process32NextW(process snapshot)",
             "CloseHandle(process snapshot)", "log 6 Enabled Application Activity Detection."}) +
          SENT);
}

TEST_F(Configuring, EnablingActivitySendsWhatToWatch) {
  AddDirectory(L"c:\\skip", L"C:\\Skip");
  system_.processes = {
      {42, L"chrome.exe", L"chrome.exe"}, {7, L"x", L"x"}, {43, L"firefox.exe", L"Firefox.exe"}};
  ASSERT_EQ(Enable({L"Chrome.exe", L"FIREFOX.EXE"}, {L"c:\\skip"}, 5), 1);
  const Message sent = LastSent();
  EXPECT_EQ(sent.Number(0), 7U);
  EXPECT_EQ(sent.Number(4), GetCurrentProcessId());
  EXPECT_EQ(sent.Number(ID_COUNT), 2U);
  EXPECT_EQ(sent.Number(IDS), 42U);
  EXPECT_EQ(sent.Number(IDS + 4), 43U);
  EXPECT_EQ(sent.Number(NAME_COUNT), 2U);
  EXPECT_THAT(sent.Texts(NAMES, 64, 2), ElementsAre(L"chrome.exe", L"firefox.exe"));
  EXPECT_EQ(sent.Number(EXCLUDED_COUNT), 1U);
  EXPECT_EQ(sent.Text(EXCLUDED), L"\\Device\\V3\\Skip");
  EXPECT_EQ(sent.Byte(OPTION), 5);
  EXPECT_EQ(sent.Byte(ENABLED), 1);
  EXPECT_EQ(sent.Byte(KIND), 1);
}

TEST_F(Configuring, EnablingActivityTwiceFailsAndSendsNothing) {
  ASSERT_EQ(Enable({L"chrome.exe"}), 1);
  Forget();
  FailureLedger::OfThisProgram().FailedOtherwise("Activity detection", "is on already");
  EXPECT_EQ(Enable({L"firefox.exe"}, {L"c:\\none"}, 1, false), 0);
  EXPECT_THAT(Calls(), ElementsAre("log 6 Application activity already turned on."));
  ASSERT_EQ(library_.DisableActivityDetection(), 1);
  EXPECT_EQ(LastSent().Number(EXCLUDED_COUNT), 0U) << "the refused call must not have kept its paths";
}

const wchar_t* UnreadableText() {
  return reinterpret_cast<const wchar_t*>(std::uintptr_t{16});
}

const wchar_t** UnreadableArray() {
  return reinterpret_cast<const wchar_t**>(std::uintptr_t{16});
}

TEST_F(Configuring, EnablingActivityTwiceReadsNoArrayTheSecondTime) {
  ASSERT_EQ(Enable({L"chrome.exe"}), 1);
  Forget();
  EXPECT_EQ(library_.EnableActivityDetection(nullptr, UnreadableText(), UnreadableArray(), 1,
                                             UnreadableArray(), 1, 0, 0, 0),
            0);
  EXPECT_THAT(Calls(), ElementsAre("log 6 Application activity already turned on."));
}

TEST_F(Configuring, EnablingCloudDetectionForNoProcessReadsNoArray) {
  EXPECT_EQ(
      library_.EnablePCDDetection(nullptr, UnreadableArray(), 0, UnreadableArray(), 1, UnreadableArray(), 1),
      1);
  EXPECT_THAT(Calls(),
              ElementsAre("log 6 No cloud processes. Turning PCD off", "log 6 PCD already turned off."));
}

TEST_F(Configuring, EnablingActivityWithoutTabTitlesSwitchesThemOff) {
  ASSERT_EQ(Enable({}, {}, 0, false), 1);
  EXPECT_THAT(Logs(), ElementsAre("log 6 Turning off tab title capture.",
                                  "log 6 Created filter processor with pCount=0, exCount=0",
                                  "log 3 Could not get first process. 18",
                                  "log 6 Enabled Application Activity Detection."));
}

TEST_F(Configuring, TabTitlesAreSwitchedWithoutAnyCall) {
  library_.EnableTabTitles();
  library_.DisableTabTitles();
  EXPECT_THAT(Calls(),
              ElementsAre("log 6 Turning on tab title capture.", "log 6 Turning off tab title capture."));
}

TEST_F(Configuring, DisablingActivityThatIsOffFails) {
  FailureLedger::OfThisProgram().FailedOtherwise("Activity detection", "is off already");
  EXPECT_EQ(Disable(), 0);
  EXPECT_THAT(Calls(), ElementsAre("log 6 Application activity already disabled."));
}

TEST_F(Configuring, DisablingActivitySendsTheKeptPathsAndNoProcess) {
  ASSERT_EQ(Enable({L"chrome.exe"}, {L"c:\\none"}, 5), 1);
  Forget();
  EXPECT_EQ(library_.DisableActivityDetection(), 1);
  EXPECT_THAT(Calls(), Lines({"CreateToolhelp32Snapshot(0x2, 0)", "Process32FirstW(process snapshot)",
                              "log 3 Could not get first process. 18", "CloseHandle(process snapshot)",
                              "log 6 Disabled Application Activity Detection."}) +
                           SENT);
  const Message sent = LastSent();
  EXPECT_EQ(sent.Number(NAME_COUNT), 0U);
  EXPECT_EQ(sent.Number(ID_COUNT), 0U);
  EXPECT_EQ(sent.Number(EXCLUDED_COUNT), 1U);
  EXPECT_EQ(sent.Byte(OPTION), 0);
  EXPECT_EQ(sent.Byte(ENABLED), 0);
  EXPECT_EQ(sent.Byte(KIND), 1);
}

TEST_F(Configuring, ExcludedPathsAddUpOverCalls) {
  ASSERT_EQ(Enable({}, {L"c:\\1"}), 1);
  ASSERT_EQ(library_.DisableActivityDetection(), 1);
  ASSERT_EQ(Enable({}, {L"c:\\2", L"c:\\1"}), 1);
  EXPECT_EQ(LastSent().Number(EXCLUDED_COUNT), 3U);
  EXPECT_THAT(LastSent().Texts(EXCLUDED, 600, 3), ElementsAre(L"c:\\1", L"c:\\2", L"c:\\1"));
}

TEST_F(Configuring, ExcludedAndCloudPathsAreKeptOverALaterLoad) {
  ASSERT_EQ(Enable({}, {L"c:\\1"}), 1);
  ASSERT_EQ(EnableCloud({L"cloud.exe"}, {L"c:\\2"}, {L"c:\\3"}), 1);
  ASSERT_TRUE(Unload());
  ASSERT_TRUE(Load());
  handles_ = system_.OpenHandles();
  ASSERT_EQ(Enable({}), 1);
  EXPECT_THAT(LastSent().Texts(EXCLUDED, 600, 1), ElementsAre(L"c:\\1"));
  EXPECT_EQ(LastSent().Number(EXCLUDED_COUNT), 1U);
  ASSERT_EQ(EnableCloud({L"cloud.exe"}), 1);
  EXPECT_EQ(LastSent().Number(CLOUD_COUNT), 1U);
  EXPECT_EQ(LastSent().Number(CLOUD_EXCLUDED_COUNT), 1U);
}

TEST_F(Configuring, TheFirst200ExcludedPathsAreSent) {
  std::vector<std::wstring> paths;
  for (int i = 0; i < 250; ++i) paths.push_back(L"c:\\" + std::to_wstring(i));
  ASSERT_EQ(Enable({}, paths), 1);
  EXPECT_EQ(LastSent().Number(EXCLUDED_COUNT), 200U);
  EXPECT_EQ(LastSent().Text(EXCLUDED + 199 * 600), L"c:\\199");
  EXPECT_EQ(LastSent().Text(CLOUD), L"");
}

// The driver's own layout: a long path runs on into the next slot, and the next path overwrites it there.
TEST_F(Configuring, APathOf300CharactersOrMoreRunsOnIntoTheNextSlot) {
  const std::wstring longPath = L"c:\\" + std::wstring(397, L'p');
  ASSERT_EQ(Enable({}, {longPath, L"c:\\2", longPath}), 1);
  EXPECT_EQ(LastSent().Text(EXCLUDED), longPath.substr(0, 300) + L"c:\\2");
  EXPECT_EQ(LastSent().Text(EXCLUDED + 2 * 600), longPath);
  EXPECT_EQ(LastSent().Number(EXCLUDED_COUNT), 3U);
}

TEST_F(Configuring, OfSeventyNamesSixtyFourAreSentAndAllAreLookedUp) {
  std::vector<std::wstring> names;
  for (int i = 0; i < 70; ++i) names.push_back(L"p" + std::to_wstring(i) + L".exe");
  system_.processes = {{42, L"p69.exe", L"p69.exe"}};
  ASSERT_EQ(Enable(names), 1);
  EXPECT_EQ(LastSent().Number(NAME_COUNT), 64U);
  EXPECT_EQ(LastSent().Text(NAMES + 63 * 64), L"p63.exe");
  EXPECT_EQ(LastSent().Number(ID_COUNT), 1U);
  EXPECT_EQ(LastSent().Number(IDS), 42U);
  EXPECT_THAT(Logs(), Contains("log 6 Created filter processor with pCount=70, exCount=0"));
}

TEST_F(Configuring, ANameOfFortyCharactersIsCutTo31AndLookedUpWhole) {
  const std::wstring name = std::wstring(36, L'N') + L".exe";
  system_.processes = {{42, L"n", std::wstring(36, L'n') + L".exe"}};
  ASSERT_EQ(Enable({name}), 1);
  EXPECT_EQ(LastSent().Text(NAMES), std::wstring(31, L'n'));
  EXPECT_EQ(LastSent().Number(ID_COUNT), 1U);
}

// By the C runtime, which may know more letters than A to Z; which those are differs from one to another.
TEST_F(Configuring, NamesAreLowerCasedAsTheRuntimeDoesIt) {
  std::wstring name = L"A";
  for (std::uint32_t code = 0x80; code < 0xD800; ++code) {
    const auto character = static_cast<wchar_t>(code);
    if (std::towlower(character) != character && name.size() < 31) name += character;
  }
  std::wstring lower;
  for (const wchar_t character : name) lower += static_cast<wchar_t>(std::towlower(character));
  ASSERT_EQ(Enable({name}), 1);
  EXPECT_EQ(LastSent().Text(NAMES), lower);
  // Where the runtime knows no further letter, these stay.
  ASSERT_EQ(library_.DisableActivityDetection(), 1);
  ASSERT_EQ(Enable({L"\x00C4\x0416.EXE"}), 1);
  EXPECT_EQ(LastSent().Text(NAMES), (std::wstring{static_cast<wchar_t>(std::towlower(L'\x00C4')),
                                                  static_cast<wchar_t>(std::towlower(L'\x0416'))} +
                                     L".exe"));
}

TEST_F(Configuring, FiveHundredAndTwelveProcessesFillTheMessage) {
  for (std::uint32_t i = 0; i < 600; ++i) system_.processes.push_back({1000 + i, L"a.exe", L"a.exe"});
  ASSERT_EQ(Enable({L"a.exe"}), 1);
  EXPECT_EQ(LastSent().Number(ID_COUNT), 512U);
  EXPECT_EQ(LastSent().Number(IDS + 511 * 4), 1511U);
  EXPECT_EQ(LastSent().Text(NAMES), L"a.exe");
  EXPECT_THAT(Logs(), Contains("log 3 More processes than we have room for."));
}

TEST_F(Configuring, NegativeAndZeroCountsAndNullArraysAreEmptyLists) {
  const wchar_t* names[] = {L"chrome.exe"};
  EXPECT_EQ(library_.EnableActivityDetection(nullptr, nullptr, names, -1, names, -5, 0, 0, 1), 1);
  EXPECT_THAT(Logs(), Contains("log 6 Created filter processor with pCount=-1, exCount=-5"));
  EXPECT_EQ(LastSent().Number(NAME_COUNT), 0U);
  EXPECT_EQ(LastSent().Number(EXCLUDED_COUNT), 0U);
  ASSERT_EQ(library_.DisableActivityDetection(), 1);
  EXPECT_EQ(library_.EnableActivityDetection(nullptr, L"", nullptr, 3, nullptr, 2, 0, 0, 1), 1);
  EXPECT_EQ(LastSent().Number(NAME_COUNT), 0U);
  EXPECT_EQ(LastSent().Number(EXCLUDED_COUNT), 0U);
}

TEST_F(Configuring, TheSwitchIsNotTakenBackWhenThePortRefuses) {
  system_.Fail("FilterConnectCommunicationPort", 0x80070002);
  EXPECT_EQ(Enable({L"chrome.exe"}, {L"c:\\none"}), 0);
  EXPECT_EQ(Calls().back(), "log 3 Error opening port for updating monitored processes: HResult: 80070002");
  Forget();
  EXPECT_EQ(Enable({L"chrome.exe"}), 0);
  EXPECT_THAT(Calls(), ElementsAre("log 6 Application activity already turned on."));
  EXPECT_EQ(Disable(), 0);
  Forget();
  EXPECT_EQ(library_.DisableActivityDetection(), 0);
  EXPECT_THAT(Calls(), ElementsAre("log 6 Application activity already disabled."));
  system_.Succeed("FilterConnectCommunicationPort");
  EXPECT_EQ(Enable({}), 1);
  EXPECT_EQ(LastSent().Number(EXCLUDED_COUNT), 1U) << "the path of the call that failed stays";
}

TEST_F(Configuring, AMessageThatThePortRefusesCountsAsSent) {
  system_.Fail("FilterSendMessage", 0x80070057);
  const auto refused =
      ElementsAre(SENT[0], SENT[1],
                  "log 3 Error getting message while updating kernel filter: HResult: 80070057", SENT[2]);
  EXPECT_EQ(Enable({L"chrome.exe"}), 1);
  EXPECT_THAT(LastCalls(4), refused);
  EXPECT_EQ(Disable(), 1);
  EXPECT_THAT(LastCalls(4), refused);
  EXPECT_EQ(EnableCloud({L"box.exe"}), 1);
  EXPECT_THAT(LastCalls(4), refused);
  EXPECT_EQ(DisableCloud(), 1);
  EXPECT_THAT(LastCalls(4), refused);
  library_.UpdateProcesses(nullptr, 0, 0);
  CameTo("UpdateProcesses: returns nothing, and says that it succeeded");
  EXPECT_EQ(LastCalls(1), Lines{"log 6 Successfully updated processes to monitor."});
  EXPECT_THAT(system_.transcript.StartingWith("log 3 Error getting message"), ::testing::SizeIs(5));
}

TEST_F(Configuring, EnablingCloudDetectionTakesItsStepsInOrder) {
  AddDirectory(L"c:\\box", L"C:\\Box");
  EXPECT_EQ(EnableCloud({L"Box.exe", L"Sync.exe"}, {L"c:\\box"}, {L"c:\\box\\skip", L"c:\\none"}), 1);
  // "exCount" is the number of cloud paths.
  EXPECT_THAT(
      Logs(),
      ElementsAre("log 7 Cloud path: \\Device\\V3\\Box", "log 7 Could not find directory: c:\\box\\skip",
                  "log 7 Cloud exclude path: c:\\box\\skip", "log 7 Could not find directory: c:\\none",
                  "log 7 Cloud exclude path: c:\\none",
                  "log 6 Created filter processor with cloud pCount=2, exCount=1",
                  "log 7 Monitoring cloud process: Box.exe", "log 7 Monitoring cloud process: Sync.exe",
                  "log 3 Could not get first process. 18", "log 6 Enabled PCD Detection."));
  Lines end = Calls();
  end.erase(end.begin(), end.end() - 4);
  EXPECT_THAT(end, Lines({"log 6 Enabled PCD Detection."}) + SENT);
}

TEST_F(Configuring, EnablingCloudDetectionSendsItsPathsBesideTheExcluded) {
  ASSERT_EQ(Enable({L"chrome.exe"}, {L"c:\\x"}, 9), 1);
  ASSERT_EQ(EnableCloud({L"Box.exe"}, {L"c:\\1", L"c:\\2"}, {L"c:\\3"}), 1);
  const Message sent = LastSent();
  EXPECT_THAT(sent.Texts(NAMES, 64, 2), ElementsAre(L"box.exe", L""));
  EXPECT_EQ(sent.Number(NAME_COUNT), 1U);
  EXPECT_EQ(sent.Text(EXCLUDED), L"c:\\x");
  EXPECT_EQ(sent.Number(EXCLUDED_COUNT), 1U);
  EXPECT_THAT(sent.Texts(CLOUD, 600, 2), ElementsAre(L"c:\\1", L"c:\\2"));
  EXPECT_EQ(sent.Number(CLOUD_COUNT), 2U);
  EXPECT_EQ(sent.Text(CLOUD_EXCLUDED), L"c:\\3");
  EXPECT_EQ(sent.Number(CLOUD_EXCLUDED_COUNT), 1U);
  EXPECT_EQ(sent.Byte(OPTION), 0);
  EXPECT_EQ(sent.Byte(ENABLED), 1);
  EXPECT_EQ(sent.Byte(KIND), 0);
}

TEST_F(Configuring, CloudPathsAddUpAndTheFirstTenAreSent) {
  const std::vector<std::wstring> paths = {L"c:\\1", L"c:\\2", L"c:\\3"};
  for (const std::uint32_t expected : {3U, 6U, 9U, 10U}) {
    ASSERT_EQ(EnableCloud({L"box.exe"}, paths, paths), 1);
    EXPECT_EQ(LastSent().Number(CLOUD_COUNT), expected);
    EXPECT_EQ(LastSent().Number(CLOUD_EXCLUDED_COUNT), expected);
  }
  EXPECT_EQ(LastSent().Text(CLOUD + 9 * 600), L"c:\\1");
}

// Where a run-on would reach the counts and switches at the end of the message.
TEST_F(Configuring, ALongLastCloudExclusionDamagesNoCountAndNoSwitch) {
  std::vector<std::wstring> exclusions(9, L"c:\\e");
  exclusions.push_back(L"c:\\" + std::wstring(600, L'z'));
  ASSERT_EQ(EnableCloud({L"box.exe"}, {L"c:\\1"}, exclusions), 1);
  const Message sent = LastSent();
  EXPECT_EQ(sent.Text(CLOUD_EXCLUDED + 9 * 600), L"c:\\" + std::wstring(296, L'z'));
  EXPECT_EQ(sent.Number(ID_COUNT), 0U);
  EXPECT_EQ(sent.Number(NAME_COUNT), 1U);
  EXPECT_EQ(sent.Number(CLOUD_EXCLUDED_COUNT), 10U);
  EXPECT_EQ(sent.Byte(ENABLED), 1);
  EXPECT_EQ(sent.Byte(KIND), 0);
}

TEST_F(Configuring, AnActivityMessageCarriesNoCloudPaths) {
  ASSERT_EQ(EnableCloud({L"box.exe"}, {L"c:\\1"}, {L"c:\\2"}), 1);
  ASSERT_EQ(Enable({}), 1);
  EXPECT_EQ(LastSent().Text(CLOUD), L"");
  EXPECT_EQ(LastSent().Number(CLOUD_COUNT), 0U);
  EXPECT_EQ(LastSent().Text(CLOUD_EXCLUDED), L"");
  EXPECT_EQ(LastSent().Number(CLOUD_EXCLUDED_COUNT), 0U);
}

TEST_F(Configuring, EnablingCloudDetectionForNoProcessSwitchesItOff) {
  ASSERT_EQ(EnableCloud({L"box.exe"}, {L"c:\\1"}), 1);
  Forget();
  EXPECT_EQ(EnableCloud({}, {L"c:\\2"}), 1);
  EXPECT_THAT(Logs(), ElementsAre("log 6 No cloud processes. Turning PCD off",
                                  "log 3 Could not get first process. 18", "log 6 Disabled PCD detection."));
  EXPECT_EQ(LastSent().Byte(ENABLED), 0);
  EXPECT_EQ(LastSent().Number(CLOUD_COUNT), 1U);
  Forget();
  EXPECT_EQ(EnableCloud({}), 1);
  EXPECT_THAT(Calls(),
              ElementsAre("log 6 No cloud processes. Turning PCD off", "log 6 PCD already turned off."));
}

// Only 0 means off.
TEST_F(Configuring, EnablingCloudDetectionForANegativeCountSwitchesItOnForNone) {
  EXPECT_EQ(library_.EnablePCDDetection(nullptr, nullptr, -1, nullptr, -2, nullptr, -3), 1);
  EXPECT_THAT(Logs(), Contains("log 6 Created filter processor with cloud pCount=-1, exCount=-2"));
  EXPECT_EQ(LastSent().Number(NAME_COUNT), 0U);
  EXPECT_EQ(LastSent().Byte(ENABLED), 1);
}

TEST_F(Configuring, DisablingCloudDetectionSendsAllPathsAndNoProcess) {
  ASSERT_EQ(EnableCloud({L"box.exe"}, {L"c:\\1"}, {L"c:\\2"}), 1);
  Forget();
  EXPECT_EQ(library_.DisablePCDDetection(), 1);
  Lines end = Calls();
  end.erase(end.begin(), end.end() - 4);
  EXPECT_THAT(end, Lines({"log 6 Disabled PCD detection."}) + SENT);
  EXPECT_EQ(LastSent().Number(NAME_COUNT), 0U);
  EXPECT_EQ(LastSent().Number(CLOUD_COUNT), 1U);
  EXPECT_EQ(LastSent().Number(CLOUD_EXCLUDED_COUNT), 1U);
  EXPECT_EQ(LastSent().Byte(ENABLED), 0);
  EXPECT_EQ(LastSent().Byte(KIND), 0);
}

// Unlike DisableActivityDetection.
TEST_F(Configuring, DisablingCloudDetectionThatIsOffSucceeds) {
  FailureLedger::OfThisProgram().FailedOtherwise("Cloud detection", "is off already");
  EXPECT_EQ(DisableCloud(), 1);
  EXPECT_THAT(Calls(), ElementsAre("log 6 PCD already turned off."));
}

TEST_F(Configuring, TheCloudSwitchIsNotTakenBackWhenThePortRefuses) {
  system_.Fail("FilterConnectCommunicationPort", 0x80070002);
  EXPECT_EQ(EnableCloud({L"box.exe"}), 0);
  EXPECT_EQ(DisableCloud(), 0);
  Forget();
  EXPECT_EQ(library_.DisablePCDDetection(), 1);
  EXPECT_THAT(Calls(), ElementsAre("log 6 PCD already turned off."));
}

TEST_F(Configuring, UpdatingProcessesWhileActivityIsOffSendsThatItIsOff) {
  Texts names({L"Chrome.exe"});
  library_.UpdateProcesses(names.Get(), 1, 3);
  EXPECT_THAT(Calls(), Lines({"CreateToolhelp32Snapshot(0x2, 0)", "Process32FirstW(process snapshot)",
                              "log 3 Could not get first process. 18", "CloseHandle(process snapshot)"}) +
                           SENT + Lines({"log 6 Successfully updated processes to monitor."}));
  EXPECT_EQ(LastSent().Text(NAMES), L"chrome.exe");
  EXPECT_EQ(LastSent().Byte(OPTION), 3);
  EXPECT_EQ(LastSent().Byte(ENABLED), 0);
  EXPECT_EQ(LastSent().Byte(KIND), 1);
}

TEST_F(Configuring, UpdatingProcessesWhileActivityIsOnSendsThatItIsOnAndTheKeptPaths) {
  ASSERT_EQ(Enable({L"chrome.exe"}, {L"c:\\x"}), 1);
  Texts names({L"firefox.exe", L"opera.exe"});
  library_.UpdateProcesses(names.Get(), 2, 0);
  EXPECT_THAT(LastSent().Texts(NAMES, 64, 3), ElementsAre(L"firefox.exe", L"opera.exe", L""));
  EXPECT_EQ(LastSent().Byte(ENABLED), 1);
  EXPECT_EQ(LastSent().Number(EXCLUDED_COUNT), 1U);
}

// Counts are signed.
TEST_F(Configuring, UpdatingProcessesWithACountBeyondTheSignedOnesSendsAnEmptyList) {
  const wchar_t* names[] = {L"chrome.exe"};
  for (const std::uint32_t count : {0x80000000U, 0x80000001U, 0xFFFFFFFFU}) {
    library_.UpdateProcesses(names, 1, 0);
    ASSERT_EQ(LastSent().Number(NAME_COUNT), 1U);
    library_.UpdateProcesses(names, count, 0);
    EXPECT_EQ(LastSent().Number(NAME_COUNT), 0U);
    EXPECT_EQ(LastSent().Text(NAMES), L"");
  }
}

TEST_F(Configuring, UpdatingProcessesSaysThatItSucceededEvenWhenThePortRefuses) {
  system_.Fail("FilterConnectCommunicationPort", 0x80070002);
  library_.UpdateProcesses(nullptr, 0xFFFFFFFF, 0);
  CameTo("UpdateProcesses: returns nothing, and says that it succeeded");
  EXPECT_THAT(Logs(),
              ElementsAre("log 3 Could not get first process. 18",
                          "log 3 Error opening port for updating monitored processes: HResult: 80070002",
                          "log 6 Successfully updated processes to monitor."));
}

TEST_F(Configuring, AMessageIsSentWithoutTheProcessListWhenThereIsNone) {
  system_.Fail("CreateToolhelp32Snapshot", 8);
  EXPECT_EQ(Enable({L"chrome.exe"}), 1);
  EXPECT_THAT(Logs(), Contains("log 3 Could not get system snapshot. 8"));
  EXPECT_EQ(LastSent().Number(ID_COUNT), 0U);
  EXPECT_EQ(LastSent().Number(NAME_COUNT), 1U);
}

class WithoutLoadDriver : public LibraryTest {};

TEST_F(WithoutLoadDriver, DetectionCanBeConfiguredAndLogsNothing) {
  const wchar_t* names[] = {L"chrome.exe"};
  EXPECT_EQ(library_.EnableActivityDetection(nullptr, L"", names, 1, nullptr, 0, 0, 0, 0), 1);
  EXPECT_EQ(library_.DisableActivityDetection(), 1);
  EXPECT_EQ(library_.EnablePCDDetection(nullptr, names, 1, nullptr, 0, nullptr, 0), 1);
  EXPECT_EQ(library_.DisablePCDDetection(), 1);
  library_.UpdateProcesses(names, 1, 0);
  EXPECT_EQ(system_.SentMessages().size(), 5U);
  EXPECT_THAT(Logs(), IsEmpty());
  EXPECT_THAT(system_.OpenHandles(), IsEmpty());
}

TEST_F(WithoutLoadDriver, AStringOfTheLibraryIsFreedAndANullOneIgnored) {
  const auto allocate = library_.Find<void (*)(wchar_t**, const wchar_t*, ...)>(
      "_ZN19OstrelFilterLibUtil18AllocStringPointerEPPwPKwz");
  wchar_t* text = nullptr;
  allocate(&text, L"%s %lu", L"user", 42UL);
  EXPECT_STREQ(text, L"user 42");
  library_.DeallocStringPointer(&text);

  allocate(&text, L"%s", std::wstring(3000, L'x').c_str());
  EXPECT_EQ(std::wstring(text), std::wstring(2046, L'x'));
  library_.DeallocStringPointer(&text);

  text = nullptr;
  library_.DeallocStringPointer(&text);
  EXPECT_EQ(text, nullptr);
}

}  // namespace

}  // namespace ostrel::test
