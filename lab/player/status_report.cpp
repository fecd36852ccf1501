#include "status_report.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "text.h"

namespace ostrel::lab {

namespace {

using Json = nlohmann::ordered_json;

constexpr int INDENT = 2;

// A slot's text up to its end or, where a long path has run on, up to the slot's last character.
template <std::size_t LENGTH>
std::string SlotText(const std::uint16_t (&slot)[LENGTH]) {
  const auto* const end = std::find(std::begin(slot), std::end(slot), 0);
  return ToUtf8(std::wstring(std::begin(slot), end));
}

template <std::size_t SLOTS, std::size_t LENGTH>
Json SlotTexts(const std::uint16_t (&slots)[SLOTS][LENGTH], std::uint32_t count) {
  Json texts = Json::array();
  for (std::uint32_t i = 0; i < std::min<std::uint32_t>(count, SLOTS); ++i)
    texts.push_back(SlotText(slots[i]));
  return texts;
}

Json Decoded(const OstrelLabConfiguration& message) {
  Json json;
  const bool isActivity = message.kind == OSTREL_LAB_KIND_ACTIVITY;
  json["kind"] = isActivity                                    ? Json("activity")
                 : message.kind == OSTREL_LAB_KIND_CLOUD_DRIVE ? Json("cloud-drive")
                                                               : Json(message.kind);
  json["enabled"] = message.enabled;
  json["driverOption"] = message.driverOption;
  json["hostProcessId"] = message.hostProcessId;
  json["processNameCount"] = message.processNameCount;
  json["processNames"] = SlotTexts(message.processNames, message.processNameCount);
  json["processIdCount"] = message.processIdCount;
  json["processIds"] = Json::array();
  const std::uint32_t ids = std::min<std::uint32_t>(message.processIdCount, OSTREL_LAB_PROCESS_ID_SLOTS);
  for (std::uint32_t i = 0; i < ids; ++i) json["processIds"].push_back(message.processIds[i]);
  json["excludedPathCount"] = message.excludedPathCount;
  json["excludedPaths"] = SlotTexts(message.excludedPaths, message.excludedPathCount);
  // An activity message says nothing about cloud paths, whatever bytes stand there.
  if (isActivity) return json;
  json["cloudPathCount"] = message.cloudPathCount;
  json["cloudPaths"] = SlotTexts(message.cloudPaths, message.cloudPathCount);
  json["cloudExclusionCount"] = message.cloudExclusionCount;
  json["cloudExclusions"] = SlotTexts(message.cloudExclusions, message.cloudExclusionCount);
  return json;
}

}  // namespace

std::string StatusReport(const OstrelLabStatus& status,
                         const std::vector<OstrelLabConfiguration>& configurations) {
  Json json;
  json["clientConnected"] = status.clientConnected != 0;
  json["clientProcessId"] = status.client.processId;
  json["clientProtocolCode"] = status.client.protocolCode;
  json["queued"] = status.queued;
  json["outstanding"] = status.outstanding;
  json["waitingRequests"] = status.waitingRequests;
  json["connections"] = status.connections;
  json["refusedConnections"] = status.refusedConnections;
  json["submitted"] = status.submitted;
  json["delivered"] = status.delivered;
  json["acknowledged"] = status.acknowledged;
  json["badAcknowledgements"] = status.badAcknowledgements;
  json["doubleAcknowledgements"] = status.doubleAcknowledgements;
  json["abandoned"] = status.abandoned;
  json["configurationMessages"] = status.configurations;
  json["badConfigurationMessages"] = status.badConfigurations;
  json["configurations"] = Json::array();
  for (const OstrelLabConfiguration& message : configurations)
    json["configurations"].push_back(Decoded(message));
  return json.dump(INDENT, ' ', false, Json::error_handler_t::replace);
}

}  // namespace ostrel::lab
