#include "drivers.h"

#include "progress.h"
#include "text.h"

namespace ostrel::lab {

namespace {

constexpr DWORD POLL_MS = 10;
constexpr ULONGLONG HANDLING_LIMIT_MS = 60000;

// Complains when nothing has moved for a minute.
class StandstillLimit {
 public:
  void Check(std::uint64_t moved, const std::string& left) {
    const ULONGLONG now = GetTickCount64();
    if (moved != moved_) lastMove_ = now;
    moved_ = moved;
    if (now - lastMove_ >= HANDLING_LIMIT_MS) throw LabError("the host does not go on: " + left);
    progress_.Say("waiting for the host to finish: " + left);
  }

 private:
  Progress progress_;
  ULONGLONG lastMove_ = GetTickCount64();
  std::uint64_t moved_ = 0;
};

std::uint64_t LeftOf(const OstrelLabNetworkStatus& status) {
  return status.queued + status.floodRemaining;
}

}  // namespace

void Drivers::Submit(const std::vector<OstrelLabEvent>& events) {
  const ULONGLONG deadline = GetTickCount64() + HANDLING_LIMIT_MS;
  while (GetTickCount64() < deadline) {
    if (minifilter.TrySubmit(events)) return;
    Sleep(POLL_MS);
  }
  // The last try says what is wrong.
  minifilter.Submit(events);
}

void Drivers::Submit(const std::vector<OstrelLabPacketRecord>& records) {
  StandstillLimit limit;
  for (;; Sleep(POLL_MS)) {
    const OstrelLabNetworkStatus status = network->Status();
    // Nobody else adds records, so room that there is stays.
    if (status.queued + records.size() <= OSTREL_LAB_NETWORK_QUEUE_CAPACITY) return network->Submit(records);
    limit.Check(status.completed, std::to_string(status.queued) + " packet records queued");
  }
}

void Drivers::WaitUntilHandled() {
  WaitUntilEventsAreHandled();
  if (network) WaitUntilRecordsAreHandled();
}

void Drivers::WaitUntilEventsAreHandled() {
  StandstillLimit limit;
  for (;; Sleep(POLL_MS)) {
    const OstrelLabStatus status = minifilter.Status();
    if (status.queued == 0 && status.outstanding == 0 && status.waitingRequests != 0) return;
    if (status.clientConnected == 0) throw LabError("the host went away before it had handled every event");
    limit.Check(status.acknowledged, std::to_string(status.queued) + " events queued, " +
                                         std::to_string(status.outstanding) + " not acknowledged");
  }
}

// A record has been filed when its request is back, and so all have when every request is.
void Drivers::WaitUntilRecordsAreHandled() {
  StandstillLimit limit;
  for (;; Sleep(POLL_MS)) {
    const OstrelLabNetworkStatus status = network->Status();
    if (LeftOf(status) == 0 && status.pendingRequests >= OSTREL_LAB_NETWORK_READ_REQUESTS) return;
    if (status.enabled == 0) throw LabError("the host went away before it had taken every packet record");
    limit.Check(status.completed, std::to_string(LeftOf(status)) + " packet records to come, " +
                                      std::to_string(status.pendingRequests) + " read requests waiting");
  }
}

}  // namespace ostrel::lab
