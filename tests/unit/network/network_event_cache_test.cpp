#include "network/network_event_cache.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "log/log.h"
#include "support/log_capture.h"
#include "support/test_thread.h"

namespace {

using ostrel::ULong32;
using ostrel_test::DEADLINE;
using ostrel_test::LogCapture;
using ostrel_test::LogLine;
using ostrel_test::Signal;
using ostrel_test::TestThread;

constexpr wchar_t PROCESS[] = L"chrome.exe";

// Long enough for a call that finds the lock free to come back many times over.
constexpr std::chrono::milliseconds SHUT_OUT{150};

const LogLine NO_MATCH{7, L"Could not find any good match. Returning all possibilities."};

std::vector<ULong32> Addresses(const std::vector<IpPort>& endpoints) {
  std::vector<ULong32> addresses;
  for (const IpPort& endpoint : endpoints) addresses.push_back(endpoint.GetIpV4Address());
  return addresses;
}

// Makes a call on another thread at the first line that is logged from now on. The members log with the
// cache's mutex held.
class Intrusion {
 public:
  Intrusion(std::function<void()> call, std::chrono::milliseconds patience)
      : call_(std::move(call)), patience_(patience) {
    current = this;
    ostrel::SetLogSink(OnLine, ostrel::LOG_DETAIL);
  }
  ~Intrusion() {
    thread_.reset();  // logs too, perhaps
    ostrel::SetLogSink(nullptr, 0);
    current = nullptr;
  }
  Intrusion(const Intrusion&) = delete;
  Intrusion& operator=(const Intrusion&) = delete;

  bool HasBegun() const { return hasBegun_; }
  // While the line was being logged.
  bool HasReturned() const { return hasReturned_; }

 private:
  static void OnLine(const wchar_t* /*text*/, std::uint32_t /*level*/) {
    if (!current->hasBegun_.exchange(true)) current->Begin();
  }

  void Begin() {
    thread_ = std::make_unique<TestThread>([this] {
      call_();
      returned_.Set();
    });
    hasReturned_ = returned_.WaitFor(patience_);
  }

  // The sink comes without a context.
  static inline Intrusion* current = nullptr;

  std::function<void()> call_;
  std::chrono::milliseconds patience_;
  std::atomic<bool> hasBegun_{false};
  bool hasReturned_ = false;
  Signal returned_;
  std::unique_ptr<TestThread> thread_;
};

class NetworkEventCacheTest : public testing::Test {
 protected:
  // A stream is named by its IPv4 address; the greatest address comes first in the cache.
  void Add(ULong32 ipv4, unsigned long long bytes, unsigned long long time = 1000, int port = 443) {
    cache_.AddEvent(PROCESS, ipv4, nullptr, IPV4, port, time, bytes);
  }
  std::vector<ULong32> Likely(unsigned long long size) {
    return Addresses(cache_.GetLikelyEvents(PROCESS, 0, 0, size));
  }
  // Whether a single stream of these bytes is a match for a file of this size, as told by the log.
  bool Matches(unsigned long long bytes, unsigned long long size) {
    cache_.PurgeAllEvents();
    Add(1, bytes);
    log_.Take();
    EXPECT_EQ(Likely(size), std::vector<ULong32>{1});
    return log_.Take().empty();
  }

