#include "filter/detection_message_builder.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <cwctype>
#include <utility>

#include "util/ostrel_filter_lib_util.h"

namespace ostrel {

namespace {

const std::wstring& AppendRawName(std::vector<std::wstring>& paths, std::wstring directory) {
  paths.push_back(OstrelFilterLibUtil::GetRawDirectoryName(directory.data()));
  return paths.back();
}

std::vector<std::wstring> LowerCased(std::vector<std::wstring> names) {
  for (std::wstring& name : names) {
    std::transform(name.begin(), name.end(), name.begin(),
                   [](wchar_t character) { return static_cast<wchar_t>(std::towlower(character)); });
  }
  return names;
}

// The ids of the running processes of these names, as many as a message holds.
std::vector<std::uint32_t> RunningProcessIds(const std::vector<std::wstring>& names) {
  std::array<ULong32, WATCHED_PROCESS_ID_SLOTS> ids{};
  int count = 0;
  OstrelFilterLibUtil::GetCurrentProcessIDsToWatch(ids.data(), &count, static_cast<int>(ids.size()), names);
  return {ids.begin(), ids.begin() + count};
}

}  // namespace

const std::wstring& DetectionMessageBuilder::AddExcludedPath(std::wstring directory) {
  return AppendRawName(paths_.excluded, std::move(directory));
}

const std::wstring& DetectionMessageBuilder::AddCloudPath(std::wstring directory) {
  return AppendRawName(paths_.cloud, std::move(directory));
}

const std::wstring& DetectionMessageBuilder::AddCloudExclusionPath(std::wstring directory) {
  return AppendRawName(paths_.cloudExclusion, std::move(directory));
}

std::unique_ptr<DetectionMessage> DetectionMessageBuilder::Build(DetectionKind kind,
                                                                 const DetectionRequest& request) const {
  const std::vector<std::wstring> names = LowerCased(request.processNames);
  const std::vector<std::uint32_t> ids = RunningProcessIds(names);
  auto message = std::make_unique<DetectionMessage>();
  FillDetectionMessage(
      *message, {GetCurrentProcessId(), names, ids, request.driverOption, request.enabled, kind}, paths_);
  return message;
}

}  // namespace ostrel
