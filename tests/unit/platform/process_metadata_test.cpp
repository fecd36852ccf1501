#include "userhelper/process_metadata.h"

#include <windows.h>
// Needs windows.h before it.
#include <tlhelp32.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "log/log.h"
#include "support/failure_ledger.h"
#include "support/heap_watch.h"
#include "support/import_table.h"
#include "support/transcript.h"

namespace ostrel::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct Window {
  DWORD processId;
  std::wstring title;
  bool hasOwner = false;
  bool isVisible = true;
};

struct Process {
  DWORD id;
  DWORD parentId;
  std::wstring executable;
};

// Why there is no list of processes.
constexpr DWORD NO_LIST = ERROR_BAD_LENGTH;

// A desktop and the processes behind it, of the test's choosing. A window handle is the number of the window,
// counted from 1.
class ScriptedDesktop {
 public:
  ScriptedDesktop() { current = this; }
  ScriptedDesktop(const ScriptedDesktop&) = delete;
  ScriptedDesktop& operator=(const ScriptedDesktop&) = delete;
  ~ScriptedDesktop() { current = nullptr; }

  std::vector<Window> windows;
  std::vector<Process> processes;
  bool canSnapshot = true;
  bool canReadFirst = true;
  DWORD windowsError = ERROR_SUCCESS;  // of enumerating them
  int openSnapshots = 0;

  // Done when the system is asked how long a title is.
  std::function<void()> whenMeasured;
  // What happened: the windows shown to a search, and the snapshots, by their flags and process id.
  std::vector<std::wstring> shown;
  std::vector<std::pair<DWORD, DWORD>> snapshots;

  static HWND Handle(std::size_t number) { return reinterpret_cast<HWND>(number); }

 private:
  static const Window& Of(HWND window) {
    return current->windows.at(reinterpret_cast<std::size_t>(window) - 1);
  }

  static BOOL WINAPI EnumWindows(WNDENUMPROC callback, LPARAM parameter) {
    if (current->windowsError != ERROR_SUCCESS) {
      FailureLedger::OfThisProgram().Failed("EnumWindows", current->windowsError);
      SetLastError(current->windowsError);
      return FALSE;
    }
    for (std::size_t i = 1; i <= current->windows.size(); ++i) {
      current->shown.push_back(Of(Handle(i)).title);
      if (!callback(Handle(i), parameter)) return FALSE;
    }
    return TRUE;
  }

  static DWORD WINAPI GetWindowThreadProcessId(HWND window, DWORD* id) {
    *id = Of(window).processId;
    return 1;
  }

  static HWND WINAPI GetWindow(HWND window, UINT command) {
    EXPECT_EQ(command, static_cast<UINT>(GW_OWNER));
    return Of(window).hasOwner ? Handle(99) : nullptr;
  }

  // As the system's: some value other than 0.
  static BOOL WINAPI IsWindowVisible(HWND window) { return Of(window).isVisible ? 16 : 0; }

  static int WINAPI GetWindowTextLengthW(HWND window) {
    const auto length = static_cast<int>(Of(window).title.size());
    current->measured_ = length;
    if (current->whenMeasured) current->whenMeasured();
    return length;
  }

  static int WINAPI GetWindowTextW(HWND window, wchar_t* text, int capacity) {
    const std::wstring& title = Of(window).title;
    EXPECT_EQ(capacity, current->measured_ + 1);
    std::copy_n(title.c_str(), title.size() + 1, text);
    return static_cast<int>(title.size());
  }

  // The list of processes, or the modules of one: the handle says which.
  static HANDLE WINAPI CreateToolhelp32Snapshot(DWORD flags, DWORD id) {
    current->snapshots.emplace_back(flags, id);
    if (!current->canSnapshot) {
      FailureLedger::OfThisProgram().Failed("CreateToolhelp32Snapshot", NO_LIST);
      SetLastError(NO_LIST);
      return INVALID_HANDLE_VALUE;
    }
    ++current->openSnapshots;
    if (flags == TH32CS_SNAPPROCESS) current->position_ = 0;
    return reinterpret_cast<HANDLE>(flags == TH32CS_SNAPPROCESS ? LIST : LIST + id);
  }

  static BOOL WINAPI Process32FirstW(HANDLE list, PROCESSENTRY32W* entry) {
    if (current->canReadFirst) return Process32NextW(list, entry);
    FailureLedger::OfThisProgram().Failed("Process32FirstW", ERROR_NO_MORE_FILES);
    SetLastError(ERROR_NO_MORE_FILES);
    return FALSE;
  }

