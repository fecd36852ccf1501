#ifndef OSTREL_LAB_PLAYER_NETWORK_LINK_H
#define OSTREL_LAB_PLAYER_NETWORK_LINK_H

#include <optional>
#include <vector>

#include "network_wire.h"
#include "util/unique_handle.h"

namespace ostrel::lab {

// The player's side of the stand-in network driver.
class NetworkLink {
 public:
  // Nothing while the driver is not loaded; throws on any other failure.
  static std::optional<NetworkLink> TryOpen();

  // Hands over records; those for which the driver has no room are dropped and counted there. Throws when
  // nobody monitors.
  void Submit(std::vector<OstrelLabPacketRecord> records);
  // Begins a flood in place of the one before. Throws when nobody monitors.
  void Flood(OstrelLabFlood flood);
  OstrelLabNetworkStatus Status();
  // The newest process list; nothing before the first.
  std::optional<OstrelLabConfiguration> ProcessList();
  void Reset();

 private:
  explicit NetworkLink(UniqueFileHandle device) : device_(std::move(device)) {}

  UniqueFileHandle device_;
};

}  // namespace ostrel::lab

#endif
