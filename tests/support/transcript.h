#ifndef OSTREL_TESTS_SUPPORT_TRANSCRIPT_H
#define OSTREL_TESTS_SUPPORT_TRANSCRIPT_H

#include <windows.h>

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "support/lock.h"

namespace ostrel::test {

using Lines = std::vector<std::string>;

std::string Narrow(std::wstring_view text);

// Calls of the system, log lines ("log 6 ...") and whatever else happened, in order, with the thread each
// happened on.
class Transcript {
 public:
  void Add(std::string line);

  // Everything that happened on one thread.
  Lines Of(DWORD threadId) const;
  Lines OfThisThread() const { return Of(GetCurrentThreadId()); }

  // The lines that start with `prefix`, on whatever thread.
  Lines StartingWith(std::string_view prefix) const;
  Lines Logs() const { return StartingWith("log "); }

  // Waits until at least `count` lines start with `prefix`.
  bool WaitFor(std::string_view prefix, std::size_t count = 1,
               std::chrono::milliseconds patience = PATIENCE) const;

  void Clear();

  // To be given to the code under test as its log callback; writes to the newest transcript.
  static void RecordLog(const wchar_t* text, std::uint32_t level);

  Transcript();
  Transcript(const Transcript&) = delete;
  Transcript& operator=(const Transcript&) = delete;
  ~Transcript();

 private:
  struct Entry {
    DWORD threadId;
    std::string text;
  };

  mutable Lock lock_;
  std::vector<Entry> entries_;
};

}  // namespace ostrel::test

#endif
