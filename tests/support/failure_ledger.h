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
// next call, of which those that only release something do not count, and every error line that the test's
// own thread writes after that, up to the result. A failure that repeats itself before there is a result adds
// to its row.
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

 private:
  class Listener;

  struct Row {
    std::string call;
    std::string failure;
    std::vector<std::string> log;
    std::string result;
    int thread = 0;
    bool isDirect = true;  // no call came after it
    bool isOpen = true;
  };

  FailureLedger();
  void Begin(const std::string& call, const std::string& failure);
  void BeginTest(const std::string& name);
  void EndTest();
  void Write() const;
  static std::string Text(const Row& row, const std::string& reading);

  mutable Lock lock_;
  std::string test_;
  int testThread_ = 0;
  std::vector<Row> rows_;  // of the running test
  std::set<std::string> concerns_;
  std::map<std::string, std::string> readings_;
  // The tests that each row came from, and how many different rows each of them has.
  std::map<std::string, std::set<std::string>> tests_;
  std::map<std::string, std::size_t> rowCounts_;
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
