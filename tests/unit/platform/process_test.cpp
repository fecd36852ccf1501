#include <algorithm>

#include "platform_test.h"
#include "util/ostrel_filter_lib_util.h"

namespace ostrel::test {

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class NameOfAProcess : public PlatformTest {
 protected:
  bool Get() {
    return Returned("GetProcessName", OstrelFilterLibUtil::GetProcessName(42, name_, &handle_) != 0);
  }

  wchar_t name_[512] = {};
  void* handle_ = this;
};

TEST_F(NameOfAProcess, ComesWithAHandleThatTheCallerCloses) {
  system_.imageNames = {{42, L"\\Device\\HarddiskVolume3\\chrome.exe"}};
  EXPECT_TRUE(Get());
  EXPECT_STREQ(name_, L"\\Device\\HarddiskVolume3\\chrome.exe");
  EXPECT_THAT(Calls(), ElementsAre("OpenProcess(0x1000, not inherited, 42)",
                                   "K32GetProcessImageFileNameW(process 42, 512)"));
  EXPECT_THAT(system_.OpenHandles(), ElementsAre("process 42"));
  EXPECT_TRUE(CloseHandle(handle_));
}

TEST_F(NameOfAProcess, IsMissingSilentlyForAProcessThatHasGone) {
  FailureLedger::OfThisProgram().Concerns("OpenProcess");
  EXPECT_FALSE(Get());
  EXPECT_EQ(handle_, nullptr);
  EXPECT_THAT(Calls(), ElementsAre("OpenProcess(0x1000, not inherited, 42)"));
}

TEST_F(NameOfAProcess, IsMissingWithALineWhenItCannotBeReadAndTheHandleStaysTheCallers) {
  system_.imageNames = {{42, L"x"}};
  system_.Fail("K32GetProcessImageFileNameW", 31);
  EXPECT_FALSE(Get());
  EXPECT_THAT(Logs(), ElementsAre("log 3 Could not get process name. 31"));
  EXPECT_THAT(system_.OpenHandles(), ElementsAre("process 42"));
  EXPECT_TRUE(CloseHandle(handle_));
}

class WatchedProcessIds : public PlatformTest {
 protected:
  ~WatchedProcessIds() override { EXPECT_THAT(system_.OpenHandles(), IsEmpty()); }

  std::vector<ULong32> Find(int capacity, const std::vector<std::wstring>& names) {
    constexpr ULong32 untouched = 0xABABABAB;
    std::vector<ULong32> ids(static_cast<std::size_t>(capacity) + 1, untouched);
    int count = -1;
    OstrelFilterLibUtil::GetCurrentProcessIDsToWatch(ids.data(), &count, capacity, names);
    EXPECT_GE(count, 0);
    EXPECT_LE(count, capacity);
    EXPECT_TRUE(std::all_of(ids.begin() + count, ids.end(), [](ULong32 id) { return id == untouched; }));
    ids.resize(static_cast<std::size_t>(count));
    CameTo("GetCurrentProcessIDsToWatch: " + std::to_string(count) + " ids");
    return ids;
  }

