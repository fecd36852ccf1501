#ifndef OSTREL_TESTS_SOAK_FILE_BOOKS_H
#define OSTREL_TESTS_SOAK_FILE_BOOKS_H

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "support/lock.h"

namespace ostrel::test {

// What becomes of a file event. Each ends in exactly one of these ways.
enum class Ending {
  OF_NO_INTEREST,  // by the suffix of its file; without a log line
  PROCESS_GONE,    // without a log line
  UNKNOWN_TYPE,
  QUERY,              // counted by the query cache
  WITHDRAWING_QUERY,  // a query that withdrew a cached read
  NO_REAL_UPLOAD,
  MERGED,  // into a cached event, whose last event has the ending of the whole; the read size counts it
  TAKEN_AS_MERGED,  // the same, but nothing counts it: a later event of its file and process was reported
  REPORTED,
  INCOMPLETE,
  DIRECTORY,
  DUPLICATE,
  WITHDRAWN,         // a read, by a write or a query of its own process
  ALREADY_REPORTED,  // a read of a file just reported as written; without a log line
};
constexpr std::size_t ENDINGS = 14;
const char* NameOf(Ending ending);

// What may become of an event without the library saying so.
enum class Silence {
  NONE,
  OF_NO_INTEREST,
  GONE,        // its process has gone
  MAYBE_GONE,  // its process is about to go
  DIRECTORY,   // said without a name
  DUPLICATE,   // said with the file's name only
  ALREADY_REPORTED,
  KEPT,  // it stays cached beyond its round
};

// The books over file events: each is entered when it is sent and struck off when the log or a callback tells
// of its end. A number stands for an event; it travels in the message's detail value and in its time.
//
// Every read is of one byte, so an upload's read size is the number of events in it.
class FileBooks {
 public:
  // Times of due events are this plus their number; `user` is whose processes send them.
  FileBooks(std::uint64_t dueTime, std::wstring user) : dueTime_(dueTime), user_(std::move(user)) {}

  // By a process of that image.
  void Send(std::uint32_t number, std::wstring_view image, Silence silence);

  // Called by the library's threads. Texts come without the library's prefix.
  void TakeLine(std::wstring_view line);
  struct Told {
    std::wstring_view file;
    std::wstring_view process;
    std::wstring_view user;
    std::uint64_t endTime;
    std::uint32_t type;
  };
  void TakeReport(const Told& told);

  // True when that event has ended.
  bool HasEnded(std::uint32_t number);

  // When nothing is under way any more: strikes off what ends silently. What is not accounted for is an
  // error.
  void CloseRound();

  using Counts = std::array<std::uint64_t, ENDINGS>;
  std::uint64_t Sent();
  Counts Ended();
  // Events that are cached still.
  std::uint64_t Cached();
  // The first few ways in which the books do not balance.
  std::vector<std::string> Errors();

 private:
  enum class Cache { UPLOADS, DOWNLOADS, CLOUD };
  struct Key {
    Cache cache;
    std::wstring file;
    std::wstring process;
    auto operator<=>(const Key&) const = default;
  };
  // Withdrawing begins a new generation: what comes later is no part of what was cached before.
  struct Filed {
    std::uint32_t number;
    std::uint32_t generation;
  };
  struct Entry {
    std::vector<Filed> filed;
    std::uint32_t generation = 0;
  };
  struct Upload {
    std::wstring file;
    std::wstring process;
    std::size_t reads = 0;
  };
  using Span = std::vector<Filed>::const_iterator;

  struct OpenEvent {
    std::wstring image;
    Silence silence;
  };

  void TakeReceived(std::wstring_view rest);
  void File(std::int32_t type, std::wstring_view file, std::wstring_view process);
  void TakeWithdrawal();
  void TakeNoRealUpload();
  void TakeDetection(std::wstring_view rest);
  void TakeReadSize(std::wstring_view rest);
  void TakeIncomplete();
  void TakeDuplicate(std::wstring_view file);
  void Report(Cache cache, std::wstring_view file, std::wstring_view process, std::uint32_t number);
  Span EndEarlierGenerations(const Entry& entry, std::uint32_t generation);
  Span EndDuplicateBefore(const std::wstring& file, Span begin, Span end, std::size_t reads);
  void CloseEntry(const Key& key, Entry& entry);
  // The last one so, those before it merged into it.
  void EndTogether(Span begin, Span end, Ending ending, Ending merged = Ending::TAKEN_AS_MERGED);
  void End(std::uint32_t number, Ending ending);
  void AddError(const std::string& what, std::wstring_view about);

  const std::uint64_t dueTime_;
  const std::wstring user_;
  Lock lock_;
  std::unordered_map<std::uint32_t, OpenEvent> open_;
  std::map<Key, Entry> entries_;
  Counts ended_{};
  std::uint64_t sent_ = 0;
  std::vector<std::string> errors_;

  // What the notification thread is at.
  std::uint32_t received_ = 0;
  Key receivedKey_{};
  // What the disk event thread is at.
  Upload reporting_;
  std::map<std::wstring, std::size_t, std::less<>> duplicates_;
  std::size_t directories_ = 0;
};

}  // namespace ostrel::test

#endif