  LogCapture log_;
  NetworkEventCache cache_{1};
};

TEST_F(NetworkEventCacheTest, TheAgeLimitIsSeventySeconds) {
  static_assert(NetworkEventCache::MILLISECOND_THRESHOLD == 70000);
  const int& threshold = NetworkEventCache::MILLISECOND_THRESHOLD;
  EXPECT_EQ(threshold, 70000);
}

TEST_F(NetworkEventCacheTest, ANewStreamIsLogged) {
  Add(167772161, 5000000000);
  EXPECT_EQ(log_.Take(),
            (std::vector<LogLine>{{7, L"added network event: upload chrome.exe: 167772161:443 5000000000"}}));
}

TEST_F(NetworkEventCacheTest, TheDirectionWordIsUploadForAnyNonZeroFlag) {
  NetworkEventCache download(0);
  NetworkEventCache upload(-7);
  download.AddEvent(PROCESS, 1, nullptr, IPV4, 2, 3, 4);
  upload.AddEvent(PROCESS, 1, nullptr, IPV4, 2, 3, 4);
  EXPECT_EQ(log_.Take(), (std::vector<LogLine>{{7, L"added network event: download chrome.exe: 1:2 4"},
                                               {7, L"added network event: upload chrome.exe: 1:2 4"}}));
}

TEST_F(NetworkEventCacheTest, ASecondStreamOfAProcessIsLoggedAsTheFirst) {
  Add(1, 10);
  Add(2, 20);
  EXPECT_EQ(log_.Take(), (std::vector<LogLine>{{7, L"added network event: upload chrome.exe: 1:443 10"},
                                               {7, L"added network event: upload chrome.exe: 2:443 20"}}));
  EXPECT_EQ(cache_.GetStreamCount(PROCESS), 2U);
  EXPECT_EQ(cache_.GetCacheCount(), 1U);
}

TEST_F(NetworkEventCacheTest, AFurtherReportGrowsTheStreamAndLogsTheNewTotal) {
  Add(1, 10, 1000);
  log_.Take();
  Add(1, 20, 2000);
  EXPECT_EQ(log_.Take(),
            (std::vector<LogLine>{
                {7, L"added to existing networkevent: upload chrome.exe: 1:443 20 currentBytes: 30"}}));
  EXPECT_EQ(cache_.GetStreamCount(PROCESS), 1U);
}

// The total is shown as a signed 32-bit number: above 2 GiB it reads as negative.
TEST_F(NetworkEventCacheTest, TheLoggedTotalShowsItsLow32Bits) {
  Add(1, 0x7FFFFFFF);
  Add(1, 1);
  Add(1, 0x80000005);
  const std::vector<LogLine> lines = log_.Take();
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[1].text,
            L"added to existing networkevent: upload chrome.exe: 1:443 1 currentBytes: -2147483648");
  EXPECT_EQ(lines[2].text,
            L"added to existing networkevent: upload chrome.exe: 1:443 2147483653 currentBytes: 5");
}

TEST_F(NetworkEventCacheTest, TheEndTimeIsTheTimeOfTheLatestReportEvenWhenItIsEarlier) {
  Add(1, 10, 5000);
  Add(1, 10, 2000);
  EXPECT_EQ(cache_.PurgeEvents(72000), 0);
  EXPECT_EQ(cache_.PurgeEvents(72001), 1);
}

TEST_F(NetworkEventCacheTest, AnotherPortAddressVersionOrProcessIsAnotherStream) {
  std::array<unsigned char, 16> zero{};
  std::array<unsigned char, 16> one{1};
  Add(0, 1);
  Add(0, 1, 1000, 80);
  Add(1, 1);
  cache_.AddEvent(PROCESS, 0, zero.data(), IPV6, 443, 1000, 1);
  cache_.AddEvent(PROCESS, 0, one.data(), IPV6, 443, 1000, 1);
  EXPECT_EQ(cache_.GetStreamCount(PROCESS), 5U);
  cache_.AddEvent(L"Chrome.exe", 0, nullptr, IPV4, 443, 1000, 1);
  EXPECT_EQ(cache_.GetStreamCount(PROCESS), 5U);
  EXPECT_EQ(cache_.GetStreamCount(L"Chrome.exe"), 1U);
  EXPECT_EQ(cache_.GetCacheCount(), 2U);
}

TEST_F(NetworkEventCacheTest, AnIpV4StreamIgnoresTheIpV6Bytes) {
  std::array<unsigned char, 16> garbage{9, 9, 9};
  cache_.AddEvent(PROCESS, 1, garbage.data(), IPV4, 443, 1000, 1);
  Add(1, 1);
  EXPECT_EQ(cache_.GetStreamCount(PROCESS), 1U);
}

