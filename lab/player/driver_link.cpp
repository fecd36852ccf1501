#include "driver_link.h"

#include <algorithm>

#include "device_control.h"
#include "text.h"

namespace ostrel::lab {

std::optional<DriverLink> DriverLink::TryOpen() {
  UniqueFileHandle device = OpenPlayerDevice(OSTREL_LAB_PLAYER_PATH, "stand-in minifilter");
  if (!device) return std::nullopt;
  return DriverLink(std::move(device));
}

bool DriverLink::TrySubmit(std::vector<OstrelLabEvent> events) {
  if (Control(device_.Get(), OSTREL_LAB_PLAYER_SUBMIT,
              {events.data(), events.size() * sizeof(events.front())}, {})) {
    return true;
  }
  switch (GetLastError()) {
    case ERROR_NOT_ENOUGH_QUOTA:
      return false;
    case ERROR_INVALID_HANDLE:
      throw LabError("no host is connected any more");
    default:
      throw SystemError("hand an event to the stand-in minifilter");
  }
}

void DriverLink::Submit(std::vector<OstrelLabEvent> events) {
  if (TrySubmit(std::move(events))) return;
  throw LabError("the stand-in minifilter's queue is full: the host does not take its " +
                 std::to_string(OSTREL_LAB_QUEUE_CAPACITY) + " messages");
}

OstrelLabStatus DriverLink::Status() {
  OstrelLabStatus status{};
  if (!Control(device_.Get(), OSTREL_LAB_PLAYER_STATUS, {}, {&status, sizeof(status)})) {
    throw SystemError("ask the stand-in minifilter for its state");
  }
  return status;
}

std::vector<OstrelLabConfiguration> DriverLink::Configurations() {
  std::vector<OstrelLabConfiguration> kept;
  for (std::uint64_t number = Status().configurations; number-- != 0;) {
    kept.emplace_back();
    if (ReadConfiguration(number, kept.back())) continue;
    kept.pop_back();
    break;
  }
  return kept;
}

bool DriverLink::ReadConfiguration(std::uint64_t number, OstrelLabConfiguration& message) {
  auto* const bytes = reinterpret_cast<std::uint8_t*>(&message);
  OstrelLabConfigurationRequest request{number, 0, 0};
  while (request.offset < sizeof(message)) {
    const std::size_t length =
        std::min<std::size_t>(sizeof(message) - request.offset, OSTREL_LAB_PART_CAPACITY);
    if (!Control(device_.Get(), OSTREL_LAB_PLAYER_CONFIGURATION, {&request, sizeof(request)},
                 {bytes + request.offset, length})) {
      if (GetLastError() == ERROR_NO_MORE_ITEMS) return false;
      throw SystemError("read back a configuration message");
    }
    request.offset += static_cast<std::uint32_t>(length);
  }
  return true;
}

void DriverLink::Reset() {
  if (!Control(device_.Get(), OSTREL_LAB_PLAYER_RESET, {}, {}))
    throw SystemError("reset the stand-in minifilter");
}

}  // namespace ostrel::lab
