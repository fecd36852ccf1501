// The road from the caches to the host's callbacks with all its threads at once: the notification loop and
// one that is late to end file events, the packet reader files streams, the disk event thread reports, the
// host switches. What asks Windows on that road is answered by the test, so that it runs under
// ThreadSanitizer.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "cache/cache_callbacks.h"
#include "cache/irp_cache.h"
#include "cache/tab_title_switch.h"
#include "detect/disk_event_worker.h"
#include "log/log.h"
#include "network/packet_filing.h"
#include "support/log_capture.h"
#include "support/test_thread.h"
#include "util/ostrel_filter_lib_util.h"

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

ostrel::PacketRecord Packet(bool isUpload, int port) {
  ostrel::PacketRecord record{};
  record.bytes = 1;
  record.ipv4 = 1;
  record.port = port;
  record.outgoing = isUpload ? 1 : 0;
  record.time = DUE;
  record.ipVersion = port % 2 == 0 ? IPV4 : IPV6;
  return record;
}

// Some host's sink: any thread may be in it when the host gives another.
void IgnoreLine(const wchar_t* /*text*/, std::uint32_t /*level*/) {}

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

  IrpCache irpQueries;
  std::mutex irpQueriesMutex;
  const std::vector<std::wstring> ignoredSuffixes = {L".tmp", L":Zone.Identifier"};

  // As the notification loop takes an event.
  const auto receive = [&](std::wstring name, FILE_EVENT_TYPE type) {
    if (OstrelFilterLibUtil::ExcludeBasedOnExtension(name.data(), ignoredSuffixes)) return;
    if (type == FILE_EVENT_WRITE) {
      if (!ostrel::MergeEvent(*downloads, name, 1, DUE, 10)) {
        downloads->AddEvent(name, nullptr, L"p", 1, DUE, 0, type, 10);
      }
      uploads->RemoveEvent(name, 1);
      return;
    }
    if (type == FILE_EVENT_CLOUD_DRIVE_FIRST) {
      cloudDrive->AddEvent(name, nullptr, L"p", 1, DUE, 0, type, 0);
      return;
    }
    {
      const std::lock_guard lock(irpQueriesMutex);
      irpQueries.AddStdInfoQuery(name, 1, DUE, L"p");
      if (!ostrel::ShouldAllowRead(irpQueries, name.c_str(), 1, DUE, L"p")) return;
    }
    if (ostrel::MergeEvent(*uploads, name, 1, DUE, 10)) return;
    uploads->AddEvent(name, nullptr, L"p", 1, DUE, 0, type, 10);
  };
  const auto receiveEvery = [&](unsigned step, unsigned first) {
    for (unsigned i = first; i < FILES; i += step) {
      receive(Name(L"up", i), FILE_EVENT_READ);
      receive(Name(L"up", i) + L".TMP", FILE_EVENT_READ);
      receive(Name(L"down", i), FILE_EVENT_WRITE);
      receive(Name(L"cloud", i), FILE_EVENT_CLOUD_DRIVE_FIRST);
    }
  };

  std::atomic<bool> filed{false};
  {
    const TestThread diskEventThread([&] {
      while (!filed) worker.RunPass(NOW);
    });
    const TestThread packetReader([&] {
      for (int port = 0; !filed; port = (port + 1) % 100) {
        ostrel::FilePacket(Packet(true, port), L"p", uploadStreams, downloadStreams);
        ostrel::FilePacket(Packet(false, port), L"p", uploadStreams, downloadStreams);
      }
    });
    const TestThread host([&] {
      while (!filed) {
        tabTitles.Disable();
        tabTitles.Enable();
        callbacks.activity = CountActivity;
        callbacks.pcd = CountCloudDriveEvent;
        ostrel::SetLogSink(IgnoreLine, ostrel::LOG_NOTABLE);
        uploadStreams.PurgeAllEvents();
        downloadStreams.PurgeAllEvents();
      }
    });
    const TestThread notificationLoops([&] {
      {
        const TestThread loop([&] { receiveEvery(2, 0); });
        const TestThread lateLoop([&] { receiveEvery(2, 1); });
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
