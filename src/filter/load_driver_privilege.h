#ifndef OSTREL_FILTER_LOAD_DRIVER_PRIVILEGE_H
#define OSTREL_FILTER_LOAD_DRIVER_PRIVILEGE_H

#include <cstdint>

namespace ostrel {

// Enables the privilege to load and unload drivers in the token of this process. Returns 0, also when the
// account does not hold the privilege and nothing was assigned, or the system error code of the step that
// failed.
std::uint32_t EnableLoadDriverPrivilege();

}  // namespace ostrel

#endif
