#include "recorded_library.h"

#include <windows.h>

#include <cstdint>

#include "utf8.h"

namespace ostrel_test {

namespace {

using ostrel::host::ToUtf8;

// The library's functions carry no context.
RecordedLibrary* current = nullptr;

std::string Joined(const wchar_t** texts, std::int32_t count) {
  std::string joined;
  for (std::int32_t i = 0; i < count; ++i) joined += (i == 0 ? "" : ",") + ToUtf8(texts[i]);
  return joined;
}

}  // namespace

struct RecordedLibrary::Fakes {
  static std::uint8_t LoadDriver(LogCallback log, std::uint32_t /*level*/) {
    current->log_ = log;
    return current->Answer("LoadDriver", "");
  }

  static std::uint8_t UnloadDriver() { return current->Answer("UnloadDriver", ""); }

  static std::uint8_t EnableActivityDetection(ActivityEventCallback /*callback*/, const wchar_t* userName,
                                              const wchar_t** processNames, std::int32_t processCount,
                                              const wchar_t** /*excludePaths*/, std::int32_t /*excludeCount*/,
                                              std::uint8_t /*driverOption*/, std::uint8_t remoteAddressInfo,
                                              std::uint8_t /*tabTitles*/) {
    return current->Answer("EnableActivityDetection",
                           "user=" + ToUtf8(userName) + " processes=" + Joined(processNames, processCount) +
                               " remoteAddressInfo=" + std::to_string(remoteAddressInfo));
  }

  static std::uint8_t DisableActivityDetection() { return current->Answer("DisableActivityDetection", ""); }

  static std::uint8_t EnablePCDDetection(PcdEventCallback /*callback*/, const wchar_t** cloudProcesses,
                                         std::int32_t processCount, const wchar_t** /*cloudPaths*/,
                                         std::int32_t /*cloudPathCount*/,
                                         const wchar_t** /*cloudExcludePaths*/,
                                         std::int32_t /*cloudExcludeCount*/) {
    return current->Answer("EnablePCDDetection", "processes=" + Joined(cloudProcesses, processCount));
  }

  static std::uint8_t DisablePCDDetection() { return current->Answer("DisablePCDDetection", ""); }

  static void DisableRemoteAddressInfo() { current->Answer("DisableRemoteAddressInfo", ""); }
};

RecordedLibrary::RecordedLibrary() {
  current = this;
  const auto replace = [this](const char* function, auto replacement, auto original) {
    static_assert(std::is_same_v<decltype(replacement), decltype(original)>);
    patches_.emplace_back(GetModuleHandleW(nullptr), function, reinterpret_cast<void*>(replacement));
  };
  replace("LoadDriver", &Fakes::LoadDriver, &::LoadDriver);
  replace("UnloadDriver", &Fakes::UnloadDriver, &::UnloadDriver);
  replace("EnableActivityDetection", &Fakes::EnableActivityDetection, &::EnableActivityDetection);
  replace("DisableActivityDetection", &Fakes::DisableActivityDetection, &::DisableActivityDetection);
  replace("EnablePCDDetection", &Fakes::EnablePCDDetection, &::EnablePCDDetection);
  replace("DisablePCDDetection", &Fakes::DisablePCDDetection, &::DisablePCDDetection);
  replace("DisableRemoteAddressInfo", &Fakes::DisableRemoteAddressInfo, &::DisableRemoteAddressInfo);
}

RecordedLibrary::~RecordedLibrary() {
  patches_.clear();
  current = nullptr;
}

std::uint8_t RecordedLibrary::Answer(const std::string& function, const std::string& arguments) {
  calls.push_back(arguments.empty() ? function : function + " " + arguments);
  if (const auto line = errorLines.find(function); line != errorLines.end()) log_(line->second.c_str(), 3);
  const auto result = results.find(function);
  return result == results.end() ? 1 : result->second;
}

}  // namespace ostrel_test
