#ifndef OSTREL_DETECT_HOST_CALLBACKS_H
#define OSTREL_DETECT_HOST_CALLBACKS_H

#include <atomic>
#include <cstdint>
#include <mutex>

namespace ostrel {

// The callback types of api/exports.h, where the arguments are described.
using ActivityCallback = void (*)(const wchar_t* fileName, const wchar_t* processName, const wchar_t* user,
                                  std::uint64_t endTime, std::uint32_t fileEventType,
                                  std::int32_t streamCount, wchar_t** addresses, std::uint32_t* ports,
                                  wchar_t** hostNames, std::int32_t hintCount, wchar_t** hints,
                                  const wchar_t* tabTitleStatus, std::uint8_t isNetworkDrive,
                                  const wchar_t* sha256Hex, const wchar_t* md5Hex, std::uint32_t fileSize,
                                  const wchar_t* metadataStatus, const wchar_t* extraText);
using PcdCallback = void (*)(const wchar_t* fileName, const wchar_t* processName, const wchar_t* user,
                             std::uint64_t endTime, std::uint32_t fileEventType);

// What the host wants to be told, and the mutex that lets one report at a time reach it. Set by the host's
// threads, read by the disk event thread, never cleared: what is detected after a feature is off still
// reaches the last callback.
struct HostCallbacks {
  std::atomic<ActivityCallback> activity{nullptr};
  std::atomic<PcdCallback> pcd{nullptr};
  std::mutex reportMutex;
};

}  // namespace ostrel

#endif
