#ifndef OSTREL_LAB_PLAYER_DRIVERS_H
#define OSTREL_LAB_PLAYER_DRIVERS_H

#include <optional>
#include <vector>

#include "driver_link.h"
#include "network_link.h"

namespace ostrel::lab {

// Both stand-in drivers, as a player hands them what a host is to take. Throws a LabError when the host does
// not.
struct Drivers {
  DriverLink minifilter;
  std::optional<NetworkLink> network;  // of a scenario that needs it

  // Waits until there is room.
  void Submit(const std::vector<OstrelLabEvent>& events);
  void Submit(const std::vector<OstrelLabPacketRecord>& records);

  // Until the host has taken everything and asks for more, which it does only when it is done with the last.
  void WaitUntilHandled();

 private:
  void WaitUntilEventsAreHandled();
  void WaitUntilRecordsAreHandled();
};

}  // namespace ostrel::lab

#endif
