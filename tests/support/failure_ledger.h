#ifndef OSTREL_TESTS_SUPPORT_FAILURE_LEDGER_H
#define OSTREL_TESTS_SUPPORT_FAILURE_LEDGER_H

#include <windows.h>

#include <concepts>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "support/lock.h"

namespace ostrel::test {

// What the tests of this program make fail and what came of it each time. When the environment variable
// OSTREL_FAILURE_LEDGER names a file, the program leaves it there at its end, as rows of docs/failures.md.
//
// A row begins when a scripted call fails. To it belong the log lines that the same thread writes up to its
// next call, of which those that only release something do not count; on the test's own thread also every
// later line that is not mere detail, up to the result, and as often as it comes. Lines other than errors
// that are also written where nothing has failed do not count, but for an input that fails without any call.
// A failure that repeats itself before there is a result adds to its row.
//
// A row names the tests that it came from, at most three: first those that say that they are about such
// failures, then those with the fewest other rows.
class FailureLedger {
 public:
  static FailureLedger& OfThisProgram();

  // By what stands in for the system.
  void Failed(const std::string& function, DWORD code);
  // One that happens whether a test is about it or not, such as that of a file that is not there, and that
  // counts only in a test that says so.
  void FailedByTheWay(const std::string& function, DWORD code);
  void FailedByTheWay(const std::string& function, const std::string& how);
  // One line of a transcript: a call, or a log line ("log 3 ...").
  void Happened(std::string_view line);

  // By tests.

  // This test is about failures of the function also where they come by the way.
  void Concerns(const std::string& function);
  // What makes the test's input a failure that no call reports.
  void FailedOtherwise(const std::string& what, const std::string& how);
  // What the failures since the last result came to.
  void CameTo(const std::string& result);
  // Of several readings of what this test's failure of the function should come to, the one taken.
  void Chosen(const std::string& function, const std::string& reading);
  // What has failed so far only sets the stage for this test, and is no row of it.
  void SetTheStage();

 private:
  class Listener;

  struct LogLine {
    std::string text;  // as the transcript has it
    int count;
  };
  struct Row {
    std::string call;
    std::string failure;
    std::vector<LogLine> log;
    std::string result;
    int thread = 0;
    bool isDirect = true;  // no call came after it
    bool isInput = false;  // not a call's failure
    bool isOpen = true;
  };

  FailureLedger();
  // A row of a test that has ended.
  struct Entry {
    Row row;
    std::string test;
    std::string reading;
    bool isConcern;
  };
  // What the page makes of one or more entries.
  struct PageRow {
    std::set<std::string> readings;
    std::map<std::string, bool> tests;  // and whether they are about it
  };
  using Page = std::map<std::string, PageRow>;

  void Begin(const std::string& call, const std::string& failure, bool isInput = false);
  void AddLog(Row& row, std::string_view line) const;
  void BeginTest(const std::string& name);
  void EndTest();
  void Write() const;
  Page MakePage() const;
  std::string Text(const Row& row) const;

  mutable Lock lock_;
  std::string test_;
  int testThread_ = 0;
  bool hasFailed_ = false;        // anything in the running test
  std::set<int> failedSilently_;  // threads whose last call failed and is no row
  std::vector<Row> rows_;         // of the running test
  std::set<std::string> concerns_;
  std::map<std::string, std::string> readings_;
  std::vector<Entry> entries_;
  std::set<std::string, std::less<>> usualLines_;  // written where nothing has failed
};

// A system's code as people know it: small ones in decimal, others in hexadecimal.
std::string CodeText(DWORD code);

// Enter what a call under test returned into the ledger, and return it.
std::string Returned(const std::string& call, const std::string& result);
std::wstring Returned(const std::string& call, const std::wstring& result);
template <std::integral Result>
Result Returned(const std::string& call, Result result) {
  // A byte is true or false.
  const std::string text =
      sizeof(Result) == 1 ? (result != 0 ? "true" : "false") : CodeText(static_cast<DWORD>(result));
  FailureLedger::OfThisProgram().CameTo(call + ": " + text);
  return result;
}

// For a call that returns nothing.
void CameTo(const std::string& result);

}  // namespace ostrel::test

#endif
