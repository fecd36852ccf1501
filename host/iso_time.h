#ifndef OSTREL_HOST_ISO_TIME_H
#define OSTREL_HOST_ISO_TIME_H

#include <cstdint>
#include <string>

namespace ostrel::host {

// The last millisecond that ISO 8601 can write with four digits for the year.
constexpr std::uint64_t LAST_ISO_TIME = 253402300799999;

// Milliseconds since 1970-01-01 00:00 UTC as "2026-11-21T08:15:30.042Z". Empty after LAST_ISO_TIME.
std::string IsoTime(std::uint64_t milliseconds);

std::uint64_t MillisecondsNow();

}  // namespace ostrel::host

#endif
