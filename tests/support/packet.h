#ifndef OSTREL_TESTS_SUPPORT_PACKET_H
#define OSTREL_TESTS_SUPPORT_PACKET_H

#include <array>
#include <cstdint>
#include <cstring>

#include "support/scripted_network.h"

namespace ostrel::test {

// What the driver reports, written to its places by hand. The places that nobody reads are filled too.
struct Packet {
  std::uint64_t bytes = 1000;
  std::uint32_t ipv4 = 0x0100007F;
  std::int32_t port = 443;
  std::uint8_t direction = 1;
  std::uint32_t processId = 42;
  std::uint64_t time = 5000;
  std::array<std::uint8_t, 16> ipv6{};
  std::uint32_t ipVersion = 1;

  operator PacketBytes() const {
    PacketBytes record;
    record.fill(0xEE);
    Put(record, 0, bytes);
    Put(record, 8, ipv4);
    Put(record, 12, port);
    Put(record, 16, direction);
    Put(record, 24, processId);
    Put(record, 32, time);
    Put(record, 40, ipv6);
    Put(record, 56, ipVersion);
    return record;
  }

 private:
  template <typename Value>
  static void Put(PacketBytes& record, std::size_t offset, const Value& value) {
    std::memcpy(record.data() + offset, &value, sizeof(value));
  }
};

}  // namespace ostrel::test

#endif
