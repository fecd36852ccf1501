#include "sample_events.h"

#include <utility>
#include <vector>

namespace ostrel::bench {

namespace {

unsigned char SomeUser(void* /*processHandle*/, std::wstring& user) {
  user = USER;
  return 1;
}

std::vector<std::wstring> NoTitles(ULong32 /*processId*/, std::wstring /*processName*/,
                                   std::wstring& /*status*/) {
  return {};
}

unsigned char NoDirectory(std::wstring /*fileName*/) {
  return 0;
}

}  // namespace

std::wstring FileName(std::size_t number) {
  return L"C:\\Users\\someone\\Documents\\Projects\\report-" + std::to_wstring(number) + L".docx";
}

std::unique_ptr<ReadEventCache> MakeReadEventCache() {
  UserLookup userLookup = SomeUser;
  TabTitleLookup tabTitleLookup = NoTitles;
  DirectoryTest directoryTest = NoDirectory;
  auto cache = std::make_unique<ReadEventCache>(userLookup, tabTitleLookup, directoryTest);
  cache->DisableTabTitleCapture();
  return cache;
}

void Add(ReadEventCache& cache, const std::wstring& fileName, const std::wstring& processName,
         ULong32 processId, unsigned long long time) {
  cache.AddEvent(fileName, nullptr, processName, processId, time, 0, FILE_EVENT_READ, 4096);
}

void Add(BareMap& map, const std::wstring& fileName, const std::wstring& processName, ULong32 processId,
         unsigned long long time) {
  DiskCacheKey key(fileName, processId);
  const auto found = map.find(key);
  if (found != map.end()) {
    found->second.UpdateEndTime(time);
    found->second.UpdateReadSize(4096);
    return;
  }
  std::vector<std::wstring> noTitles;
  map.emplace(std::move(key), ReadEventMetaData(USER, processName, fileName, processId, time, time, noTitles,
                                                L"", 0, FILE_EVENT_READ, 4096));
}

}  // namespace ostrel::bench