TEST_F(NetworkEventCacheTest, IpV6StreamsAreToldApartByTheirSixteenBytesAndANullAddressIsAllZero) {
  std::array<unsigned char, 16> zero{};
  cache_.AddEvent(PROCESS, 1, zero.data(), IPV6, 443, 1000, 1);
  cache_.AddEvent(PROCESS, 2, nullptr, IPV6, 443, 1000, 1);
  EXPECT_EQ(cache_.GetStreamCount(PROCESS), 1U);
}

TEST_F(NetworkEventCacheTest, CountsOfAnUnknownProcessAreZeroAndLeaveNoEntry) {
  EXPECT_EQ(cache_.GetStreamCount(L"nobody.exe"), 0U);
  EXPECT_EQ(cache_.GetCacheCount(), 0U);
}

TEST_F(NetworkEventCacheTest, AStreamIsPurgedWhenItsEndLiesMoreThanSeventySecondsBack) {
  Add(1, 10, 1000);
  log_.Take();
  EXPECT_EQ(cache_.PurgeEvents(71000), 0);
  EXPECT_TRUE(log_.Take().empty());
  EXPECT_EQ(cache_.PurgeEvents(71001), 1);
  EXPECT_EQ(log_.Take(), (std::vector<LogLine>{{7, L"purged network event: upload chrome.exe 1:443 10"}}));
}

TEST_F(NetworkEventCacheTest, AProcessKeepsItsEntryWhenItsLastStreamIsPurged) {
  Add(1, 10, 1000);
  cache_.PurgeEvents(100000);
  EXPECT_EQ(cache_.GetStreamCount(PROCESS), 0U);
  EXPECT_EQ(cache_.GetCacheCount(), 1U);
  Add(1, 10, 1000);
  EXPECT_EQ(cache_.GetStreamCount(PROCESS), 1U);
  EXPECT_EQ(cache_.GetCacheCount(), 1U);
}

TEST_F(NetworkEventCacheTest, PurgedStreamsAreLoggedByProcessNameThenInStreamOrder) {
  cache_.AddEvent(L"b.exe", 1, nullptr, IPV4, 80, 1000, 11);
  cache_.AddEvent(L"b.exe", 2, nullptr, IPV4, 80, 1000, 22);
  cache_.AddEvent(L"b.exe", 3, nullptr, IPV4, 80, 90000, 33);
  cache_.AddEvent(L"a.exe", 9, nullptr, IPV6, 80, 1000, 99);
  cache_.AddEvent(L"a.exe", 5, nullptr, IPV4, 80, 1000, 55);
  log_.Take();
  EXPECT_EQ(cache_.PurgeEvents(80000), 4);
  EXPECT_EQ(log_.Take(), (std::vector<LogLine>{{7, L"purged network event: upload a.exe 9:80 99"},
                                               {7, L"purged network event: upload a.exe 5:80 55"},
                                               {7, L"purged network event: upload b.exe 2:80 22"},
                                               {7, L"purged network event: upload b.exe 1:80 11"}}));
  EXPECT_EQ(cache_.GetStreamCount(L"b.exe"), 1U);
}

// Its end time plus the age limit wraps to little more than a minute after 1970.
TEST_F(NetworkEventCacheTest, AStreamWhoseEndTimeLiesAtTheEndOfTheRangeIsPurgedAtOnce) {
  Add(1, 10, ~0ULL);
  EXPECT_EQ(cache_.PurgeEvents(69999), 0);
  EXPECT_EQ(cache_.PurgeEvents(70000), 1);
  EXPECT_EQ(cache_.GetStreamCount(PROCESS), 0U);
}

TEST_F(NetworkEventCacheTest, PurgingEverythingRemovesTheProcessesTooAndLogsNothing) {
  Add(1, 10);
  cache_.AddEvent(L"b.exe", 1, nullptr, IPV4, 80, 1000, 11);
  log_.Take();
  cache_.PurgeAllEvents();
  EXPECT_EQ(cache_.GetCacheCount(), 0U);
  EXPECT_EQ(cache_.GetStreamCount(PROCESS), 0U);
  EXPECT_TRUE(log_.Take().empty());
}

