#ifndef OSTREL_LAB_PLAYER_DRIVER_LINK_H
#define OSTREL_LAB_PLAYER_DRIVER_LINK_H

#include <cstdint>
#include <optional>
#include <vector>

#include "minifilter_wire.h"
#include "util/unique_handle.h"

namespace ostrel::lab {

// The player's side of the stand-in minifilter.
class DriverLink {
 public:
  // Nothing while the driver is not loaded; throws on any other failure.
  static std::optional<DriverLink> TryOpen();

  // All of them or none; false when the queue has no room for them. Throws when no host is connected.
  bool TrySubmit(std::vector<OstrelLabEvent> events);
  // The same, but throws when there is no room.
  void Submit(std::vector<OstrelLabEvent> events);
  OstrelLabStatus Status();
  // The kept configuration messages, newest first.
  std::vector<OstrelLabConfiguration> Configurations();
  void Reset();

 private:
  explicit DriverLink(UniqueFileHandle device) : device_(std::move(device)) {}

  // False when the driver no longer keeps it.
  bool ReadConfiguration(std::uint64_t number, OstrelLabConfiguration& message);

  UniqueFileHandle device_;
};

}  // namespace ostrel::lab

#endif
