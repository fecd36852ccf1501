#include "network/packet_filing.h"

#include <array>
#include <cstring>

namespace ostrel {

void FilePacket(const PacketRecord& record, const wchar_t* processName, NetworkEventCache& uploads,
                NetworkEventCache& downloads) {
  std::array<unsigned char, sizeof(record.ipv6)> ipv6{};
  std::memcpy(ipv6.data(), record.ipv6, ipv6.size());
  NetworkEventCache& cache = record.outgoing != 0 ? uploads : downloads;
  cache.AddEvent(processName, record.ipv4, ipv6.data(), static_cast<IP_VERSION>(record.ipVersion),
                 record.port, record.time, record.bytes);
}

}  // namespace ostrel
