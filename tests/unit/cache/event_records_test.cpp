#include "cache/event_records.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <map>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using ostrel::ULong32;

constexpr unsigned long long LARGEST = ~0ULL;

std::array<unsigned char, 16> Address(unsigned char first, unsigned char last) {
  std::array<unsigned char, 16> address{};
  address.front() = first;
  address.back() = last;
  return address;
}

IpPort V4(ULong32 address, int port) {
  return IpPort(address, port, nullptr, IPV4);
}

IpPort V6(unsigned char first, unsigned char last, int port) {
  std::array<unsigned char, 16> address = Address(first, last);
  return IpPort(0, port, address.data(), IPV6);
}

ReadEventMetaData Event(std::vector<std::wstring> hints = {}, ULong32 readSize = 0) {
  return ReadEventMetaData(L"user", L"chrome.exe", L"C:\\a", 7, 1000, 2000, hints, L"status", 1,
                           FILE_EVENT_WRITE, readSize);
}

template <typename Record>
constexpr bool IS_PLAIN_VALUE = std::is_copy_constructible_v<Record>&& std::is_copy_assignable_v<Record>&&
    std::is_nothrow_move_constructible_v<Record>&& std::is_nothrow_move_assignable_v<Record>;
static_assert(IS_PLAIN_VALUE<DiskCacheKey> && IS_PLAIN_VALUE<IpPort> && IS_PLAIN_VALUE<ReadEventMetaData> &&
              IS_PLAIN_VALUE<BytesTimeStamps> && IS_PLAIN_VALUE<IrpCacheMetaData>);

TEST(DiskCacheKey, ReturnsWhatItWasGiven) {
  const DiskCacheKey key(L"C:\\a", LARGEST);
  EXPECT_EQ(key.GetFilePath(), L"C:\\a");
  EXPECT_EQ(key.GetProcessId(), LARGEST);
}

TEST(DiskCacheKey, AHigherProcessIdComesFirstWhateverThePath) {
  const DiskCacheKey five(L"C:\\a", 5);
  const DiskCacheKey seven(L"C:\\a", 7);
  EXPECT_TRUE(seven < five);
  EXPECT_FALSE(five < seven);
  EXPECT_TRUE(DiskCacheKey(L"C:\\a", 7) < DiskCacheKey(L"C:\\z", 5));
  EXPECT_TRUE(DiskCacheKey(L"C:\\z", 7) < DiskCacheKey(L"C:\\a", 5));

  const std::map<DiskCacheKey, int> visited{{five, 5}, {seven, 7}};
  EXPECT_EQ(visited.begin()->second, 7);
}

TEST(DiskCacheKey, ProcessIdsCompareUnsignedIn64Bits) {
  EXPECT_TRUE(DiskCacheKey(L"a", LARGEST) < DiskCacheKey(L"a", 1));
  EXPECT_TRUE(DiskCacheKey(L"a", 0x100000000) < DiskCacheKey(L"a", 0xFFFFFFFF));
}

TEST(DiskCacheKey, WithinAProcessTheGreaterPathComesFirst) {
  EXPECT_TRUE(DiskCacheKey(L"C:\\b", 5) < DiskCacheKey(L"C:\\a", 5));
  EXPECT_FALSE(DiskCacheKey(L"C:\\a", 5) < DiskCacheKey(L"C:\\b", 5));
}

TEST(DiskCacheKey, APrefixIsTheLesserPathAndSoComesLast) {
  EXPECT_TRUE(DiskCacheKey(L"C:\\ab", 5) < DiskCacheKey(L"C:\\a", 5));
  EXPECT_FALSE(DiskCacheKey(L"C:\\a", 5) < DiskCacheKey(L"C:\\ab", 5));
}

TEST(DiskCacheKey, EqualKeysAreNotLess) {
  EXPECT_FALSE(DiskCacheKey(L"C:\\a", 5) < DiskCacheKey(L"C:\\a", 5));
}

TEST(DiskCacheKey, CaseIsNotFolded) {
  EXPECT_TRUE(DiskCacheKey(L"c:\\a", 5) < DiskCacheKey(L"C:\\a", 5));
  EXPECT_FALSE(DiskCacheKey(L"C:\\a", 5) < DiskCacheKey(L"c:\\a", 5));
}

TEST(DiskCacheKey, CodeUnitsCompareUnsigned) {
  EXPECT_TRUE(DiskCacheKey(L"\xFF41", 5) < DiskCacheKey(L"a", 5));
}