  static BOOL WINAPI Process32NextW(HANDLE, PROCESSENTRY32W* entry) {
    FailureLedger::OfThisProgram().Happened("Process32NextW()");
    EXPECT_EQ(entry->dwSize, sizeof(*entry));
    if (current->position_ >= current->processes.size()) return FALSE;
    const Process& process = current->processes[current->position_++];
    entry->th32ProcessID = process.id;
    entry->th32ParentProcessID = process.parentId;
    std::copy_n(process.executable.c_str(), process.executable.size() + 1, entry->szExeFile);
    return TRUE;
  }

  static BOOL WINAPI Module32FirstW(HANDLE snapshot, MODULEENTRY32W* entry) {
    const auto id = static_cast<DWORD>(reinterpret_cast<std::size_t>(snapshot) - LIST);
    for (const Process& process : current->processes) {
      if (process.id != id) continue;
      std::copy_n(process.executable.c_str(), process.executable.size() + 1, entry->szModule);
      return TRUE;
    }
    return FALSE;
  }

  static BOOL WINAPI CloseHandle(HANDLE handle) {
    if (reinterpret_cast<std::size_t>(handle) < LIST) {
      return reinterpret_cast<decltype(&::CloseHandle)>(current->closeHandle_.Original())(handle);
    }
    --current->openSnapshots;
    return TRUE;
  }

  template <typename Function>
  static ImportPatch Replace(const char* name, Function* function) {
    return {GetModuleHandleW(nullptr), name, reinterpret_cast<void*>(function)};
  }

  static inline ScriptedDesktop* current = nullptr;
  static constexpr std::size_t LIST = 0x7000000;

  std::size_t position_ = 0;
  int measured_ = 0;
  ImportPatch enumWindows_ = Replace<decltype(::EnumWindows)>("EnumWindows", &EnumWindows);
  ImportPatch getWindowThreadProcessId_ =
      Replace<decltype(::GetWindowThreadProcessId)>("GetWindowThreadProcessId", &GetWindowThreadProcessId);
  ImportPatch getWindow_ = Replace<decltype(::GetWindow)>("GetWindow", &GetWindow);
  ImportPatch isWindowVisible_ = Replace<decltype(::IsWindowVisible)>("IsWindowVisible", &IsWindowVisible);
  ImportPatch getWindowTextLength_ =
      Replace<decltype(::GetWindowTextLengthW)>("GetWindowTextLengthW", &GetWindowTextLengthW);
  ImportPatch getWindowText_ = Replace<decltype(::GetWindowTextW)>("GetWindowTextW", &GetWindowTextW);
  ImportPatch createSnapshot_ =
      Replace<decltype(::CreateToolhelp32Snapshot)>("CreateToolhelp32Snapshot", &CreateToolhelp32Snapshot);
  ImportPatch process32First_ = Replace<decltype(::Process32FirstW)>("Process32FirstW", &Process32FirstW);
  ImportPatch process32Next_ = Replace<decltype(::Process32NextW)>("Process32NextW", &Process32NextW);
  ImportPatch module32First_ = Replace<decltype(::Module32FirstW)>("Module32FirstW", &Module32FirstW);
  ImportPatch closeHandle_ = Replace<decltype(::CloseHandle)>("CloseHandle", &CloseHandle);
};

class TitlesOfAProcess : public ::testing::Test {
 protected:
  TitlesOfAProcess() { SetLogSink(&Transcript::RecordLog, LOG_DETAIL); }
  ~TitlesOfAProcess() override {
    SetLogSink(nullptr, 0);
    EXPECT_EQ(desktop_.openSnapshots, 0);
    EXPECT_EQ(transcript_.Logs(), expectedLog_);
  }

  std::vector<std::wstring> Find(const wchar_t* name = L"chrome.exe") {
    code_ = PROXY_UNKNOWN;
    auto titles = ProcessMetadata(42, name).GetTabTitles(&code_);
    CameTo("GetTabTitles: " + std::to_string(titles.size()) + " titles, code " + std::to_string(code_));
    return titles;
  }

  static void NoteFailure(const std::string& what, const std::string& how) {
    FailureLedger::OfThisProgram().FailedOtherwise(what, how);
  }