TEST_F(NetworkEventCacheTest, ASizeOfZeroHasNoLikelyStreamAndLogsNothing) {
  Add(1, 10);
  log_.Take();
  EXPECT_TRUE(Likely(0).empty());
  EXPECT_TRUE(log_.Take().empty());
}

TEST_F(NetworkEventCacheTest, AnUnknownProcessHasNoLikelyStreamAndLogsNothing) {
  EXPECT_TRUE(Likely(10).empty());
  EXPECT_TRUE(log_.Take().empty());
}

TEST_F(NetworkEventCacheTest, AProcessWithoutStreamsHasNoLikelyStreamAndIsLogged) {
  Add(1, 10, 1000);
  cache_.PurgeEvents(100000);
  log_.Take();
  EXPECT_TRUE(Likely(10).empty());
  EXPECT_EQ(log_.Take(), std::vector<LogLine>{NO_MATCH});
}

TEST_F(NetworkEventCacheTest, TheLikelyStreamComesWithItsWholeEndpoint) {
  std::array<unsigned char, 16> address{0x20, 0x01, 0x0d, 0xb8};
  cache_.AddEvent(PROCESS, 7, address.data(), IPV6, 8443, 1000, 100);
  const std::vector<IpPort> likely = cache_.GetLikelyEvents(PROCESS, 0, 0, 100);
  ASSERT_EQ(likely.size(), 1U);
  EXPECT_EQ(likely[0].GetIpV4Address(), 7U);
  EXPECT_EQ(likely[0].GetIpV6Address(), address);
  EXPECT_EQ(likely[0].GetIpVersion(), IPV6);
  EXPECT_EQ(likely[0].GetPort(), 8443);
}

TEST_F(NetworkEventCacheTest, ForASmallFileBytesMustLieStrictlyBetweenThreeQuartersAndTwoAndAHalfTimes) {
  EXPECT_FALSE(Matches(30000, 40000));
  EXPECT_TRUE(Matches(30001, 40000));
  EXPECT_TRUE(Matches(99999, 40000));
  EXPECT_FALSE(Matches(100000, 40000));
}

TEST_F(NetworkEventCacheTest, From50000BytesOnTheUpperFactorIsOneAndAQuarter) {
  EXPECT_TRUE(Matches(124996, 49999));  // below 124997.5, cut to 124997
  EXPECT_FALSE(Matches(124997, 49999));
  EXPECT_FALSE(Matches(37500, 50000));
  EXPECT_TRUE(Matches(37501, 50000));
  EXPECT_TRUE(Matches(62499, 50000));
  EXPECT_FALSE(Matches(62500, 50000));
}

TEST_F(NetworkEventCacheTest, BoundsAreCutToWholeBytes) {
  EXPECT_FALSE(Matches(2, 3));  // above 2.25, cut to 2
  EXPECT_TRUE(Matches(3, 3));
  EXPECT_TRUE(Matches(6, 3));  // below 7.5, cut to 7
  EXPECT_FALSE(Matches(7, 3));
  EXPECT_FALSE(Matches(0, 1));
  EXPECT_TRUE(Matches(1, 1));
  EXPECT_FALSE(Matches(2, 1));  // below 2.5, cut to 2
}

TEST_F(NetworkEventCacheTest, LargeSizesAreRoundedToSinglePrecisionFirst) {
  // 2^24 + 1 becomes 2^24, whose bounds are 12582912 and 20971520.
  EXPECT_FALSE(Matches(12582912, 16777217));
  EXPECT_TRUE(Matches(12582913, 16777217));
  EXPECT_TRUE(Matches(20971519, 16777217));
  EXPECT_FALSE(Matches(20971520, 16777217));
  // 2^24 + 3 becomes 2^24 + 4, whose upper bound is 20971524; unrounded it would be 20971523.
  EXPECT_TRUE(Matches(20971523, 16777219));
  EXPECT_FALSE(Matches(20971524, 16777219));
  // The product is rounded too: three quarters of 44739244 are 33554433, which single precision makes
  // 33554432.
  EXPECT_FALSE(Matches(33554432, 44739244));
  EXPECT_TRUE(Matches(33554433, 44739244));
}