TEST(IpPort, ReturnsWhatItWasGiven) {
  std::array<unsigned char, 16> address = Address(1, 2);
  const IpPort endpoint(0x0A000001, -443, address.data(), IPV6);
  EXPECT_EQ(endpoint.GetIpV4Address(), 0x0A000001U);
  EXPECT_EQ(endpoint.GetPort(), -443);
  EXPECT_EQ(endpoint.GetIpVersion(), IPV6);
  EXPECT_EQ(endpoint.GetIpV6Address(), address);
}

TEST(IpPort, OnlyAnIpV6RecordTakesTheSixteenBytes) {
  std::array<unsigned char, 16> address = Address(1, 2);
  const std::array<unsigned char, 16> zero{};
  EXPECT_EQ(IpPort(1, 2, address.data(), IPV4).GetIpV6Address(), zero);
  EXPECT_EQ(IpPort(1, 2, address.data(), static_cast<IP_VERSION>(3)).GetIpV6Address(), zero);
  EXPECT_EQ(IpPort(1, 2, nullptr, IPV6).GetIpV6Address(), zero);
}

TEST(IpPort, EqualIpV4RecordsIgnoreTheCallersIpV6Bytes) {
  std::array<unsigned char, 16> address = Address(1, 2);
  EXPECT_TRUE(IpPort(0x0A000001, 443, address.data(), IPV4) == IpPort(0x0A000001, 443, nullptr, IPV4));
}

TEST(IpPort, DiffersByVersionPortOrAddress) {
  EXPECT_TRUE(V4(1, 2) == V4(1, 2));
  EXPECT_FALSE(V4(1, 2) == V4(1, 3));
  EXPECT_FALSE(V4(1, 2) == V4(2, 2));
  EXPECT_FALSE(V4(0, 2) == V6(0, 0, 2));
  EXPECT_TRUE(V6(1, 2, 3) == V6(1, 2, 3));
  EXPECT_FALSE(V6(1, 2, 3) == V6(1, 2, 4));
  EXPECT_FALSE(V6(1, 2, 3) == V6(1, 3, 3));
  EXPECT_FALSE(V6(1, 2, 3) == V6(2, 2, 3));
}

TEST(IpPort, IpV6RecordsDoNotCompareTheirIpV4Field) {
  std::array<unsigned char, 16> address = Address(1, 2);
  EXPECT_TRUE(IpPort(1, 443, address.data(), IPV6) == IpPort(2, 443, address.data(), IPV6));
  EXPECT_FALSE(IpPort(1, 443, address.data(), IPV6) < IpPort(2, 443, address.data(), IPV6));
  EXPECT_FALSE(IpPort(2, 443, address.data(), IPV6) < IpPort(1, 443, address.data(), IPV6));
}

// A container searched by == never finds a record of an unknown version again.
TEST(IpPort, ARecordOfAnUnknownVersionEqualsNothingNotEvenItself) {
  const IpPort unknown(1, 2, nullptr, static_cast<IP_VERSION>(3));
  EXPECT_FALSE(unknown == unknown);
}

TEST(IpPort, IpV4RecordsSortDescendingByAddressThenByPort) {
  EXPECT_TRUE(V4(2, 1) < V4(1, 9));
  EXPECT_FALSE(V4(1, 9) < V4(2, 1));
  EXPECT_TRUE(V4(0x80000000, 1) < V4(0x7FFFFFFF, 1));
  EXPECT_TRUE(V4(1, 8080) < V4(1, 443));
  EXPECT_FALSE(V4(1, 443) < V4(1, 8080));
  EXPECT_FALSE(V4(1, 443) < V4(1, 443));
  EXPECT_TRUE(V4(1, 1) < V4(1, -1));
}

TEST(IpPort, IpV6RecordsSortDescendingByUnsignedBytesThenByPort) {
  EXPECT_TRUE(V6(2, 0, 1) < V6(1, 9, 9));
  EXPECT_FALSE(V6(1, 9, 9) < V6(2, 0, 1));
  EXPECT_TRUE(V6(0x80, 0, 1) < V6(0x7F, 0, 1));
  EXPECT_TRUE(V6(1, 3, 1) < V6(1, 2, 9));
  EXPECT_TRUE(V6(1, 2, 8080) < V6(1, 2, 443));
  EXPECT_FALSE(V6(1, 2, 443) < V6(1, 2, 8080));
  EXPECT_FALSE(V6(1, 2, 443) < V6(1, 2, 443));
}

TEST(IpPort, PortsOfIpV6RecordsCompareSigned) {
  EXPECT_TRUE(V6(1, 2, 1) < V6(1, 2, -1));
  EXPECT_FALSE(V6(1, 2, -1) < V6(1, 2, 1));
}

