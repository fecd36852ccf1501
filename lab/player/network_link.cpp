#include "network_link.h"

#include <algorithm>

#include "device_control.h"
#include "text.h"

namespace ostrel::lab {

namespace {

[[noreturn]] void ThrowRefusal(const char* what) {
  if (GetLastError() == ERROR_NOT_READY) throw LabError("no host monitors the network any more");
  throw SystemError(what);
}

}  // namespace

std::optional<NetworkLink> NetworkLink::TryOpen() {
  UniqueFileHandle device = OpenPlayerDevice(OSTREL_LAB_NETWORK_PLAYER_PATH, "stand-in network driver");
  if (!device) return std::nullopt;
  return NetworkLink(std::move(device));
}

void NetworkLink::Submit(std::vector<OstrelLabPacketRecord> records) {
  if (Control(device_.Get(), OSTREL_LAB_NETWORK_PLAYER_SUBMIT,
              {records.data(), records.size() * sizeof(records.front())}, {})) {
    return;
  }
  ThrowRefusal("hand packet records to the stand-in network driver");
}

void NetworkLink::Flood(OstrelLabFlood flood) {
  if (Control(device_.Get(), OSTREL_LAB_NETWORK_PLAYER_FLOOD, {&flood, sizeof(flood)}, {})) return;
  ThrowRefusal("begin a flood in the stand-in network driver");
}

OstrelLabNetworkStatus NetworkLink::Status() {
  OstrelLabNetworkStatus status{};
  if (!Control(device_.Get(), OSTREL_LAB_NETWORK_PLAYER_STATUS, {}, {&status, sizeof(status)})) {
    throw SystemError("ask the stand-in network driver for its state");
  }
  return status;
}

std::optional<OstrelLabConfiguration> NetworkLink::ProcessList() {
  OstrelLabConfiguration message{};
  auto* const bytes = reinterpret_cast<std::uint8_t*>(&message);
  for (std::uint32_t offset = 0; offset < sizeof(message);) {
    const std::size_t length = std::min<std::size_t>(sizeof(message) - offset, OSTREL_LAB_PART_CAPACITY);
    if (!Control(device_.Get(), OSTREL_LAB_NETWORK_PLAYER_PROCESS_LIST, {&offset, sizeof(offset)},
                 {bytes + offset, length})) {
      if (GetLastError() == ERROR_NO_MORE_ITEMS) return std::nullopt;
      throw SystemError("read back the process list");
    }
    offset += static_cast<std::uint32_t>(length);
  }
  return message;
}

void NetworkLink::Reset() {
  if (!Control(device_.Get(), OSTREL_LAB_NETWORK_PLAYER_RESET, {}, {}))
    throw SystemError("reset the stand-in network driver");
}

}  // namespace ostrel::lab