TEST_F(NetworkEventCacheTest, OfSeveralMatchesTheClosestWins) {
  Add(5, 900);
  Add(4, 1050);
  Add(3, 999);
  Add(2, 1002);
  Add(1, 5000);
  EXPECT_EQ(Likely(1000), std::vector<ULong32>{3});
}

TEST_F(NetworkEventCacheTest, OnATieTheStreamThatIsFirstInOrderWins) {
  Add(1, 900);
  Add(2, 1100);
  EXPECT_EQ(Likely(1000), std::vector<ULong32>{2});
  cache_.PurgeAllEvents();
  Add(1, 1100);
  Add(2, 900);
  EXPECT_EQ(Likely(1000), std::vector<ULong32>{2});
}

TEST_F(NetworkEventCacheTest, TheTotalOfAllReportsIsWhatCounts) {
  Add(1, 400);
  Add(1, 600);
  Add(2, 400);
  log_.Take();
  EXPECT_EQ(Likely(1000), std::vector<ULong32>{1});
}

TEST_F(NetworkEventCacheTest, TheTimesAreNotConsulted) {
  Add(1, 1000, 5000);
  EXPECT_EQ(cache_.GetLikelyEvents(PROCESS, 900000, 900001, 1000).size(), 1U);
  EXPECT_EQ(cache_.GetLikelyEvents(PROCESS, 2, 1, 1000).size(), 1U);
}

TEST_F(NetworkEventCacheTest, WithoutAMatchEveryStreamIsReturnedLargestFirst) {
  Add(1, 10);
  Add(2, 30000);
  Add(3, 20);
  Add(4, 9000000000);
  log_.Take();
  EXPECT_EQ(Likely(1000), (std::vector<ULong32>{4, 2, 3, 1}));
  EXPECT_EQ(log_.Take(), std::vector<LogLine>{NO_MATCH});
}

TEST_F(NetworkEventCacheTest, StreamsOfOtherProcessesAreNeverReturned) {
  cache_.AddEvent(L"b.exe", 9, nullptr, IPV4, 80, 1000, 1000);
  Add(1, 10);
  EXPECT_EQ(Likely(1000), std::vector<ULong32>{1});
}

// A stream that is off by 2 GiB or more is no match even within the bounds.
TEST_F(NetworkEventCacheTest, AMatchMustBeLessThan2147483647BytesOff) {
  constexpr unsigned long long size = 1ULL << 36;
  EXPECT_TRUE(Matches(size - 2147483646, size));
  EXPECT_FALSE(Matches(size - 2147483647, size));
  EXPECT_TRUE(Matches(size + 2147483646, size));
  EXPECT_FALSE(Matches(size + 2147483647, size));
}

TEST_F(NetworkEventCacheTest, AFileThatCouldNotBeSizedHasEveryStreamAsLikely) {
  Add(1, 10);
  Add(2, 30000);
  log_.Take();
  EXPECT_EQ(Likely(~0ULL), (std::vector<ULong32>{2, 1}));
  EXPECT_EQ(log_.Take(), std::vector<LogLine>{NO_MATCH});
}

TEST_F(NetworkEventCacheTest, TheOtherMembersWaitWhileAStreamIsAdded) {
  const std::vector<std::function<void()>> calls = {
      [this] { cache_.AddEvent(L"b.exe", 1, nullptr, IPV4, 80, 1000, 1); }, [this] { cache_.PurgeEvents(1); },
      [this] { cache_.PurgeAllEvents(); }, [this] { Likely(1); }};
  for (const auto& call : calls) {
    const Intrusion intrusion(call, SHUT_OUT);
    Add(1, 10);
    EXPECT_TRUE(intrusion.HasBegun());
    EXPECT_FALSE(intrusion.HasReturned());
  }
}

