#include "detect/endpoint_texts.h"

#include <winsock2.h>
// Needs winsock2.h before it.
#include <ws2tcpip.h>

#include <algorithm>
#include <array>

namespace ostrel {

namespace {

// Given for both families. An IPv6 address is longer, so its look-up fails and its host name stays empty.
constexpr socklen_t ADDRESS_LENGTH = 16;
static_assert(sizeof(sockaddr_in) == ADDRESS_LENGTH);

void LookUpHostName(const void* socketAddress, EndpointTexts& texts) {
  if (GetNameInfoW(static_cast<const sockaddr*>(socketAddress), ADDRESS_LENGTH, texts.hostName,
                   static_cast<DWORD>(HOST_NAME_CAPACITY), nullptr, 0, NI_NAMEREQD) != 0) {
    texts.hostName[0] = L'\0';
  }
}

void DescribeIpV4(ULong32 hostOrderAddress, EndpointTexts& texts) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(hostOrderAddress);
  InetNtopW(AF_INET, &address.sin_addr, texts.address, ADDRESS_CAPACITY);
  InetPtonW(AF_INET, texts.address, &address.sin_addr);
  LookUpHostName(&address, texts);
}

void DescribeIpV6(const std::array<unsigned char, 16>& bytes, EndpointTexts& texts) {
  sockaddr_in6 address{};
  address.sin6_family = AF_INET6;
  std::copy(bytes.begin(), bytes.end(), address.sin6_addr.s6_addr);
  InetNtopW(AF_INET6, &address.sin6_addr, texts.address, ADDRESS_CAPACITY);
  InetPtonW(AF_INET6, texts.address, &address.sin6_addr);
  LookUpHostName(&address, texts);
}

}  // namespace

void DescribeEndpoint(const IpPort& endpoint, EndpointTexts& texts) {
  if (endpoint.GetIpVersion() == IPV4) {
    DescribeIpV4(endpoint.GetIpV4Address(), texts);
  } else {
    DescribeIpV6(endpoint.GetIpV6Address(), texts);
  }
}

}  // namespace ostrel
