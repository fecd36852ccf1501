#ifndef OSTREL_NETWORK_FILTERING_PLATFORM_H
#define OSTREL_NETWORK_FILTERING_PLATFORM_H

#include <windows.h>

#include <cstdint>

#include "network/filtering_platform_objects.h"

namespace ostrel {

// Registers the two callouts for good, in a session of its own. Returns the platform's status; after a
// failure within the transaction, that of aborting it, and so usually 0.
std::uint32_t AddCallouts(const CalloutObjects& objects);

// Opens the session that the sub-layer and filters live in. Whoever opens it never closes it: they must stay
// in force until the host's process ends.
std::uint32_t OpenMonitoringSession(HANDLE& engine);

// Adds sub-layer and filters, all or none, for the traffic of `user` (an account name). Returns 0 also when a
// part was refused and the transaction aborted, as it always happens for the second IP version of a session:
// both use one sub-layer key.
std::uint32_t AddFilters(HANDLE engine, const FilterObjects& objects, const wchar_t* user);

}  // namespace ostrel

#endif
