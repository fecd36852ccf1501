#ifndef OSTREL_HOST_DETECTION_JSON_H
#define OSTREL_HOST_DETECTION_JSON_H

#include <cstdint>
#include <string>

namespace ostrel::host {

// One line of JSON in UTF-8, without its line end, for what the library's callbacks receive; the arguments
// are theirs. endTimeIso is null when the driver's time is beyond the year 9999. endpointsAre is "match" for
// one endpoint, "fallback" for several, of which none matched, and "none".
std::string ActivityJson(const wchar_t* fileName, const wchar_t* processName, const wchar_t* user,
                         std::uint64_t endTime, std::uint32_t fileEventType, std::int32_t streamCount,
                         const wchar_t* const* addresses, const std::uint32_t* ports,
                         const wchar_t* const* hostNames, std::int32_t hintCount, const wchar_t* const* hints,
                         const wchar_t* tabTitleStatus, std::uint8_t isNetworkDrive, const wchar_t* sha256Hex,
                         const wchar_t* md5Hex, std::uint32_t fileSize, const wchar_t* metadataStatus,
                         const wchar_t* extraText);
std::string CloudDriveJson(const wchar_t* fileName, const wchar_t* processName, const wchar_t* user,
                           std::uint64_t endTime, std::uint32_t fileEventType);

}  // namespace ostrel::host

#endif