  ScriptedDesktop desktop_;
  ResponseCode code_ = PROXY_UNKNOWN;
  // Looking for titles logs nothing of its own.
  Lines expectedLog_;

 private:
  Transcript transcript_;
};

TEST_F(TitlesOfAProcess, AreThatOfItsMainWindow) {
  desktop_.windows = {{41, L"Other"}, {42, L"Mail - Browser"}};
  EXPECT_THAT(Find(), ElementsAre(L"Mail - Browser"));
  EXPECT_EQ(code_, SUCCESS);
}

TEST_F(TitlesOfAProcess, AreOnlyTheFirstOfSeveral) {
  desktop_.windows = {{42, L"First"}, {42, L"Second"}};
  EXPECT_THAT(Find(), ElementsAre(L"First"));
  EXPECT_THAT(desktop_.shown, ElementsAre(L"First"));
  EXPECT_THAT(desktop_.snapshots, IsEmpty());
}

TEST_F(TitlesOfAProcess, AreWholeHoweverLong) {
  const std::wstring title(40'000, L't');
  desktop_.windows = {{42, title}};
  EXPECT_THAT(Find(), ElementsAre(title));
}

// The window changes its title as it likes.
TEST_F(TitlesOfAProcess, MayBeEmptyByTheTimeTheyAreRead) {
  desktop_.windows = {{42, L"Gone"}, {42, L"Second"}};
  desktop_.whenMeasured = [this] { desktop_.windows[0].title.clear(); };
  EXPECT_THAT(Find(), ElementsAre(L""));
  EXPECT_EQ(code_, SUCCESS);
}

// Nothing may be thrown through the system's own code.
TEST_F(TitlesOfAProcess, AreNoLongerSoughtWhenMemoryIsShort) {
  desktop_.windows = {{42, L"A title that no short string holds"}, {42, L"Second"}};
  desktop_.processes = {{42, 40, L"chrome.exe"}};
  const HeapWatch heap(GetModuleHandleW(nullptr));
  // The room for the text, the text that is kept, and the room for it in the list.
  for (const int allocation : {1, 2, 3}) {
    SCOPED_TRACE(allocation);
    desktop_.shown.clear();
    desktop_.shown.reserve(10);
    desktop_.whenMeasured = [allocation] {
      FailureLedger::OfThisProgram().Failed("malloc", ERROR_NOT_ENOUGH_MEMORY);
      HeapWatch::Begin(allocation);
    };
    EXPECT_THAT(Find(), IsEmpty());
    CameTo("Titles of a process: none, and those of its parent are sought");
    EXPECT_TRUE(HeapWatch::HasRefused());
    EXPECT_EQ(code_, TABTITLE_MAIN_WINDOWS_NOT_FOUND);
    // Then both again, for the parent, which owns neither.
    EXPECT_THAT(desktop_.shown, ElementsAre(desktop_.windows[0].title, desktop_.windows[0].title, L"Second"));
  }
}

TEST_F(TitlesOfAProcess, PassOverWindowsWithAnOwnerInvisibleOnesAndThoseWithoutATitle) {
  desktop_.windows = {{42, L"Dialog", true}, {42, L"Hidden", false, false}, {42, L""}, {42, L"Main"}};
  EXPECT_THAT(Find(), ElementsAre(L"Main"));
}

TEST_F(TitlesOfAProcess, AreNoneWhenItsOnlyMainWindowHasNone) {
  NoteFailure("Windows of a process and of its parent", "none has a title");
  desktop_.windows = {{42, L""}};
  desktop_.processes = {{42, 40, L"chrome.exe"}};
  EXPECT_THAT(Find(), IsEmpty());
  EXPECT_EQ(code_, TABTITLE_MAIN_WINDOWS_NOT_FOUND);
}

// Then its parent's are sought, in vain as well.
TEST_F(TitlesOfAProcess, AreNoneWhenTheWindowsCannotBeEnumerated) {
  desktop_.windowsError = ERROR_ACCESS_DENIED;
  desktop_.windows = {{42, L"Own"}, {40, L"Parent"}};
  desktop_.processes = {{42, 40, L"chrome.exe"}};
  EXPECT_THAT(Find(), IsEmpty());
  EXPECT_EQ(code_, TABTITLE_MAIN_WINDOWS_NOT_FOUND);
  EXPECT_THAT(desktop_.shown, IsEmpty());
  EXPECT_EQ(desktop_.snapshots.size(), 1U);
}

TEST_F(TitlesOfAProcess, AreItsParentsWhenItHasNoWindow) {
  desktop_.windows = {{4, L"Wrong"}, {40, L"Parent"}};
  desktop_.processes = {{4, 0, L"System"}, {42, 40, L"chrome.exe"}, {42, 4, L"again"}};
  EXPECT_THAT(Find(), ElementsAre(L"Parent"));
  EXPECT_EQ(code_, SUCCESS);
  const DWORD processList = TH32CS_SNAPPROCESS;
  EXPECT_THAT(desktop_.snapshots, ElementsAre(std::pair(processList, DWORD{0})));
}

TEST_F(TitlesOfAProcess, AreNotItsGrandparents) {
  desktop_.windows = {{30, L"Grandparent"}};
  desktop_.processes = {{40, 30, L"parent.exe"}, {42, 40, L"chrome.exe"}};
  EXPECT_THAT(Find(), IsEmpty());
  EXPECT_EQ(code_, TABTITLE_MAIN_WINDOWS_NOT_FOUND);
}

TEST_F(TitlesOfAProcess, AreNoneWhenItIsNotInTheList) {
  NoteFailure("Process whose titles are sought", "without a window, and not in the list");
  desktop_.windows = {{40, L"Parent"}};
  desktop_.processes = {{41, 40, L"chrome.exe"}};
  EXPECT_THAT(Find(), IsEmpty());
  EXPECT_EQ(code_, TABTITLE_MAIN_WINDOWS_NOT_FOUND);
}

TEST_F(TitlesOfAProcess, AreNoneWithoutAList) {
  desktop_.canSnapshot = false;
  desktop_.windows = {{40, L"Parent"}};
  EXPECT_THAT(Find(), IsEmpty());
  EXPECT_EQ(code_, TABTITLE_MAIN_WINDOWS_NOT_FOUND);
}

TEST_F(TitlesOfAProcess, AreNoneWhenTheListCannotBeRead) {
  desktop_.canReadFirst = false;
  desktop_.windows = {{40, L"Parent"}};
  desktop_.processes = {{42, 40, L"chrome.exe"}};
  EXPECT_THAT(Find(), IsEmpty());
  EXPECT_EQ(code_, TABTITLE_MAIN_WINDOWS_NOT_FOUND);
}

class TitlesOfAnEdgeProcess : public TitlesOfAProcess {
 protected:
  TitlesOfAnEdgeProcess() {
    desktop_.processes = {{42, 40, L"MicrosoftEdgeCP.exe"},
                          {50, 4, L"ApplicationFrameHost.exe"},
                          {51, 4, L"APPLICATIONFRAMEHOST.EXE"}};
  }

  // What looking processes up by name says of those found.
  const Lines added_ = {
      "log 7 Added process 50 ApplicationFrameHost.exe to list of processes to monitor",
      "log 7 Added process 51 APPLICATIONFRAMEHOST.EXE to list of processes to monitor",
  };
};

TEST_F(TitlesOfAnEdgeProcess, AreThoseOfTheFirstFrameHostThatHasOne) {
  desktop_.windows = {{42, L"Own"}, {40, L"Parent"}, {51, L"Frame"}};
  for (const wchar_t* name : {L"MicrosoftEdgeCP.exe", L"MicrosoftEdge.exe", L"C:\\x\\MicrosoftEdge.exe",
                              L"C:\\MicrosoftEdgeCP.exe\\y"}) {
    EXPECT_THAT(Find(name), ElementsAre(L"Frame"));
    EXPECT_EQ(code_, SUCCESS);
    expectedLog_.insert(expectedLog_.end(), added_.begin(), added_.end());
  }
}

TEST_F(TitlesOfAnEdgeProcess, AreOnlyThatOfTheFirstFrameHost) {
  desktop_.windows = {{51, L"Second host"}, {50, L"First host"}};
  EXPECT_THAT(Find(L"MicrosoftEdge.exe"), ElementsAre(L"First host"));
  expectedLog_ = added_;
}

TEST_F(TitlesOfAnEdgeProcess, GoByItsNameInThisCaseOnly) {
  desktop_.windows = {{42, L"Own"}, {50, L"Frame"}};
  EXPECT_THAT(Find(L"C:\\x\\microsoftedge.exe"), ElementsAre(L"Own"));
  EXPECT_THAT(Find(L"MicrosoftEdge"), ElementsAre(L"Own"));
  EXPECT_THAT(Find(nullptr), ElementsAre(L"Own"));
}

TEST_F(TitlesOfAnEdgeProcess, AreNoneWhenNoFrameHostRuns) {
  NoteFailure("Frame host", "none runs");
  desktop_.windows = {{42, L"Own"}};
  desktop_.processes.resize(1);
  EXPECT_THAT(Find(L"MicrosoftEdge.exe"), IsEmpty());
  EXPECT_EQ(code_, TABTITLE_NOAPP_FRAME_HOST);
}

TEST_F(TitlesOfAnEdgeProcess, AreNoneWhenNoFrameHostHasOne) {
  NoteFailure("Frame host", "none has a title");
  desktop_.windows = {{42, L"Own"}, {50, L""}};
  EXPECT_THAT(Find(L"MicrosoftEdge.exe"), IsEmpty());
  EXPECT_EQ(code_, TABTITLE_MAIN_WINDOWS_NOT_FOUND);
  expectedLog_ = added_;
}

TEST_F(TitlesOfAnEdgeProcess, AreNoneWithoutAList) {
  desktop_.canSnapshot = false;
  desktop_.windows = {{50, L"Frame"}};
  EXPECT_THAT(Find(L"MicrosoftEdge.exe"), IsEmpty());
  EXPECT_EQ(code_, TABTITLE_NOAPP_FRAME_HOST);
  ASSERT_EQ(desktop_.snapshots.size(), 1U);
  expectedLog_ = {"log 3 Could not get system snapshot. " + std::to_string(NO_LIST)};
}

TEST_F(TitlesOfAnEdgeProcess, AreThoseOfTheFirst32FrameHostsOnly) {
  desktop_.processes.clear();
  for (DWORD id = 100; id < 133; ++id) desktop_.processes.push_back({id, 4, L"ApplicationFrameHost.exe"});
  NoteFailure("Frame host", "only the 33rd has a title");
  desktop_.windows = {{132, L"Frame 33"}};
  EXPECT_THAT(Find(L"MicrosoftEdge.exe"), IsEmpty());
  EXPECT_EQ(code_, TABTITLE_MAIN_WINDOWS_NOT_FOUND);
  desktop_.windows = {{131, L"Frame 32"}};
  EXPECT_THAT(Find(L"MicrosoftEdge.exe"), ElementsAre(L"Frame 32"));
  for (int search = 0; search < 2; ++search) {
    for (int id = 100; id < 131; ++id) {
      expectedLog_.push_back("log 7 Added process " + std::to_string(id) +
                             " ApplicationFrameHost.exe to list of processes to monitor");
    }
    expectedLog_.push_back("log 3 More processes than we have room for.");
  }
}

TEST_F(TitlesOfAProcess, ComeFromAWindowWithoutAnOwnerThatIsVisible) {
  desktop_.windows = {{1, L""}, {1, L"", true}, {1, L"", false, false}};
  EXPECT_EQ(ProcessMetadata::IsMainWindow(ScriptedDesktop::Handle(1)), 1);
  EXPECT_EQ(ProcessMetadata::IsMainWindow(ScriptedDesktop::Handle(2)), 0);
  EXPECT_EQ(ProcessMetadata::IsMainWindow(ScriptedDesktop::Handle(3)), 0);
}

TEST(TheProcessMetadataClass, NamesTheProcessesThatItKnows) {
  EXPECT_STREQ(ProcessMetadata::EDGE_PROCESS_NAME, L"MicrosoftEdgeCP.exe");
  EXPECT_STREQ(ProcessMetadata::ALT_EDGE_PROCESS_NAME, L"MicrosoftEdge.exe");
  EXPECT_STREQ(ProcessMetadata::APP_FRAME_HOST_NAME, L"ApplicationFrameHost.exe");
}

TEST(TheProcessMetadataClass, IsCopiedAndMovedLikeAnyValue) {
  EXPECT_TRUE(std::is_copy_constructible_v<ProcessMetadata>);
  EXPECT_TRUE(std::is_copy_assignable_v<ProcessMetadata>);
  EXPECT_TRUE(std::is_nothrow_move_constructible_v<ProcessMetadata>);
  EXPECT_TRUE(std::is_nothrow_move_assignable_v<ProcessMetadata>);
}

}  // namespace

}  // namespace ostrel::test
