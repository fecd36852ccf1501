#ifndef OSTREL_DETECT_DISK_EVENT_THREAD_H
#define OSTREL_DETECT_DISK_EVENT_THREAD_H

#include <windows.h>

#include "detect/disk_event_worker.h"

namespace ostrel {

// Runs a pass of the worker every second. Not synchronised: the caller serialises Start and Stop.
class DiskEventThread {
 public:
  explicit DiskEventThread(DiskEventWorker& worker);
  DiskEventThread(const DiskEventThread&) = delete;
  DiskEventThread& operator=(const DiskEventThread&) = delete;

  // False when a thread is still held or none can be created. The first pass comes a second later. Each start
  // makes its own stop event and leaves the one before it open: a thread that did not end in time may still
  // wait on that.
  bool Start();

  // Waits at most three seconds. A thread that does not end by then, as when the host's callback blocks,
  // stays held, and the next start is refused.
  void Stop();

 private:
  struct Run;

  DiskEventWorker& worker_;
  HANDLE stopEvent_ = nullptr;
  HANDLE thread_ = nullptr;
};

}  // namespace ostrel

#endif