TEST_F(NetworkEventCacheTest, CountsAreReadWithoutTheLock) {
  unsigned long long streams = 99;
  unsigned long long processes = 99;
  {
    const Intrusion intrusion(
        [&] {
          streams = cache_.GetStreamCount(PROCESS);
          processes = cache_.GetCacheCount();
        },
        DEADLINE);
    Add(1, 10);
    EXPECT_TRUE(intrusion.HasReturned());
  }
  EXPECT_EQ(streams, 1U);
  EXPECT_EQ(processes, 1U);
}

TEST_F(NetworkEventCacheTest, TheLikelyStreamsOfASizeOfZeroAreFoundWithoutTheLock) {
  const Intrusion intrusion([this] { Likely(0); }, DEADLINE);
  Add(1, 10);
  EXPECT_TRUE(intrusion.HasReturned());
}

// Single precision in whole numbers: the nearest multiple of the last of 24 bits, the even one when two are
// as near.
std::uint64_t RoundTo24Bits(std::uint64_t value) {
  std::uint64_t unit = 1;
  while (value / unit >= (1U << 24)) unit *= 2;
  const std::uint64_t down = value / unit;
  const std::uint64_t rest = value % unit;
  const bool up = rest * 2 > unit || (rest * 2 == unit && down % 2 == 1);
  return (down + (up ? 1 : 0)) * unit;
}

TEST_F(NetworkEventCacheTest, TheChoiceAgreesWithAReferenceOnRandomStreams) {
  unsigned matched = 0;
  for (unsigned seed = 0; seed < 4000; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937_64 random(seed);
    const std::uint64_t size = 1 + random() % (std::uint64_t{1} << (1 + random() % 36));
    const std::uint64_t rounded = RoundTo24Bits(size);
    const std::uint64_t lower = RoundTo24Bits(rounded * 3) / 4;
    const std::uint64_t upper =
        size < 50000 ? RoundTo24Bits(rounded * 5) / 2 : RoundTo24Bits(rounded * 5) / 4;
    const std::array<std::uint64_t, 6> corners{lower, lower + 1, upper - 1, upper, size, size / 2};

    cache_.PurgeAllEvents();
    std::vector<std::uint64_t> bytesOfAddress(1 + random() % 5);
    for (std::size_t address = 0; address < bytesOfAddress.size(); ++address) {
      const std::uint64_t corner = corners[random() % corners.size()];
      bytesOfAddress[address] = random() % 3 == 0 ? random() % (size * 3) : corner;
      Add(static_cast<ULong32>(address), bytesOfAddress[address]);
    }
    std::size_t best = bytesOfAddress.size();
    for (std::size_t address = bytesOfAddress.size(); address-- > 0;) {
      const std::uint64_t bytes = bytesOfAddress[address];
      const auto off = [size](std::uint64_t of) { return std::max(of, size) - std::min(of, size); };
      if (bytes <= lower || bytes >= upper || off(bytes) >= 2147483647) continue;
      if (best == bytesOfAddress.size() || off(bytes) < off(bytesOfAddress[best])) best = address;
    }

    log_.Take();
    const std::vector<ULong32> likely = Likely(size);
    if (best != bytesOfAddress.size()) {
      ++matched;
      ASSERT_EQ(likely, std::vector<ULong32>{static_cast<ULong32>(best)});
      ASSERT_TRUE(log_.Take().empty());
      continue;
    }
    ASSERT_EQ(log_.Take(), std::vector<LogLine>{NO_MATCH});
    ASSERT_EQ(likely.size(), bytesOfAddress.size());
    ASSERT_TRUE(std::is_sorted(likely.begin(), likely.end(), [&](ULong32 left, ULong32 right) {
      return bytesOfAddress[left] > bytesOfAddress[right];
    }));
    std::vector<ULong32> distinct = likely;
    std::sort(distinct.begin(), distinct.end());
    ASSERT_EQ(std::unique(distinct.begin(), distinct.end()), distinct.end());
  }
  EXPECT_GT(matched, 1000U);
  EXPECT_LT(matched, 3900U);
}

}  // namespace
