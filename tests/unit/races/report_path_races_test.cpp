// The road from the caches to the host's callbacks with all its threads at once: the notification loop files
// events, the packet reader files streams, the disk event thread reports, the host switches. What asks
// Windows on that road is answered by the test, so that it runs under ThreadSanitizer.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "cache/cache_callbacks.h"
#include "cache/tab_title_switch.h"
#include "detect/disk_event_worker.h"
#include "support/log_capture.h"
#include "support/test_thread.h"

namespace {

using ostrel_test::TestThread;

constexpr unsigned long long NOW = 100001;
constexpr unsigned long long DUE = 40000;
constexpr unsigned FILES = 2000;

// The callbacks come without a context.
std::mutex reportsMutex;
std::map<std::wstring, int> reports;

void CountActivity(const wchar_t* fileName, const wchar_t*, const wchar_t*, std::uint64_t, std::uint32_t,
                   std::int32_t, wchar_t**, std::uint32_t*, wchar_t**, std::int32_t, wchar_t**,
                   const wchar_t*, std::uint8_t, const wchar_t*, const wchar_t*, std::uint32_t,
                   const wchar_t*, const wchar_t*) {
  const std::lock_guard lock(reportsMutex);
  ++reports[fileName];
}

void CountCloudDriveEvent(const wchar_t* fileName, const wchar_t*, const wchar_t*, std::uint64_t,
                          std::uint32_t) {
  const std::lock_guard lock(reportsMutex);
  ++reports[fileName];
}

std::wstring Name(const wchar_t* folder, unsigned number) {
  return std::wstring(L"C:\\") + folder + L"\\" + std::to_wstring(number);
}

std::unique_ptr<ReadEventCache> MakeCache() {
  using namespace ostrel_test;
  return std::make_unique<ReadEventCache>(userLookup, tabTitleLookup, directoryTest);
}

TEST(ReportPathRaces, EveryFiledEventReachesTheHostOnceWhateverElseGoesOn) {
  ostrel_test::cacheCallbacks = ostrel_test::OrdinaryCallbacks();
  reports.clear();
  const ostrel_test::LogCapture log;
  const auto uploads = MakeCache();
  const auto downloads = MakeCache();
  const auto cloudDrive = MakeCache();
  NetworkEventCache uploadStreams(1);
  NetworkEventCache downloadStreams(0);
  SentEventCache sentEvents;
  ostrel::HostCallbacks callbacks;
  callbacks.activity = CountActivity;
  callbacks.pcd = CountCloudDriveEvent;
  ostrel::TabTitleSwitch tabTitles(*uploads, *downloads);
  ostrel::FileEventReporter reporter(callbacks);
  ostrel::DiskEventWorker worker(
      {*uploads, *downloads, *cloudDrive, uploadStreams, downloadStreams, sentEvents}, reporter);

  std::atomic<bool> filed{false};
  {
    const TestThread diskEventThread([&] {
      while (!filed) worker.RunPass(NOW);
    });
    const TestThread packetReader([&] {
      for (int port = 0; !filed; port = (port + 1) % 100) {
        uploadStreams.AddEvent(L"p", 1, nullptr, IPV4, port, DUE, 1);
        downloadStreams.AddEvent(L"p", 1, nullptr, IPV4, port, DUE, 1);
      }
    });
    const TestThread host([&] {
      while (!filed) {
        tabTitles.Disable();
        tabTitles.Enable();
        callbacks.activity = CountActivity;
        callbacks.pcd = CountCloudDriveEvent;
      }
    });
    const TestThread notificationLoop([&] {
      for (unsigned i = 0; i < FILES; ++i) {
        uploads->AddEvent(Name(L"up", i), nullptr, L"p", 1, DUE, 0, FILE_EVENT_READ, 10);
        downloads->AddEvent(Name(L"down", i), nullptr, L"p", 1, DUE, 0, FILE_EVENT_WRITE, 10);
        uploads->RemoveEvent(Name(L"down", i), 1);
        cloudDrive->AddEvent(Name(L"cloud", i), nullptr, L"p", 1, DUE, 0, FILE_EVENT_CLOUD_DRIVE_FIRST, 0);
      }
      filed = true;
    });
  }
  worker.RunPass(NOW);

  EXPECT_EQ(reports.size(), 3U * FILES);
  for (const auto& [name, count] : reports) EXPECT_EQ(count, 1) << name.size();
  EXPECT_EQ(uploads->GetCacheCount() + downloads->GetCacheCount() + cloudDrive->GetCacheCount(), 0U);
}

}  // namespace
