#ifndef OSTREL_NETWORK_PACKET_READER_H
#define OSTREL_NETWORK_PACKET_READER_H

#include <windows.h>

#include <atomic>
#include <memory>

#include "network/network_event_cache.h"

namespace ostrel {

// Set when nobody waits for a reader any longer. It outlives whoever started the reader and the reader
// itself.
using GivenUpFlag = std::shared_ptr<std::atomic<bool>>;

// Keeps 63 read requests pending on the network driver's device and files every packet record into one of two
// caches.
class PacketReader {
 public:
  // `device` is open for overlapped requests; `stop` is signalled to end. Once `givenUp` is set the device
  // counts as closed: no further record is filed and no request issued.
  PacketReader(HANDLE device, HANDLE stop, GivenUpFlag givenUp, NetworkEventCache& uploads,
               NetworkEventCache& downloads);

  // Runs on its own thread: the requests it cancels are the calling thread's. Returns the thread's exit code.
  DWORD Run();

 private:
  class Requests;

  void File(const struct PacketRecord& record, HANDLE process);

  HANDLE device_;
  HANDLE stop_;
  GivenUpFlag givenUp_;
  NetworkEventCache& uploads_;
  NetworkEventCache& downloads_;
};

// Starts and stops the reader's thread. Not synchronised: the caller serialises.
//
// Each start makes a stop event and a thread and forgets those before; both handles stay open, since a reader
// that did not end in time may still use them.
class PacketReaderThread {
 public:
  PacketReaderThread(NetworkEventCache& uploads, NetworkEventCache& downloads);
  PacketReaderThread(const PacketReaderThread&) = delete;
  PacketReaderThread& operator=(const PacketReaderThread&) = delete;

  bool Start(HANDLE device);

  // Waits at most three seconds, then gives the reader up.
  void Stop();

 private:
  // Null when it fails, with the last error set.
  HANDLE StartReader(HANDLE device);

  NetworkEventCache& uploads_;
  NetworkEventCache& downloads_;
  HANDLE stopEvent_ = nullptr;
  HANDLE thread_ = nullptr;
  GivenUpFlag givenUp_;
};

}  // namespace ostrel

#endif