  const std::vector<std::wstring> names_{L"chrome.exe", L"firefox.exe"};
};

TEST_F(WatchedProcessIds, AreThoseWhoseFirstModuleHasAWatchedNameInAnyCase) {
  system_.processes = {
      {4, L"list4.exe", L"System"}, {8, L"list8.exe", L"CHROME.exe"}, {12, L"list12.exe", L"firefox.EXE"}};
  EXPECT_THAT(Find(3, names_), ElementsAre(8, 12));
  EXPECT_THAT(Calls(), ElementsAre("CreateToolhelp32Snapshot(0x2, 0)", "Process32FirstW(process snapshot)",
                                   "CreateToolhelp32Snapshot(0x8, 4)", "Module32FirstW(modules of 4)",
                                   "CloseHandle(modules of 4)", "Process32NextW(process snapshot)",
                                   "CreateToolhelp32Snapshot(0x8, 8)", "Module32FirstW(modules of 8)",
                                   "log 7 Added process 8 list8.exe to list of processes to monitor",
                                   "CloseHandle(modules of 8)", "Process32NextW(process snapshot)",
                                   "CreateToolhelp32Snapshot(0x8, 12)", "Module32FirstW(modules of 12)",
                                   "log 7 Added process 12 list12.exe to list of processes to monitor",
                                   "CloseHandle(modules of 12)", "Process32NextW(process snapshot)",
                                   "CloseHandle(process snapshot)"));
}

TEST_F(WatchedProcessIds, CompareWholeNames) {
  system_.processes = {{4, L"a", L"chrome.exe.bak"}, {8, L"b", L"xchrome.exe"}, {12, L"c", L"chrome"}};
  EXPECT_THAT(Find(3, names_), IsEmpty());
  EXPECT_THAT(Logs(), IsEmpty());
}

TEST_F(WatchedProcessIds, StopAtCapacityOneAfterTheFirstMatch) {
  system_.processes = {{4, L"chrome.exe", L"chrome.exe"}, {8, L"chrome.exe", L"chrome.exe"}};
  EXPECT_THAT(Find(1, names_), ElementsAre(4));
  EXPECT_THAT(Calls(), ElementsAre("CreateToolhelp32Snapshot(0x2, 0)", "Process32FirstW(process snapshot)",
                                   "CreateToolhelp32Snapshot(0x8, 4)", "Module32FirstW(modules of 4)",
                                   "log 3 More processes than we have room for.", "CloseHandle(modules of 4)",
                                   "CloseHandle(process snapshot)"));
}

// The array is full, though nothing is lost, and the process that filled it gets no line of its own.
TEST_F(WatchedProcessIds, SayThatThereIsNoRoomAsSoonAsTheArrayIsFull) {
  FailureLedger::OfThisProgram().FailedOtherwise("List of watched processes", "full");
  system_.processes = {{4, L"chrome.exe", L"chrome.exe"}, {8, L"firefox.exe", L"firefox.exe"}};
  EXPECT_THAT(Find(2, names_), ElementsAre(4, 8));
  EXPECT_THAT(Logs(), ElementsAre("log 7 Added process 4 chrome.exe to list of processes to monitor",
                                  "log 3 More processes than we have room for."));
}

TEST_F(WatchedProcessIds, PassOverAProcessWhoseModulesCannotBeListed) {
  system_.processes = {{4, L"chrome.exe", L"chrome.exe", 5}, {8, L"chrome.exe", L"chrome.exe"}};
  EXPECT_THAT(Find(3, names_), ElementsAre(8));
  EXPECT_THAT(Logs(), ElementsAre("log 7 Added process 8 chrome.exe to list of processes to monitor"));
}

TEST_F(WatchedProcessIds, PassOverAProcessOfAnotherBitnessThatDoesNotShowItsModules) {
  FailureLedger::OfThisProgram().Chosen("CreateToolhelp32Snapshot",
                                        "a process of another bitness is passed over, and nothing says so");
  system_.processes = {{4, L"chrome.exe", L"chrome.exe", ERROR_PARTIAL_COPY},
                       {8, L"chrome.exe", L"chrome.exe"}};
  EXPECT_THAT(Find(3, names_), ElementsAre(8));
  EXPECT_THAT(Logs(), ElementsAre("log 7 Added process 8 chrome.exe to list of processes to monitor"));
}

TEST_F(WatchedProcessIds, PassOverAProcessWhoseFirstModuleCannotBeReadWithALine) {
  system_.processes = {{4, L"chrome.exe", L"chrome.exe", 0, 18}, {8, L"chrome.exe", L"chrome.exe"}};
  EXPECT_THAT(Find(3, names_), ElementsAre(8));
  EXPECT_THAT(Logs(), ElementsAre("log 3 Could not get first module. 18",
                                  "log 7 Added process 8 chrome.exe to list of processes to monitor"));
}

TEST_F(WatchedProcessIds, AreNoneWithoutASnapshot) {
  system_.Fail("CreateToolhelp32Snapshot", 8);
  EXPECT_THAT(Find(3, names_), IsEmpty());
  EXPECT_THAT(Calls(),
              ElementsAre("CreateToolhelp32Snapshot(0x2, 0)", "log 3 Could not get system snapshot. 8"));
}

TEST_F(WatchedProcessIds, AreNoneWithoutAFirstProcess) {
  system_.Fail("Process32FirstW", 24);
  EXPECT_THAT(Find(3, names_), IsEmpty());
  EXPECT_THAT(Calls(), ElementsAre("CreateToolhelp32Snapshot(0x2, 0)", "Process32FirstW(process snapshot)",
                                   "log 3 Could not get first process. 24", "CloseHandle(process snapshot)"));
}

// Whether the list is at its end or cannot be read on is not told apart.
TEST_F(WatchedProcessIds, EndWhereTheNextProcessCannotBeRead) {
  system_.processes = {{4, L"chrome.exe", L"chrome.exe"}, {8, L"firefox.exe", L"firefox.exe"}};
  system_.Fail("Process32NextW", 24);
  EXPECT_THAT(Find(3, names_), ElementsAre(4));
  EXPECT_THAT(Logs(), ElementsAre("log 7 Added process 4 chrome.exe to list of processes to monitor"));
}

TEST_F(WatchedProcessIds, AreNoneForAnEmptyWatchList) {
  system_.processes = {{4, L"chrome.exe", L"chrome.exe"}};
  EXPECT_THAT(Find(3, {}), IsEmpty());
}

// On the system that the test runs on.
TEST(WatchedProcessIdsOnThisSystem, IncludeThisProgram) {
  wchar_t path[1024] = {};
  GetModuleFileNameW(nullptr, path, 1024);
  const std::wstring name = std::wstring(path).substr(std::wstring(path).rfind(L'\\') + 1);
  ULong32 ids[512] = {};
  int count = 0;
  OstrelFilterLibUtil::GetCurrentProcessIDsToWatch(ids, &count, 512, {name});
  EXPECT_THAT(std::vector<ULong32>(ids, ids + count), Contains(GetCurrentProcessId()));
}

}  // namespace

}  // namespace ostrel::test
