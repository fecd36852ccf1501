#include "status_report.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "layers.h"
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

void AddMinifilter(Json& json, const OstrelLabStatus& status) {
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
}

Json Decoded(const OstrelLabNetworkStatus& status) {
  Json json;
  json["enabled"] = status.enabled != 0;
  json["handles"] = status.handles;
  json["pendingRequests"] = status.pendingRequests;
  json["queued"] = status.queued;
  json["floodRemaining"] = status.floodRemaining;
  json["enables"] = status.enables;
  json["badEnables"] = status.badEnables;
  json["reads"] = status.reads;
  json["submitted"] = status.submitted;
  json["flooded"] = status.flooded;
  json["completed"] = status.completed;
  json["dropped"] = status.dropped;
  json["cancelled"] = status.cancelled;
  json["processLists"] = status.processLists;
  json["badProcessLists"] = status.badProcessLists;
  return json;
}

// A layer by name where it has one.
Json LayerText(const GUID& key) {
  const FilteringLayer* const layer = FindLayer(key);
  return layer == nullptr ? Json(ToUtf8(TextOf(key))) : Json(layer->name);
}

const char* LifetimeWord(FilteringLifetime lifetime) {
  switch (lifetime) {
    case FilteringLifetime::Persistent:
      return "persistent";
    case FilteringLifetime::UntilRestart:
      return "until restart";
    case FilteringLifetime::Session:
      return "session";
  }
  return "";
}

Json Decoded(const FilteringSession& session) {
  Json json;
  json["key"] = ToUtf8(TextOf(session.key));
  json["name"] = ToUtf8(session.name);
  json["description"] = ToUtf8(session.description);
  json["flags"] = session.flags;
  json["processId"] = session.processId;
  return json;
}

Json Decoded(const FilteringObject& object) {
  Json json;
  json["key"] = ToUtf8(TextOf(object.key));
  json["name"] = ToUtf8(object.name);
  json["description"] = ToUtf8(object.description);
  json["flags"] = object.flags;
  json["lifetime"] = LifetimeWord(object.lifetime);
  if (object.lifetime == FilteringLifetime::Session) json["session"] = ToUtf8(TextOf(object.session));
  if (object.kind != FilteringKind::SubLayer) json["layer"] = LayerText(object.layer);
  if (object.kind != FilteringKind::Filter) return json;
  json["subLayer"] = ToUtf8(TextOf(object.subLayer));
  json["action"] = object.action;
  json["callout"] = ToUtf8(TextOf(object.callout));
  json["conditions"] = object.conditions;
  json["userDescriptor"] = ToUtf8(object.userDescriptor);
  return json;
}

Json Decoded(const FilteringState& state) {
  Json json;
  for (const char* const key : {"sessions", "callouts", "subLayers", "filters"}) json[key] = Json::array();
  for (const FilteringSession& session : state.sessions) json["sessions"].push_back(Decoded(session));
  for (const FilteringObject& object : state.objects) {
    const char* const key = object.kind == FilteringKind::Callout    ? "callouts"
                            : object.kind == FilteringKind::SubLayer ? "subLayers"
                                                                     : "filters";
    json[key].push_back(Decoded(object));
  }
  return json;
}

}  // namespace

std::string StatusReport(const LabState& state) {
  Json json;
  json["minifilterLoaded"] = state.minifilter.has_value();
  if (state.minifilter) AddMinifilter(json, *state.minifilter);
  json["configurations"] = Json::array();
  for (const OstrelLabConfiguration& message : state.configurations)
    json["configurations"].push_back(Decoded(message));
  json["network"] = state.network ? Decoded(*state.network) : Json();
  if (state.processList) json["network"]["processList"] = Decoded(*state.processList);
  json["filteringPlatform"] = Decoded(state.filtering);
  return json.dump(INDENT, ' ', false, Json::error_handler_t::replace);
}

}  // namespace ostrel::lab
