// Guards a whole detection pass against costs that grow with the square of the events due, or with the caches
// when nothing is due.

#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include "cache/cache_callbacks.h"
#include "detect/disk_event_worker.h"
#include "speed/growth.h"

namespace {

using ostrel_test::Clock;
using ostrel_test::CostGrowsBelow;

constexpr unsigned long long NOW = 100001;
constexpr unsigned long long DUE = 40000;
constexpr unsigned long long NOT_DUE = 40001;

// The callbacks come without a context.
std::size_t reports = 0;

void CountActivity(const wchar_t*, const wchar_t*, const wchar_t*, std::uint64_t, std::uint32_t, std::int32_t,
                   wchar_t**, std::uint32_t*, wchar_t**, std::int32_t, wchar_t**, const wchar_t*,
                   std::uint8_t, const wchar_t*, const wchar_t*, std::uint32_t, const wchar_t*,
                   const wchar_t*) {
  ++reports;
}

void CountCloudDriveEvent(const wchar_t*, const wchar_t*, const wchar_t*, std::uint64_t, std::uint32_t) {
  ++reports;
}

class Detection {
 public:
  Detection() {
    ostrel_test::cacheCallbacks = ostrel_test::OrdinaryCallbacks();
    callbacks_.activity = CountActivity;
    callbacks_.pcd = CountCloudDriveEvent;
    reports = 0;
  }

  // One upload, one download and one cloud-drive event each time.
  void File(std::size_t times, unsigned long long time) {
    for (std::size_t i = 0; i < times; ++i) {
      const std::wstring number = std::to_wstring(i);
      uploads_.AddEvent(L"C:\\up\\" + number, nullptr, L"p", 1, time, 0, FILE_EVENT_READ, 10);
      downloads_.AddEvent(L"C:\\down\\" + number, nullptr, L"p", 1, time, 0, FILE_EVENT_WRITE, 10);
      cloudDrive_.AddEvent(L"C:\\cloud\\" + number, nullptr, L"p", 1, time, 0, FILE_EVENT_CLOUD_DRIVE_FIRST,
                           0);
    }
  }

  Clock::duration TimeOfPasses(int passes) {
    const Clock::time_point start = Clock::now();
    for (int pass = 0; pass < passes; ++pass) worker_.RunPass(NOW);
    return Clock::now() - start;
  }

 private:
  static ReadEventCache MakeCache() {
    return {ostrel_test::userLookup, ostrel_test::tabTitleLookup, ostrel_test::directoryTest};
  }

  ReadEventCache uploads_ = MakeCache();
  ReadEventCache downloads_ = MakeCache();
  ReadEventCache cloudDrive_ = MakeCache();
  NetworkEventCache uploadStreams_{1};
  NetworkEventCache downloadStreams_{0};
  SentEventCache sentEvents_;
  ostrel::HostCallbacks callbacks_;
  ostrel::FileEventReporter reporter_{callbacks_};
  ostrel::DiskEventWorker worker_{
      {uploads_, downloads_, cloudDrive_, uploadStreams_, downloadStreams_, sentEvents_}, reporter_};
};

Clock::duration TimeOfReporting(std::size_t times) {
  Detection detection;
  detection.File(times, DUE);
  const Clock::duration duration = detection.TimeOfPasses(1);
  EXPECT_EQ(reports, 3 * times);
  return duration;
}

Clock::duration TimeOfIdlePasses(std::size_t times) {
  Detection detection;
  detection.File(times, NOT_DUE);
  const Clock::duration duration = detection.TimeOfPasses(200);
  EXPECT_EQ(reports, 0U);
  return duration;
}

TEST(DetectionPassSpeed, ReportingFourTimesTheEventsCostsFarLessThanSixteenTimesTheTime) {
  EXPECT_TRUE(CostGrowsBelow(10, TimeOfReporting, 5000, 20000));
}

TEST(DetectionPassSpeed, APassWithNothingDueDoesNotGrowWithTheCaches) {
  EXPECT_TRUE(CostGrowsBelow(10, TimeOfIdlePasses, 1000, 50000));
}

}  // namespace
