#ifndef OSTREL_NETWORK_PACKET_MESSAGES_H
#define OSTREL_NETWORK_PACKET_MESSAGES_H

// What travels between the library and the network driver's device, byte for byte. Little-endian.

#include <cstddef>
#include <cstdint>

namespace ostrel {

// Control codes; all buffered, for any access.
constexpr std::uint32_t CONTROL_ENABLE_MONITORING = 0x120004;  // takes EnableMonitoring
constexpr std::uint32_t CONTROL_READ_PACKET = 0x222004;        // gives a PacketRecord when the driver has one
constexpr std::uint32_t CONTROL_PROCESS_LIST = 0x222008;       // takes the minifilter's DetectionMessage

struct EnableMonitoring {
  std::uint32_t enable;  // 1
  std::uint32_t padding;
};
static_assert(sizeof(EnableMonitoring) == 8);

// Some process moved some bytes to or from a remote endpoint.
struct PacketRecord {
  std::uint64_t bytes;
  std::uint32_t ipv4;  // passed through as the driver gives it
  std::int32_t port;
  std::uint8_t outgoing;  // not 0: an upload
  std::uint8_t unread1[7];
  std::uint32_t processId;
  std::uint32_t unread2;
  std::uint64_t time;  // milliseconds since 1970
  std::uint8_t ipv6[16];
  std::int32_t ipVersion;  // IP_VERSION
  std::uint32_t unread3;
};
static_assert(sizeof(PacketRecord) == 64);
static_assert(offsetof(PacketRecord, ipv4) == 8);
static_assert(offsetof(PacketRecord, port) == 12);
static_assert(offsetof(PacketRecord, outgoing) == 16);
static_assert(offsetof(PacketRecord, processId) == 24);
static_assert(offsetof(PacketRecord, time) == 32);
static_assert(offsetof(PacketRecord, ipv6) == 40);
static_assert(offsetof(PacketRecord, ipVersion) == 56);

}  // namespace ostrel

#endif
