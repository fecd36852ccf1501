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
  OstrelLabPacketRecord Next(DWORD process, Process state);

  RecordBooks& books_;
  const Actors& actors_;
  const std::uint64_t now_;
  lab::NetworkLink driver_;
  std::uint64_t lastNumber_ = 0;
};

}  // namespace ostrel::test

#endif
