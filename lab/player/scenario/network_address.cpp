#include "network_address.h"

#include <charconv>
#include <vector>

namespace ostrel::lab {

namespace {

constexpr std::size_t IPV4_BYTES = 4;
constexpr std::size_t IPV6_BYTES = 16;

// The whole text as a number of up to `digits` digits.
std::optional<unsigned> ParseNumber(std::string_view text, int base, std::size_t digits) {
  unsigned number = 0;
  if (text.empty() || text.size() > digits) return std::nullopt;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number, base);
  if (result.ec != std::errc() || result.ptr != text.data() + text.size()) return std::nullopt;
  return number;
}

bool AppendIpv4(std::string_view text, std::vector<std::uint8_t>& bytes) {
  for (std::size_t i = 0; i < IPV4_BYTES; ++i) {
    const bool isLast = i + 1 == IPV4_BYTES;
    const std::size_t dot = text.find('.');
    if ((dot == std::string_view::npos) != isLast) return false;
    const std::string_view part = text.substr(0, dot);
    const auto number = ParseNumber(part, 10, 3);
    if (!number || *number > UINT8_MAX || (part.size() > 1 && part.front() == '0')) return false;
    bytes.push_back(static_cast<std::uint8_t>(*number));
    if (!isLast) text.remove_prefix(dot + 1);
  }
  return true;
}

// Groups between colons, without "::"; the last may be an IPv4 address when `mayEndInIpv4`.
bool AppendGroups(std::string_view text, bool mayEndInIpv4, std::vector<std::uint8_t>& bytes) {
  while (bytes.size() < IPV6_BYTES) {
    const std::size_t colon = text.find(':');
    const std::string_view group = text.substr(0, colon);
    const bool isLast = colon == std::string_view::npos;
    if (isLast && mayEndInIpv4 && group.find('.') != std::string_view::npos) return AppendIpv4(group, bytes);
    const auto number = ParseNumber(group, 16, 4);
    if (!number) return false;
    bytes.push_back(static_cast<std::uint8_t>(*number >> 8));
    bytes.push_back(static_cast<std::uint8_t>(*number & 0xFF));
    if (isLast) return true;
    text.remove_prefix(colon + 1);
  }
  return false;
}

NetworkAddress Joined(const std::vector<std::uint8_t>& head, const std::vector<std::uint8_t>& tail) {
  NetworkAddress address;
  address.isIpv6 = true;
  std::size_t place = 0;
  for (const std::uint8_t byte : head) address.bytes[place++] = byte;
  place = IPV6_BYTES - tail.size();
  for (const std::uint8_t byte : tail) address.bytes[place++] = byte;
  return address;
}

std::optional<NetworkAddress> ParseIpv6(std::string_view text) {
  constexpr std::string_view GAP = "::";
  std::vector<std::uint8_t> head;
  std::vector<std::uint8_t> tail;
  const std::size_t gap = text.find(GAP);
  if (gap == std::string_view::npos) {
    if (!AppendGroups(text, true, head) || head.size() != IPV6_BYTES) return std::nullopt;
    return Joined(head, tail);
  }
  const std::string_view before = text.substr(0, gap);
  const std::string_view after = text.substr(gap + GAP.size());
  if (!before.empty() && !AppendGroups(before, false, head)) return std::nullopt;
  if (!after.empty() && !AppendGroups(after, true, tail)) return std::nullopt;
  // The gap stands for one group at least.
  if (head.size() + tail.size() + 2 > IPV6_BYTES) return std::nullopt;
  return Joined(head, tail);
}

}  // namespace

std::optional<NetworkAddress> ParseAddress(std::string_view text) {
  if (text.find(':') != std::string_view::npos) return ParseIpv6(text);
  std::vector<std::uint8_t> bytes;
  if (!AppendIpv4(text, bytes)) return std::nullopt;
  NetworkAddress address;
  for (std::size_t i = 0; i < bytes.size(); ++i) address.bytes[i] = bytes[i];
  return address;
}

}  // namespace ostrel::lab
