#ifndef OSTREL_LAB_PLAYER_SCENARIO_NETWORK_ADDRESS_H
#define OSTREL_LAB_PLAYER_SCENARIO_NETWORK_ADDRESS_H

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace ostrel::lab {

// An IPv4 or IPv6 address, as bytes in network order.
struct NetworkAddress {
  bool isIpv6 = false;
  std::array<std::uint8_t, 16> bytes{};  // an IPv4 address has the first four

  bool operator==(const NetworkAddress&) const = default;
};

// "192.0.2.1" or "2001:db8::1". Nothing for any other text, such as one with leading zeros in an IPv4
// address, a port or a zone.
std::optional<NetworkAddress> ParseAddress(std::string_view text);

}  // namespace ostrel::lab

#endif
