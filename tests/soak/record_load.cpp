#include "soak/record_load.h"

#include <chrono>
#include <stdexcept>
#include <utility>
#include <vector>

#include "support/lock.h"

namespace ostrel::test {

namespace {

constexpr std::uint32_t FLOOD_PORTS = 50;
constexpr std::uint64_t DAY_MILLISECONDS = 86'400'000;
constexpr std::uint32_t DOCUMENTATION_ADDRESS = 0xC0000201;
// Has a name that is found without asking anybody.
constexpr std::uint32_t LOOPBACK = 0x7F000001;

lab::NetworkLink OpenDriver() {
  auto driver = lab::NetworkLink::TryOpen();
  if (!driver) throw std::runtime_error("the network driver does not run");
  return std::move(*driver);
}

}  // namespace

RecordLoad::RecordLoad(RecordBooks& books, const Actors& actors, std::uint64_t now)
    : books_(books), actors_(actors), now_(now), driver_(OpenDriver()) {}

OstrelLabPacketRecord RecordLoad::Next(DWORD process, Process state, Stream stream) {
  books_.Send(++lastNumber_, 1, {actors_.ImageOf(process), stream.isUpload, stream.port}, state);
  return Record(lastNumber_, process, stream);
}

OstrelLabPacketRecord RecordLoad::Record(std::uint64_t number, DWORD process, Stream stream) const {
  OstrelLabPacketRecord record{};
  record.bytes = number;
  record.ipv4 = LOOPBACK;
  record.port = stream.port;
  record.isUpload = stream.isUpload ? 1 : 0;
  record.processId = process;
  record.time = now_ - DAY_MILLISECONDS;
  record.ipVersion = OSTREL_LAB_IPV4;
  return record;
}

void RecordLoad::StartFlood(std::uint64_t count) {
  OstrelLabFlood flood{};
  flood.count = count;
  flood.bytesStep = 1;
  flood.ports = FLOOD_PORTS;
  flood.first = Record(lastNumber_ + 1, actors_.Talker(), TALK);
  flood.first.ipv4 = DOCUMENTATION_ADDRESS;
  flood.first.time = now_ + DAY_MILLISECONDS;
  books_.Send(lastNumber_ + 1, count,
              {actors_.ImageOf(actors_.Talker()), TALK.isUpload, TALK.port, FLOOD_PORTS}, Process::RUNS);
  lastNumber_ += count;
  driver_.Flood(flood);
}

void RecordLoad::SendPortion(DWORD mortal, bool mortalRuns) {
  constexpr int OF_EACH = 10;
  std::vector<OstrelLabPacketRecord> records;
  for (int i = 0; i < OF_EACH; ++i) {
    records.push_back(Next(actors_.App(), Process::RUNS, APP));
    records.push_back(Next(actors_.Chrome(), Process::RUNS, CHROME));
    records.back().ipVersion = OSTREL_LAB_IPV6;
    records.back().ipv6[15] = 1;
    records.push_back(Next(actors_.Gone(), Process::IS_GONE, GONE));
    records.push_back(Next(mortal, mortalRuns ? Process::MAY_BE_GONE : Process::IS_GONE, MORTAL));
  }
  driver_.Submit(std::move(records));
}

void RecordLoad::SendLastOfRound() {
  std::vector<OstrelLabPacketRecord> records;
  for (std::uint32_t i = 0; i < FLOOD_PORTS; ++i) {
    const auto port = TALK.port + static_cast<std::int32_t>(i);
    records.push_back(Next(actors_.Talker(), Process::RUNS, {TALK.isUpload, port}));
    records.back().ipv4 = DOCUMENTATION_ADDRESS;
  }
  driver_.Submit(std::move(records));
}

bool RecordLoad::WaitUntilHandled() {
  const auto deadline = std::chrono::steady_clock::now() + 6 * PATIENCE;
  while (std::chrono::steady_clock::now() < deadline) {
    const OstrelLabNetworkStatus status = driver_.Status();
    // A request waits again only when the record that it got before has been filed or dropped.
    if (status.floodRemaining == 0 && status.queued == 0 &&
        status.pendingRequests == OSTREL_LAB_NETWORK_READ_REQUESTS)
      return true;
    Sleep(5);
  }
  return false;
}

}  // namespace ostrel::test
