#include "detection_json.h"

#include <nlohmann/json.hpp>

#include "iso_time.h"
#include "utf8.h"

namespace ostrel::host {

namespace {

// Keeps the keys in the order in which they are written here.
using Json = nlohmann::ordered_json;

Json FileEvent(const char* detection, const wchar_t* fileName, const wchar_t* processName,
               const wchar_t* user, std::uint64_t endTime, std::uint32_t fileEventType) {
  Json event;
  event["detection"] = detection;
  event["fileName"] = ToUtf8(fileName);
  event["processName"] = ToUtf8(processName);
  event["user"] = ToUtf8(user);
  event["endTime"] = endTime;
  event["endTimeIso"] = endTime <= LAST_ISO_TIME ? Json(IsoTime(endTime)) : Json(nullptr);
  event["fileEventType"] = fileEventType;
  return event;
}

// What the library's choice of streams says of them; it does not tell a stream that matches the file's size
// from the only one that the process has.
const char* MeaningOf(std::int32_t streamCount) {
  if (streamCount <= 0) return "none";
  return streamCount == 1 ? "match" : "fallback";
}

}  // namespace

std::string ActivityJson(const wchar_t* fileName, const wchar_t* processName, const wchar_t* user,
                         std::uint64_t endTime, std::uint32_t fileEventType, std::int32_t streamCount,
                         const wchar_t* const* addresses, const std::uint32_t* ports,
                         const wchar_t* const* hostNames, std::int32_t hintCount, const wchar_t* const* hints,
                         const wchar_t* tabTitleStatus, std::uint8_t isNetworkDrive, const wchar_t* sha256Hex,
                         const wchar_t* md5Hex, std::uint32_t fileSize, const wchar_t* metadataStatus,
                         const wchar_t* extraText) {
  Json endpoints = Json::array();
  for (std::int32_t i = 0; i < streamCount; ++i) {
    endpoints.push_back(
        {{"address", ToUtf8(addresses[i])}, {"port", ports[i]}, {"hostName", ToUtf8(hostNames[i])}});
  }
  Json destinationHints = Json::array();
  for (std::int32_t i = 0; i < hintCount; ++i) destinationHints.push_back(ToUtf8(hints[i]));

  const char* const detection = fileEventType == 0 ? "upload" : "download";
  Json event = FileEvent(detection, fileName, processName, user, endTime, fileEventType);
  event["endpoints"] = std::move(endpoints);
  event["endpointsAre"] = MeaningOf(streamCount);
  event["destinationHints"] = std::move(destinationHints);
  event["tabTitleStatus"] = ToUtf8(tabTitleStatus);
  event["isNetworkDrive"] = isNetworkDrive != 0;
  event["sha256"] = ToUtf8(sha256Hex);
  event["md5"] = ToUtf8(md5Hex);
  event["metadataFileSize"] = fileSize;
  event["metadataStatus"] = ToUtf8(metadataStatus);
  event["extraText"] = ToUtf8(extraText);
  return event.dump();
}

std::string CloudDriveJson(const wchar_t* fileName, const wchar_t* processName, const wchar_t* user,
                           std::uint64_t endTime, std::uint32_t fileEventType) {
  return FileEvent("cloud-drive", fileName, processName, user, endTime, fileEventType).dump();
}

}  // namespace ostrel::host
