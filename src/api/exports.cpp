#include "api/exports.h"

#include <type_traits>

#include "api/library.h"
#include "sysquery/user_queries.h"
#include "util/ostrel_filter_lib_util.h"

static_assert(std::is_same_v<LogCallback, ostrel::LogSink>);
static_assert(std::is_same_v<ActivityEventCallback, ostrel::ActivityCallback>);
static_assert(std::is_same_v<PcdEventCallback, ostrel::PcdCallback>);

using ostrel::Library;

namespace {

// Counts are signed everywhere: one beyond 2^31 is negative, and the list empty.
ostrel::TextList List(const wchar_t** texts, std::uint32_t count) {
  return {texts, static_cast<std::int32_t>(count)};
}

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
                                     std::uint8_t driverOption, std::uint8_t remoteAddressInfo,
                                     std::uint8_t tabTitles) {
  return Guarded([&] {
    return Library::Instance().EnableActivity({
        .callback = callback,
        .userName = userName,
        .processNames = {processNames, processCount},
        .excludePaths = {excludePaths, excludeCount},
        .driverOption = driverOption,
        .remoteAddressInfo = remoteAddressInfo != 0,
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

void EnableRemoteAddressInfo(const wchar_t** processNames, std::uint32_t processCount) {
  Guarded([&] {
    Library::Instance().EnableRemoteAddressInfo(List(processNames, processCount));
    return true;
  });
}

void DisableRemoteAddressInfo() {
  Guarded([] {
    Library::Instance().DisableRemoteAddressInfo();
    return true;
  });
}

void UpdateProcesses(const wchar_t** processNames, std::uint32_t processCount, std::uint8_t driverOption) {
  Guarded([&] {
    Library::Instance().UpdateProcesses(List(processNames, processCount), driverOption);
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

void GetCurrentUserName(wchar_t** result, wchar_t** error) {
  Guarded([&] {
    ostrel::GetCurrentUserNameAndDomain(result, error);
    return true;
  });
}

void GetAllUserDirectories(wchar_t** result, wchar_t** error) {
  Guarded([&] {
    ostrel::GetAllUserDirectories(result, error);
    return true;
  });
}

void GetAutoProxyConfigUrlForUser(wchar_t** result, wchar_t** error) {
  OstrelFilterLibUtil::GetAutoProxyConfigUrlForUser(result, error);
}

void DeallocStringPointer(wchar_t** string) {
  OstrelFilterLibUtil::DeallocStringPointer(string);
}
