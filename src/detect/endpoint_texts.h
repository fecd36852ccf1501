#ifndef OSTREL_DETECT_ENDPOINT_TEXTS_H
#define OSTREL_DETECT_ENDPOINT_TEXTS_H

#include <cstddef>

#include "cache/event_records.h"

namespace ostrel {

// Characters with the terminator.
constexpr std::size_t ADDRESS_CAPACITY = 65;
constexpr std::size_t HOST_NAME_CAPACITY = 1025;

// A remote endpoint as the host is told of it.
struct EndpointTexts {
  wchar_t address[ADDRESS_CAPACITY] = {};
  wchar_t hostName[HOST_NAME_CAPACITY] = {};  // empty when the reverse look-up failed
};

// Formats the address and looks its name up, which may take as long as the system's resolver does. Needs
// Winsock started.
void DescribeEndpoint(const IpPort& endpoint, EndpointTexts& texts);

}  // namespace ostrel

#endif
