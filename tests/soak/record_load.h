#ifndef OSTREL_TESTS_SOAK_RECORD_LOAD_H
#define OSTREL_TESTS_SOAK_RECORD_LOAD_H

#include <cstdint>

#include "network_link.h"
#include "soak/file_load.h"
#include "soak/record_books.h"

namespace ostrel::test {

// Sends packet records of every kind through the stand-in network driver and enters them in the books.
//
// The flood's streams last, and are purged when a record that is long past joins each of them; the other
// records are long past from the start, and any pass of the disk event thread may purge their streams.
class RecordLoad {
 public:
  // Of the one process that has both files to upload and streams that go out.
  static constexpr std::int32_t APP_PORT = 1000;

  RecordLoad(RecordBooks& books, const Actors& actors, std::uint64_t now);

  // So many records of a running process, as fast as the library takes them.
  void StartFlood(std::uint64_t count);
  // Some records of running processes, of one that has gone, and of one that may go. They come in between
  // those of a flood.
  void SendPortion(DWORD mortal, bool mortalRuns);
  // Joins the flood's streams, once all of it has been handled.
  void SendLastOfRound();

  // Until the library has filed or dropped everything.
  bool WaitUntilHandled();
  OstrelLabNetworkStatus Status() { return driver_.Status(); }

 private:
  struct Stream {
    bool isUpload;
    std::int32_t port;
  };
  // Each actor has ports of its own.
  static constexpr Stream APP{true, APP_PORT};
  static constexpr Stream CHROME{false, 2000};
  static constexpr Stream GONE{true, 3000};
  static constexpr Stream MORTAL{true, 4000};
  static constexpr Stream TALK{true, 5000};

  OstrelLabPacketRecord Next(DWORD process, Process state, Stream stream);
  OstrelLabPacketRecord Record(std::uint64_t number, DWORD process, Stream stream) const;

  RecordBooks& books_;
  const Actors& actors_;
  const std::uint64_t now_;
  lab::NetworkLink driver_;
  std::uint64_t lastNumber_ = 0;
};

}  // namespace ostrel::test

#endif
