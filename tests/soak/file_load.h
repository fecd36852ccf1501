#ifndef OSTREL_TESTS_SOAK_FILE_LOAD_H
#define OSTREL_TESTS_SOAK_FILE_LOAD_H

#include <cstdint>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "driver_link.h"
#include "soak/file_books.h"
#include "stand_in_process.h"

namespace ostrel::test {

// Processes under the names that matter to the library, in a folder of their own.
class Actors {
 public:
  explicit Actors(const std::filesystem::path& folder);

  DWORD App() const { return app_.Id(); }
  DWORD Other() const { return other_.Id(); }
  DWORD Chrome() const { return chrome_.Id(); }
  DWORD Firefox() const { return firefox_.Id(); }
  DWORD Talker() const { return talker_.Id(); }
  // As one that has gone: no process is given so high an id, but that of one which ran is given to another in
  // the course of a long run.
  DWORD Gone() const { return 0x7FFFFFFC; }

  // A new process, for the caller to end.
  lab::StandInProcess StartMortal() const;

  const wchar_t* ImageOf(DWORD process) const;

 private:
  std::filesystem::path folder_;
  lab::StandInProcess app_;
  lab::StandInProcess other_;
  lab::StandInProcess chrome_;
  lab::StandInProcess firefox_;
  lab::StandInProcess talker_;
};

// Sends file events of every kind through the stand-in minifilter and enters them in the books. Which kind
// comes next is drawn, from the same seed in every run.
//
// An event is due at once, so that any pass of the disk event thread may end its merging, or far in the
// future, so that it stays cached until an event that is due joins it.
class FileLoad {
 public:
  FileLoad(FileBooks& books, const Actors& actors, std::filesystem::path folder, std::uint64_t now);

  // Times of events that are due.
  static std::uint64_t DueTime(std::uint64_t now) { return now - DAY_MILLISECONDS; }

  // A burst of so many events.
  void SendBurst(std::size_t count, DWORD mortal, bool mortalRuns);
  // Reads of one file by two processes, for which the helper is asked.
  void SendReadsOfNewFile(std::size_t count);
  // Makes what is in the future due, but for what is kept, and writes files.
  void SendLastOfRound();
  // Reads of the files just written, once those have been reported.
  void SendReadsOfReportedFiles();
  void SendLastOfKept();
  // An event that the library hands on after everything that is due when its pass begins.
  std::uint32_t SendSentinel();

  // Until the library has acknowledged and handled everything.
  bool WaitUntilHandled();
  OstrelLabStatus Status() { return driver_.Status(); }

 private:
  static constexpr std::uint64_t DAY_MILLISECONDS = 86'400'000;

  enum class When { DUE, LATER };
  struct Sender {
    DWORD process;
    std::wstring file;
    std::int32_t type;
  };

  void AddDrawn(DWORD mortal, bool mortalRuns);
  void AddOfOrdinaryKind(std::uint32_t drawn);
  void AddOfLostKind(std::uint32_t drawn, DWORD mortal, bool mortalRuns);
  std::uint32_t Add(const Sender& sender, When when = When::DUE, Silence silence = Silence::NONE);
  void Submit();
  std::wstring AnyOf(const std::wstring& kind, std::uint32_t count);
  std::wstring OnlyOne(const std::wstring& kind);
  std::wstring Path(const std::wstring& kind, std::uint32_t number) const;
  std::wstring WrittenInRound(std::uint32_t round, std::uint32_t number) const;
  void MakeFiles() const;
  std::uint32_t Draw(std::uint32_t below);

  FileBooks& books_;
  const Actors& actors_;
  const std::filesystem::path folder_;
  const std::uint64_t now_;
  lab::DriverLink driver_;
  std::mt19937 random_{20240501};
  std::uint32_t lastNumber_ = 0;
  std::uint32_t newFiles_ = 0;
  std::uint32_t onlyOnes_ = 0;
  std::uint32_t sentinels_ = 0;
  std::uint32_t rounds_ = 0;
  std::vector<OstrelLabEvent> burst_;
};

}  // namespace ostrel::test

#endif