TEST(IpPort, EveryByteOfAnIpV6AddressCountsForMoreThanAllThatFollowIt) {
  for (std::size_t i = 0; i < 16; ++i) {
    SCOPED_TRACE(i);
    std::array<unsigned char, 16> greater{};
    greater[i] = 1;
    std::array<unsigned char, 16> lesser{};
    std::fill(lesser.begin() + static_cast<std::ptrdiff_t>(i) + 1, lesser.end(),
              static_cast<unsigned char>(0xFF));
    std::array<unsigned char, 16> zero{};
    const IpPort first(0, 443, greater.data(), IPV6);
    for (unsigned char* const other : {lesser.data(), zero.data()}) {
      const IpPort second(0, 443, other, IPV6);
      EXPECT_FALSE(first == second);
      EXPECT_TRUE(first < second);
      EXPECT_FALSE(second < first);
    }
  }
}

TEST(IpPort, EveryOtherRecordSortsBeforeAnIpV4Record) {
  const IpPort unknown(0, 0, nullptr, static_cast<IP_VERSION>(3));
  EXPECT_TRUE(V6(0, 0, 0) < V4(0xFFFFFFFF, 65535));
  EXPECT_FALSE(V4(0xFFFFFFFF, 65535) < V6(0, 0, 0));
  EXPECT_TRUE(unknown < V4(1, 1));
  EXPECT_FALSE(V4(1, 1) < unknown);
}

// All records of unknown versions share one place in a map.
TEST(IpPort, RecordsOfUnknownVersionsAndIpV6RecordsAreNotOrderedAmongThemselves) {
  const IpPort three(1, 1, nullptr, static_cast<IP_VERSION>(3));
  const IpPort four(9, 9, nullptr, static_cast<IP_VERSION>(4));
  EXPECT_FALSE(three < four);
  EXPECT_FALSE(four < three);
  EXPECT_FALSE(three < V6(1, 1, 1));
  EXPECT_FALSE(V6(1, 1, 1) < three);
}

TEST(ReadEventMetaData, ReturnsWhatItWasGiven) {
  ReadEventMetaData event = Event({L"title one", L"title two"}, 42);
  EXPECT_EQ(event.GetUser(), L"user");
  EXPECT_EQ(event.GetProcessName(), L"chrome.exe");
  EXPECT_EQ(event.GetFileName(), L"C:\\a");
  EXPECT_EQ(event.GetProcessId(), 7U);
  EXPECT_EQ(event.GetStartTime(), 1000U);
  EXPECT_EQ(event.GetEndTime(), 2000U);
  EXPECT_EQ(event.GetDestHints(), (std::vector<std::wstring>{L"title one", L"title two"}));
  EXPECT_EQ(event.GetTabTitleStatus(), L"status");
  EXPECT_EQ(event.IsNetworkEvent(), 1);
  EXPECT_EQ(event.GetFileEventType(), FILE_EVENT_WRITE);
  EXPECT_EQ(event.GetReadSize(), 42U);
}

TEST(ReadEventMetaData, CopiesTheHintsAndLeavesTheCallersAlone) {
  std::vector<std::wstring> hints{L"title"};
  const ReadEventMetaData event(L"", L"", L"", 0, 0, 0, hints, L"", 0, FILE_EVENT_READ, 0);
  EXPECT_EQ(hints, std::vector<std::wstring>{L"title"});
  hints[0] = L"changed";
  EXPECT_EQ(event.GetDestHints(), std::vector<std::wstring>{L"title"});
}

TEST(ReadEventMetaData, KeepsAnUnknownEventTypeAndAnyByteAsTheNetworkFlag) {
  std::vector<std::wstring> hints;
  ReadEventMetaData event(L"", L"", L"", 0, 0, 0, hints, L"", 200, static_cast<FILE_EVENT_TYPE>(-5), 0);
  EXPECT_EQ(event.GetFileEventType(), -5);
  EXPECT_EQ(event.IsNetworkEvent(), 200);
}

TEST(ReadEventMetaData, TheEndTimeIsReplacedAlsoByAnEarlierOne) {
  ReadEventMetaData event = Event();
  event.UpdateEndTime(5000);
  EXPECT_EQ(event.GetEndTime(), 5000U);
  event.UpdateEndTime(3);
  EXPECT_EQ(event.GetEndTime(), 3U);
  EXPECT_EQ(event.GetStartTime(), 1000U);
}

TEST(ReadEventMetaData, TheReadSizeIsAddedToAndWrapsAt32Bits) {
  ReadEventMetaData event = Event({}, 2);
  event.UpdateReadSize(5);
  EXPECT_EQ(event.GetReadSize(), 7U);
  event = Event({}, 2);
  event.UpdateReadSize(0xFFFFFFFF);
  EXPECT_EQ(event.GetReadSize(), 1U);
}

