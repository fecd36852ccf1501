#ifndef OSTREL_HOST_OBSERVATIONS_H
#define OSTREL_HOST_OBSERVATIONS_H

#include <optional>
#include <string>
#include <vector>

#include "self_check.h"

namespace ostrel::host {

// Everything that the self-check wants to know. Loads, starts and changes nothing, and waits for no answer
// longer than the self-check's patience.
SelfCheckFacts ObserveMachine();

// Its parts, as far as they need neither the drivers nor a user.

Rights ObserveRights();

HelperFiles ObserveHelpers();

Service ObserveService(const std::wstring& name);

// All other processes that have a module of this name loaded, as far as this process may look into them. None
// when they cannot be listed.
std::optional<std::vector<OtherHost>> OtherProcessesWith(const std::wstring& moduleName);

}  // namespace ostrel::host

#endif
