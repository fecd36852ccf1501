// Any bytes as records of the network driver, one after the other: every byte that they name is in a stream
// of their direction, and is purged or found again with it.
#include <algorithm>
#include <array>
#include <cstring>
#include <cwchar>
#include <iterator>
#include <set>
#include <string_view>
#include <tuple>
#include <vector>

#include "fuzzer.h"
#include "log/log.h"
#include "network/packet_filing.h"

namespace {

using namespace ostrel;
using ostrel_test::Promise;

// Records name two processes.
constexpr const wchar_t* PROCESSES[] = {L"\\Device\\HarddiskVolume3\\chrome.exe", L"pscp.exe"};

// What the cache's log lines say, since nothing else tells how many bytes a purged stream had.
std::uint64_t purgedBytes = 0;

void CountPurged(const wchar_t* text, std::uint32_t /*level*/) {
  if (std::wstring_view(text).find(L" purged network event: ") == std::wstring_view::npos) return;
  purgedBytes += std::wcstoull(std::wcsrchr(text, L' ') + 1, nullptr, 10);
}

const wchar_t* ProcessOf(const PacketRecord& record) {
  return PROCESSES[record.processId % std::size(PROCESSES)];
}

// The last one is filled up with zeros, as the reader's own buffer is.
std::vector<PacketRecord> RecordsOf(const std::uint8_t* data, std::size_t size) {
  std::vector<PacketRecord> records((size + sizeof(PacketRecord) - 1) / sizeof(PacketRecord));
  if (size != 0) std::memcpy(records.data(), data, size);
  return records;
}

bool HasKnownVersion(const PacketRecord& record) {
  return record.ipVersion == IPV4 || record.ipVersion == IPV6;
}

// What tells one stream of a direction from all others.
using Stream =
    std::tuple<const wchar_t*, std::int32_t, std::int32_t, std::uint32_t, std::array<std::uint8_t, 16>>;

Stream StreamOf(const PacketRecord& record) {
  std::array<std::uint8_t, 16> ipv6{};
  if (record.ipVersion == IPV6) std::copy(std::begin(record.ipv6), std::end(record.ipv6), ipv6.begin());
  return {ProcessOf(record), record.ipVersion, record.port, record.ipVersion == IPV4 ? record.ipv4 : 0, ipv6};
}

std::uint64_t StreamCount(NetworkEventCache& cache) {
  std::uint64_t count = 0;
  for (const wchar_t* const process : PROCESSES) count += cache.GetStreamCount(process);
  return count;
}

// A stream of an unknown IP version can count as one with others, so only how many there are at most is
// certain.
void CheckStreams(NetworkEventCache& cache, const std::vector<PacketRecord>& records) {
  std::set<Stream> streams;
  for (const PacketRecord& record : records) streams.insert(StreamOf(record));
  const bool areAllKnown = std::all_of(records.begin(), records.end(), HasKnownVersion);
  Promise(areAllKnown ? StreamCount(cache) == streams.size() : StreamCount(cache) <= streams.size(),
          "each endpoint of a process is one stream");
}

void CheckLikelyEvents(NetworkEventCache& cache, const std::vector<PacketRecord>& records) {
  for (const PacketRecord& record : records) {
    const std::uint64_t streams = cache.GetStreamCount(ProcessOf(record));
    const std::vector<IpPort> likely = cache.GetLikelyEvents(ProcessOf(record), 0, 0, record.bytes);
    Promise(record.bytes == 0 ? likely.empty() : likely.size() == 1 || likely.size() == streams,
            "one stream is likely, or all are");
  }
}

void CheckPurge(NetworkEventCache& cache, const std::vector<PacketRecord>& records) {
  std::uint64_t bytes = 0;
  for (const PacketRecord& record : records) bytes += record.bytes;
  const std::uint64_t streams = StreamCount(cache);
  purgedBytes = 0;
  std::uint64_t purged = 0;
  // However the age limit wraps around, what was purged and what was not is all there was.
  for (const std::uint64_t now :
       {std::uint64_t{0}, std::uint64_t{70001}, ~std::uint64_t{0}, std::uint64_t{70000}}) {
    purged += static_cast<std::uint64_t>(cache.PurgeEvents(now));
  }
  Promise(purged + StreamCount(cache) == streams, "a stream is purged or still there");
  Promise(StreamCount(cache) != 0 || purgedBytes == bytes, "no byte is lost");
}

void Check(NetworkEventCache& cache, const std::vector<PacketRecord>& records) {
  CheckStreams(cache, records);
  CheckLikelyEvents(cache, records);
  CheckPurge(cache, records);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  SetLogSink(CountPurged, LOG_DETAIL);
  const std::vector<PacketRecord> records = RecordsOf(data, size);
  NetworkEventCache uploads(1);
  NetworkEventCache downloads(0);
  std::vector<PacketRecord> sent;
  std::vector<PacketRecord> received;
  for (const PacketRecord& record : records) {
    FilePacket(record, ProcessOf(record), uploads, downloads);
    (record.outgoing != 0 ? sent : received).push_back(record);
  }
  Check(uploads, sent);
  Check(downloads, received);
  return 0;
}