TEST(BytesTimeStamps, StartsAndEndsAtTheTimeGiven) {
  const BytesTimeStamps stream(100, 5000);
  EXPECT_EQ(stream.GetBytes(), 100U);
  EXPECT_EQ(stream.GetStartTime(), 5000U);
  EXPECT_EQ(stream.GetEndTime(), 5000U);
}

TEST(BytesTimeStamps, AddsBytesAndTakesAnEarlierEndTimeToo) {
  BytesTimeStamps stream(100, 5000);
  stream.UpdateBytesEndTime(50, 4000);
  EXPECT_EQ(stream.GetBytes(), 150U);
  EXPECT_EQ(stream.GetStartTime(), 5000U);
  EXPECT_EQ(stream.GetEndTime(), 4000U);
}

TEST(BytesTimeStamps, BytesWrapAt64Bits) {
  BytesTimeStamps stream(LARGEST, 0);
  stream.UpdateBytesEndTime(3, 0);
  EXPECT_EQ(stream.GetBytes(), 2U);
}

TEST(BytesTimeStamps, OrdersByBytesAloneAndUnsigned) {
  EXPECT_TRUE(BytesTimeStamps(1, 9) < BytesTimeStamps(2, 1));
  EXPECT_FALSE(BytesTimeStamps(2, 1) < BytesTimeStamps(1, 9));
  EXPECT_FALSE(BytesTimeStamps(1, 1) < BytesTimeStamps(1, 9));
  EXPECT_FALSE(BytesTimeStamps(1, 9) < BytesTimeStamps(1, 1));
  EXPECT_TRUE(BytesTimeStamps(1, 0) < BytesTimeStamps(LARGEST, 0));
}

TEST(IrpCacheMetaData, StartsAtZero) {
  IrpCacheMetaData counts;
  EXPECT_EQ(counts.GetNetworkInfoCount(), 0U);
  EXPECT_EQ(counts.GetReadCount(), 0U);
  EXPECT_EQ(counts.GetStdInfoCount(), 0U);
  EXPECT_EQ(counts.GetLastNetworkInfoTime(), 0U);
  EXPECT_EQ(counts.GetLastStdInfoTime(), 0U);
  EXPECT_EQ(counts.GetLastReadTime(), 0U);
  EXPECT_EQ(counts.GetLatestEventTime(), 0U);
}

TEST(IrpCacheMetaData, EachKindCountsForItself) {
  IrpCacheMetaData counts;
  counts.AddNetworkInfo(10);
  counts.AddStdInfo(20);
  counts.AddStdInfo(21);
  counts.AddReadEvent(30);
  counts.AddReadEvent(31);
  counts.AddReadEvent(32);
  EXPECT_EQ(counts.GetNetworkInfoCount(), 1U);
  EXPECT_EQ(counts.GetStdInfoCount(), 2U);
  EXPECT_EQ(counts.GetReadCount(), 3U);
  EXPECT_EQ(counts.GetLastNetworkInfoTime(), 10U);
  EXPECT_EQ(counts.GetLastStdInfoTime(), 21U);
  EXPECT_EQ(counts.GetLastReadTime(), 32U);
}

TEST(IrpCacheMetaData, ALastTimeNeverMovesBackwardsButTheCountGrows) {
  IrpCacheMetaData counts;
  counts.AddReadEvent(1000);
  counts.AddReadEvent(900);
  EXPECT_EQ(counts.GetReadCount(), 2U);
  EXPECT_EQ(counts.GetLastReadTime(), 1000U);
  counts.AddStdInfo(1000);
  counts.AddStdInfo(900);
  EXPECT_EQ(counts.GetStdInfoCount(), 2U);
  EXPECT_EQ(counts.GetLastStdInfoTime(), 1000U);
  counts.AddNetworkInfo(1000);
  counts.AddNetworkInfo(900);
  EXPECT_EQ(counts.GetNetworkInfoCount(), 2U);
  EXPECT_EQ(counts.GetLastNetworkInfoTime(), 1000U);
}

TEST(IrpCacheMetaData, TheLatestEventTimeIsTheLargestOfTheThree) {
  IrpCacheMetaData network;
  network.AddNetworkInfo(3);
  network.AddStdInfo(2);
  network.AddReadEvent(1);
  EXPECT_EQ(network.GetLatestEventTime(), 3U);
  IrpCacheMetaData standard;
  standard.AddNetworkInfo(1);
  standard.AddStdInfo(3);
  standard.AddReadEvent(2);
  EXPECT_EQ(standard.GetLatestEventTime(), 3U);
  IrpCacheMetaData read;
  read.AddNetworkInfo(2);
  read.AddStdInfo(1);
  read.AddReadEvent(3);
  EXPECT_EQ(read.GetLatestEventTime(), 3U);
}

}  // namespace
