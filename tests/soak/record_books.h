#ifndef OSTREL_TESTS_SOAK_RECORD_BOOKS_H
#define OSTREL_TESTS_SOAK_RECORD_BOOKS_H

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "support/lock.h"

namespace ostrel::test {

// Whether a record may pass without a log line, because its process cannot be opened.
enum class Process { RUNS, MAY_BE_GONE, IS_GONE };

// The books over packet records. A record's number of bytes stands for it: no two records have the same.
class RecordBooks {
 public:
  // What the lines about a record must say.
  struct Sender {
    const wchar_t* image;
    bool isUpload;
    std::int32_t port;
    // Record i of several has port `port` + i modulo so many.
    std::uint32_t ports = 1;
  };
  // Records `first` to `first` + `count` - 1.
  void Send(std::uint64_t first, std::uint64_t count, const Sender& sender, Process process);

  // Called by the library's threads. Texts come without the library's prefix.
  void TakeLine(std::wstring_view line);

  // True when every byte that was filed has been purged with its stream.
  bool IsAllPurged();

  // When nothing is under way any more: what was not filed was dropped with its process, or is an error.
  void CloseRound();

  struct Counts {
    std::uint64_t sent = 0;
    std::uint64_t filed = 0;
    std::uint64_t dropped = 0;
  };
  Counts Read();
  // The first few ways in which the books do not balance.
  std::vector<std::string> Errors();

 private:
  struct Sent {
    const wchar_t* image;
    bool isUpload;
    std::int32_t port;
    Process process;
  };

  // Direction, process, address with port, and the number.
  void TakeFiled(std::wstring_view line);
  void Compare(const Sent& sent, std::wstring_view line, std::uint64_t number);
  void AddError(const std::string& what, std::uint64_t number);

  Lock lock_;
  std::vector<Sent> open_;  // of this round, from first_ on
  std::vector<bool> isFiled_;
  std::uint64_t first_ = 0;
  Counts counts_;
  std::uint64_t filedBytes_ = 0;
  std::uint64_t purgedBytes_ = 0;
  std::vector<std::string> errors_;
};

}  // namespace ostrel::test

#endif
