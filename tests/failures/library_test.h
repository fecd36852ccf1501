#ifndef OSTREL_TESTS_FAILURES_LIBRARY_TEST_H
#define OSTREL_TESTS_FAILURES_LIBRARY_TEST_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "support/failure_ledger.h"
#include "support/library_copy.h"
#include "support/scripted_system.h"
#include "support/scripted_user_session.h"

namespace ostrel::test {

// The DLL in its initial state on a scripted system, where nobody is logged on.
class LibraryTest : public ::testing::Test {
 protected:
  LibraryTest() { system_.imageNames = {{42, L"\\Device\\HarddiskVolume3\\chrome.exe"}}; }

  bool Load(std::uint32_t level = 7) {
    return Returned("LoadDriver", library_.LoadDriver(&Transcript::RecordLog, level)) == 1;
  }
  bool Unload() { return Returned("UnloadDriver", library_.UnloadDriver()) == 1; }

  // What this thread's calls of the library came to, with the library's folder as "<library>".
  Lines Calls() const {
    Lines calls = system_.transcript.OfThisThread();
    const std::string directory = Narrow(library_.Directory());
    for (std::string& call : calls) {
      for (auto at = call.find(directory); at != std::string::npos; at = call.find(directory)) {
        call.replace(at, directory.size(), "<library>");
      }
    }
    return calls;
  }

  // The log lines that this thread's calls brought about.
  Lines Logs() const {
    Lines lines = system_.transcript.OfThisThread();
    lines.erase(std::remove_if(lines.begin(), lines.end(),
                               [](const std::string& line) { return !line.starts_with("log "); }),
                lines.end());
    return lines;
  }

  void Forget() { system_.transcript.Clear(); }

  LibraryCopy library_;
  // Outlives the library's threads, which end with the system.
  ScriptedUserSession session_{library_.Module(),
                               [this](std::string line) { system_.transcript.Add(std::move(line)); }};
  ScriptedSystem system_{library_.Module()};
};

inline Lines operator+(Lines left, const Lines& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

// Asking for tab titles where nobody is logged on.
inline Lines TitlesLookUp() {
  const Lines randomId = {"HeapAlloc(32)", "BCryptGenRandom(null, 32, 0x2)"};
  return randomId + randomId + randomId +
         Lines{"WTSEnumerateSessionsW(here, 0, version 1)", "WTSFreeMemory(session list)",
               "log 6 No one logged in", "log 3 Could not successfully spawn a sub-process"};
}

inline Lines PrivilegeCalls() {
  return {"OpenProcessToken(current process, 0x28)", "LookupPrivilegeValueW(null, SeLoadDriverPrivilege)",
          "AdjustTokenPrivileges(token, disable all 0, count 1, privilege 10, attributes 2)",
          "CloseHandle(token)"};
}

}  // namespace ostrel::test

#endif
