#include "detect/file_event_reporter.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "detect/endpoint_texts.h"
#include "detect/file_size.h"
#include "detect/upload_completeness.h"
#include "log/log.h"
#include "userhelper/helper_requests.h"

namespace ostrel {

namespace {

// The likely streams as three parallel arrays for the callback.
class EndpointArrays {
 public:
  explicit EndpointArrays(const std::vector<IpPort>& endpoints) : texts_(endpoints.size()) {
    // One more than needed: a host gets an array also when it is empty.
    addresses_.reserve(endpoints.size() + 1);
    ports_.reserve(endpoints.size() + 1);
    hostNames_.reserve(endpoints.size() + 1);
    for (std::size_t i = 0; i < endpoints.size(); ++i) {
      DescribeEndpoint(endpoints[i], texts_[i]);
      addresses_.push_back(texts_[i].address);
      ports_.push_back(static_cast<std::uint32_t>(endpoints[i].GetPort()));
      hostNames_.push_back(texts_[i].hostName);
      Log(LOG_DETAIL, L"Possible stream info: %s:%d  %s", texts_[i].address, endpoints[i].GetPort(),
          texts_[i].hostName);
    }
  }

  std::int32_t Count() const { return static_cast<std::int32_t>(texts_.size()); }
  wchar_t** Addresses() { return addresses_.data(); }
  std::uint32_t* Ports() { return ports_.data(); }
  wchar_t** HostNames() { return hostNames_.data(); }

 private:
  std::vector<EndpointTexts> texts_;
  std::vector<wchar_t*> addresses_;
  std::vector<std::uint32_t> ports_;
  std::vector<wchar_t*> hostNames_;
};

std::vector<wchar_t*> PointersTo(std::vector<std::wstring>& texts) {
  std::vector<wchar_t*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::wstring& text : texts) pointers.push_back(text.data());
  return pointers;
}

}  // namespace

FileEventReporter::FileEventReporter(HostCallbacks& callbacks) : callbacks_(callbacks) {}

void FileEventReporter::ReportFileEvent(NetworkEventCache& streams, const ReadEventMetaData& reported) {
  const ActivityCallback callback = callbacks_.activity;
  if (callback == nullptr) return;
  const std::lock_guard lock(callbacks_.reportMutex);

  ReadEventMetaData event = reported;  // some getters are not const
  const std::wstring fileName = event.GetFileName();
  const std::wstring processName = event.GetProcessName();
  const std::wstring user = event.GetUser();
  const std::wstring tabTitleStatus = event.GetTabTitleStatus();
  const bool isUpload = event.GetFileEventType() == FILE_EVENT_READ;
  const std::uint64_t fileSize = GetFileSizeOrMax(fileName);
  const std::vector<IpPort> likely =
      streams.GetLikelyEvents(processName, event.GetStartTime(), event.GetEndTime(), fileSize);
  std::vector<std::wstring> hints = event.GetDestHints();
  Log(LOG_NOTABLE, L"Detected file use by monitored process %s: %s: %s   tab title: %s", fileName.c_str(),
      processName.c_str(), isUpload ? L"UPLOAD" : L"DOWNLOAD",
      hints.empty() ? L"none" : hints.front().c_str());

  EndpointArrays endpoints(likely);
  std::vector<wchar_t*> hintTexts = PointersTo(hints);
  FileMetaData metaData;
  std::wstring metaDataStatus;
  if (event.IsNetworkEvent() != 0) {
    metaData = GetFileMetaDataFromUserHelper(fileName, metaDataStatus);
    Log(LOG_DETAIL, L"Getting metadata for file : %s\n", fileName.c_str());
  }
  const std::uint64_t expected = event.IsNetworkEvent() != 0 ? metaData.fileSize : fileSize;
  if (isUpload) {
    Log(LOG_DETAIL, L"Uploaded file %s. %llu of %llu", fileName.c_str(),
        static_cast<unsigned long long>(event.GetReadSize()), static_cast<unsigned long long>(expected));
    if (!IsCompleteUpload(event.GetReadSize(), expected)) {
      Log(LOG_NOTABLE, L"Incomplete upload for %s", fileName.c_str());
      return;
    }
  }
  callback(fileName.c_str(), processName.c_str(), user.c_str(), event.GetEndTime(),
           static_cast<std::uint32_t>(event.GetFileEventType()), endpoints.Count(), endpoints.Addresses(),
           endpoints.Ports(), endpoints.HostNames(), static_cast<std::int32_t>(hintTexts.size()),
           hintTexts.data(), tabTitleStatus.c_str(), event.IsNetworkEvent(), metaData.sha256Hex.c_str(),
           metaData.md5Hex.c_str(), static_cast<std::uint32_t>(metaData.fileSize), metaDataStatus.c_str(),
           metaData.extraText.c_str());
}

void FileEventReporter::ReportPcdEvent(const ReadEventMetaData& reported) {
  const PcdCallback callback = callbacks_.pcd;
  if (callback == nullptr) return;
  const std::lock_guard lock(callbacks_.reportMutex);

  ReadEventMetaData event = reported;  // some getters are not const
  const std::wstring fileName = event.GetFileName();
  const std::wstring processName = event.GetProcessName();
  const std::wstring user = event.GetUser();
  // The size is read and not used; what opening the file sets off in the system is part of the report.
  GetFileSizeOrMax(fileName);
  Log(LOG_NOTABLE, L"Detected PCD event use by monitored process %s: %s", fileName.c_str(),
      processName.c_str());
  callback(fileName.c_str(), processName.c_str(), user.c_str(), event.GetEndTime(),
           static_cast<std::uint32_t>(event.GetFileEventType()));
}

}  // namespace ostrel
