#include "api/exports.h"

#include <type_traits>

#include "api/library.h"
#include "userhelper/helper_requests.h"

static_assert(std::is_same_v<LogCallback, ostrel::LogSink>);
static_assert(std::is_same_v<ActivityEventCallback, ostrel::ActivityCallback>);
static_assert(std::is_same_v<PcdEventCallback, ostrel::PcdCallback>);

using ostrel::Library;

namespace {

// Nothing may be thrown into a host, which need not even be C++. What throws here is out of memory, and is a
// failure.
template <typename Call>
std::uint8_t Guarded(Call call) noexcept {
  try {
    return call() ? 1 : 0;
  } catch (...) {
    return 0;
  }
}

const wchar_t* TextOrEmpty(const wchar_t* text) {
  return text != nullptr ? text : L"";
}

}  // namespace

std::uint8_t LoadDriver(LogCallback logCallback, std::uint32_t logLevel) {
  return Guarded([&] { return Library::Instance().Load(logCallback, logLevel); });
}

std::uint8_t UnloadDriver() {
  return Guarded([] { return Library::Instance().Unload(); });
}

std::uint8_t EnableActivityDetection(ActivityEventCallback callback, const wchar_t* userName,
                                     const wchar_t** processNames, std::int32_t processCount,
                                     const wchar_t** excludePaths, std::int32_t excludeCount,
                                     std::uint8_t driverOption, std::uint8_t /*remoteAddressInfo*/,
                                     std::uint8_t tabTitles) {
  return Guarded([&] {
    return Library::Instance().EnableActivity({
        .callback = callback,
        .userName = userName,
        .processNames = {processNames, processCount},
        .excludePaths = {excludePaths, excludeCount},
        .driverOption = driverOption,
        .tabTitles = tabTitles != 0,
    });
  });
}

std::uint8_t DisableActivityDetection() {
  return Guarded([] { return Library::Instance().DisableActivity(); });
}

std::uint8_t EnablePCDDetection(PcdEventCallback callback, const wchar_t** cloudProcesses,
                                std::int32_t processCount, const wchar_t** cloudPaths,
                                std::int32_t cloudPathCount, const wchar_t** cloudExcludePaths,
                                std::int32_t cloudExcludeCount) {
  return Guarded([&] {
    return Library::Instance().EnablePcd({
        .callback = callback,
        .processNames = {cloudProcesses, processCount},
        .cloudPaths = {cloudPaths, cloudPathCount},
        .cloudExcludePaths = {cloudExcludePaths, cloudExcludeCount},
    });
  });
}

std::uint8_t DisablePCDDetection() {
  return Guarded([] { return Library::Instance().DisablePcd(); });
}

void UpdateProcesses(const wchar_t** processNames, std::uint32_t processCount, std::uint8_t driverOption) {
  Guarded([&] {
    // Counts are signed everywhere: one beyond 2^31 is negative, and the list empty.
    Library::Instance().UpdateProcesses({processNames, static_cast<std::int32_t>(processCount)},
                                        driverOption);
    return true;
  });
}

void EnableTabTitles() {
  Guarded([] {
    Library::Instance().EnableTabTitles();
    return true;
  });
}

void DisableTabTitles() {
  Guarded([] {
    Library::Instance().DisableTabTitles();
    return true;
  });
}

void GetAutoProxyConfigUrlForSystem(wchar_t** result, wchar_t** error) {
  if (result == nullptr || error == nullptr) return;
  ostrel::GetAutoProxyConfigUrlFromUserHelper(result, error);
}

void GetCloudStorageProviderLoginForSystem(const wchar_t* provider, const wchar_t* homeDirectory,
                                           wchar_t** result, wchar_t** error) {
  if (result == nullptr || error == nullptr) return;
  Guarded([&] {
    ostrel::GetCloudStorageProviderLoginFromUserHelper(TextOrEmpty(provider), TextOrEmpty(homeDirectory),
                                                       result, error);
    return true;
  });
}

void DeallocStringPointer(wchar_t** string) {
  OstrelFilterLibUtil::DeallocStringPointer(string);
}
