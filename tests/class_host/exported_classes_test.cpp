// A host in C++, built with the library's own compiler: every public member of every exported class, with the
// types that a host is compiled against, through the import library.

#include <gtest/gtest.h>
#include <windows.h>

#include <type_traits>

#include "api/exports.h"

namespace {

using Text = std::wstring;
using Texts = std::vector<std::wstring>;
using Time = unsigned long long;

// Stops the build where a member has other arguments, another order or another result.
template <typename Expected, auto MEMBER>
constexpr bool IS = std::is_same_v<Expected, decltype(MEMBER)>;

static_assert(sizeof(IP_VERSION) == 4 && IPV4 == 1 && IPV6 == 2);
static_assert(sizeof(FILE_EVENT_TYPE) == 4);
static_assert(sizeof(DEVICE_SOURCE_TYPE) == 4);

static_assert(std::is_constructible_v<DiskCacheKey, Text, Time>);
static_assert(IS<Text (DiskCacheKey::*)() const, &DiskCacheKey::GetFilePath>);
static_assert(IS<Time (DiskCacheKey::*)() const, &DiskCacheKey::GetProcessId>);
static_assert(IS < bool(DiskCacheKey::*)(const DiskCacheKey&) const, &DiskCacheKey::operator<>);

static_assert(std::is_constructible_v<IpPort, unsigned long, int, unsigned char*, IP_VERSION>);
static_assert(IS<unsigned long (IpPort::*)() const, &IpPort::GetIpV4Address>);
static_assert(IS<std::array<unsigned char, 16> (IpPort::*)() const, &IpPort::GetIpV6Address>);
static_assert(IS<IP_VERSION (IpPort::*)() const, &IpPort::GetIpVersion>);
static_assert(IS<int (IpPort::*)() const, &IpPort::GetPort>);
static_assert(IS < bool(IpPort::*)(const IpPort&) const, &IpPort::operator==>);
static_assert(IS < bool(IpPort::*)(const IpPort&) const, &IpPort::operator<>);

static_assert(std::is_constructible_v<ReadEventMetaData, Text, Text, Text, unsigned long, Time, Time, Texts&,
                                      Text, unsigned char, FILE_EVENT_TYPE, unsigned long>);
static_assert(IS<Text (ReadEventMetaData::*)() const, &ReadEventMetaData::GetUser>);
static_assert(IS<Text (ReadEventMetaData::*)() const, &ReadEventMetaData::GetProcessName>);
static_assert(IS<Text (ReadEventMetaData::*)() const, &ReadEventMetaData::GetFileName>);
static_assert(IS<Time (ReadEventMetaData::*)() const, &ReadEventMetaData::GetStartTime>);
static_assert(IS<Time (ReadEventMetaData::*)() const, &ReadEventMetaData::GetEndTime>);
static_assert(IS<unsigned long (ReadEventMetaData::*)() const, &ReadEventMetaData::GetProcessId>);
static_assert(IS<Texts (ReadEventMetaData::*)() const, &ReadEventMetaData::GetDestHints>);
static_assert(IS<Text (ReadEventMetaData::*)(), &ReadEventMetaData::GetTabTitleStatus>);
static_assert(IS<unsigned char (ReadEventMetaData::*)(), &ReadEventMetaData::IsNetworkEvent>);
static_assert(IS<FILE_EVENT_TYPE (ReadEventMetaData::*)(), &ReadEventMetaData::GetFileEventType>);
static_assert(IS<unsigned long (ReadEventMetaData::*)(), &ReadEventMetaData::GetReadSize>);
static_assert(IS<void (ReadEventMetaData::*)(Time), &ReadEventMetaData::UpdateEndTime>);
static_assert(IS<void (ReadEventMetaData::*)(unsigned long), &ReadEventMetaData::UpdateReadSize>);

static_assert(std::is_constructible_v<BytesTimeStamps, Time, Time>);
static_assert(IS<void (BytesTimeStamps::*)(Time, Time), &BytesTimeStamps::UpdateBytesEndTime>);
static_assert(IS<Time (BytesTimeStamps::*)() const, &BytesTimeStamps::GetBytes>);
static_assert(IS<Time (BytesTimeStamps::*)() const, &BytesTimeStamps::GetStartTime>);
static_assert(IS<Time (BytesTimeStamps::*)() const, &BytesTimeStamps::GetEndTime>);
static_assert(IS < bool(BytesTimeStamps::*)(const BytesTimeStamps&) const, &BytesTimeStamps::operator<>);

static_assert(IS<void (IrpCacheMetaData::*)(Time), &IrpCacheMetaData::AddNetworkInfo>);
static_assert(IS<void (IrpCacheMetaData::*)(Time), &IrpCacheMetaData::AddStdInfo>);
static_assert(IS<void (IrpCacheMetaData::*)(Time), &IrpCacheMetaData::AddReadEvent>);
static_assert(IS<unsigned long (IrpCacheMetaData::*)(), &IrpCacheMetaData::GetNetworkInfoCount>);
static_assert(IS<unsigned long (IrpCacheMetaData::*)(), &IrpCacheMetaData::GetReadCount>);
static_assert(IS<unsigned long (IrpCacheMetaData::*)(), &IrpCacheMetaData::GetStdInfoCount>);
static_assert(IS<Time (IrpCacheMetaData::*)(), &IrpCacheMetaData::GetLastNetworkInfoTime>);
static_assert(IS<Time (IrpCacheMetaData::*)(), &IrpCacheMetaData::GetLastStdInfoTime>);
static_assert(IS<Time (IrpCacheMetaData::*)(), &IrpCacheMetaData::GetLastReadTime>);
static_assert(IS<Time (IrpCacheMetaData::*)(), &IrpCacheMetaData::GetLatestEventTime>);

using UserLookup = unsigned char (*)(void*, std::wstring&);
using TabTitleLookup = std::vector<std::wstring> (*)(unsigned long, std::wstring, std::wstring&);
using DirectoryTest = unsigned char (*)(std::wstring);
static_assert(std::is_constructible_v<ReadEventCache, UserLookup&, TabTitleLookup&, DirectoryTest&>);
static_assert(IS<void (ReadEventCache::*)(Text, void*, Text, unsigned long, Time, unsigned char,
                                          FILE_EVENT_TYPE, unsigned long),
                 &ReadEventCache::AddEvent>);
static_assert(IS<void (ReadEventCache::*)(Text, unsigned long), &ReadEventCache::RemoveEvent>);
static_assert(IS<std::vector<ReadEventMetaData> (ReadEventCache::*)(Time), &ReadEventCache::GetEvents>);
static_assert(IS<void (ReadEventCache::*)(), &ReadEventCache::EnableTabTitleCapture>);
static_assert(IS<void (ReadEventCache::*)(), &ReadEventCache::DisableTabTitleCapture>);
static_assert(IS<Time (ReadEventCache::*)(), &ReadEventCache::GetCacheCount>);

static_assert(std::is_default_constructible_v<SentEventCache>);
static_assert(IS<void (SentEventCache::*)(Text, long long), &SentEventCache::AddEvent>);
static_assert(IS<unsigned char (SentEventCache::*)(Text, long long), &SentEventCache::EventExists>);
static_assert(IS<Time (SentEventCache::*)(), &SentEventCache::GetCacheCount>);

static_assert(std::is_default_constructible_v<IrpCache> && std::is_copy_constructible_v<IrpCache>);
static_assert(IS<void (IrpCache::*)(Text, unsigned long, Time, Text), &IrpCache::AddStdInfoQuery>);
static_assert(IS<bool (IrpCache::*)(Text, unsigned long, Time, Text), &IrpCache::AddNetworkInfoQuery>);
static_assert(IS<bool (IrpCache::*)(Text, unsigned long, Time, Text), &IrpCache::ShouldAllowRead>);
static_assert(IS<Time (IrpCache::*)(), &IrpCache::GetCacheCount>);

static_assert(std::is_constructible_v<NetworkEventCache, int>);
static_assert(
    IS<void (NetworkEventCache::*)(Text, unsigned long, unsigned char*, IP_VERSION, int, Time, Time),
       &NetworkEventCache::AddEvent>);
static_assert(IS<int (NetworkEventCache::*)(Time), &NetworkEventCache::PurgeEvents>);
static_assert(IS<void (NetworkEventCache::*)(), &NetworkEventCache::PurgeAllEvents>);
static_assert(IS<std::vector<IpPort> (NetworkEventCache::*)(Text, Time, Time, Time),
                 &NetworkEventCache::GetLikelyEvents>);
static_assert(IS<Time (NetworkEventCache::*)(Text), &NetworkEventCache::GetStreamCount>);
static_assert(IS<Time (NetworkEventCache::*)(), &NetworkEventCache::GetCacheCount>);

using Util = OstrelFilterLibUtil;
static_assert(IS<void (*)(DEVICE_SOURCE_TYPE, wchar_t*, wchar_t*), &Util::ConvertFileName>);
static_assert(IS<Text (*)(wchar_t*), &Util::GetRawDirectoryName>);
static_assert(IS<bool (*)(wchar_t*, Texts), &Util::ExcludeBasedOnExtension>);
static_assert(IS<bool (*)(wchar_t*, Texts), &Util::ExcludeBasedOnProcess>);
static_assert(IS<bool (*)(unsigned long, wchar_t*, void**), &Util::GetProcessName>);
static_assert(IS<void (*)(unsigned long*, int*, int, Texts), &Util::GetCurrentProcessIDsToWatch>);
static_assert(IS<void (*)(wchar_t**, wchar_t**), &Util::GetAutoProxyConfigUrlForUser>);
static_assert(IS<void (*)(wchar_t**, const wchar_t*, ...), &Util::AllocStringPointer>);
static_assert(IS<void (*)(wchar_t**), &Util::DeallocStringPointer>);

static_assert(std::is_constructible_v<ProcessMetadata, unsigned long, const wchar_t*>);
static_assert(IS<Texts (ProcessMetadata::*)(ResponseCode*), &ProcessMetadata::GetTabTitles>);
static_assert(IS<BOOL (*)(HWND), &ProcessMetadata::IsMainWindow>);

TEST(ExportedRecords, CrossTheBoundary) {
  const DiskCacheKey key(L"C:\\a", 5);
  EXPECT_EQ(key.GetFilePath(), L"C:\\a");
  EXPECT_EQ(key.GetProcessId(), 5U);
  EXPECT_TRUE(DiskCacheKey(L"C:\\a", 7) < key);

  unsigned char ipv6[16] = {0x20, 0x01};
  const IpPort port(1, 443, ipv6, IPV6);
  EXPECT_EQ(port.GetIpV4Address(), 1U);
  EXPECT_EQ(port.GetIpV6Address()[1], 0x01);
  EXPECT_EQ(port.GetIpVersion(), IPV6);
  EXPECT_EQ(port.GetPort(), 443);
  EXPECT_TRUE(port == IpPort(2, 443, ipv6, IPV6));
  EXPECT_TRUE(port < IpPort(1, 443, nullptr, IPV4));

  BytesTimeStamps bytes(100, 5000);
  bytes.UpdateBytesEndTime(50, 4000);
  EXPECT_EQ(bytes.GetBytes(), 150U);
  EXPECT_EQ(bytes.GetStartTime(), 5000U);
  EXPECT_EQ(bytes.GetEndTime(), 4000U);
  EXPECT_TRUE(BytesTimeStamps(1, 1) < bytes);

  IrpCacheMetaData counts;
  counts.AddNetworkInfo(1);
  counts.AddStdInfo(2);
  counts.AddReadEvent(3);
  EXPECT_EQ(counts.GetNetworkInfoCount() + counts.GetStdInfoCount() + counts.GetReadCount(), 3U);
  EXPECT_EQ(counts.GetLastNetworkInfoTime(), 1U);
  EXPECT_EQ(counts.GetLastStdInfoTime(), 2U);
  EXPECT_EQ(counts.GetLastReadTime(), 3U);
  EXPECT_EQ(counts.GetLatestEventTime(), 3U);
}

TEST(ExportedRecords, MergedEventsCrossTheBoundary) {
  Texts hints{L"a title longer than a short string holds"};
  ReadEventMetaData event(L"ann", L"\\app.exe", L"C:\\a.txt", 42, 1, 2, hints, L"TABTITLE_SUCCESS", 1,
                          FILE_EVENT_WRITE, 10);
  event.UpdateEndTime(3);
  event.UpdateReadSize(5);
  EXPECT_EQ(event.GetUser(), L"ann");
  EXPECT_EQ(event.GetProcessName(), L"\\app.exe");
  EXPECT_EQ(event.GetFileName(), L"C:\\a.txt");
  EXPECT_EQ(event.GetProcessId(), 42U);
  EXPECT_EQ(event.GetStartTime(), 1U);
  EXPECT_EQ(event.GetEndTime(), 3U);
  EXPECT_EQ(event.GetDestHints(), hints);
  EXPECT_EQ(event.GetTabTitleStatus(), L"TABTITLE_SUCCESS");
  EXPECT_EQ(event.IsNetworkEvent(), 1);
  EXPECT_EQ(event.GetFileEventType(), FILE_EVENT_WRITE);
  EXPECT_EQ(event.GetReadSize(), 15U);
}

TEST(ExportedCaches, CallTheHostsHooksAndHandEventsOut) {
  UserLookup userLookup = [](void*, std::wstring& user) -> unsigned char {
    user = L"ann";
    return 1;
  };
  TabTitleLookup titles = [](unsigned long, std::wstring, std::wstring& status) {
    status = L"TABTITLE_SUCCESS";
    return Texts{L"a title longer than a short string holds"};
  };
  DirectoryTest isDirectory = [](std::wstring) -> unsigned char { return 0; };
  ReadEventCache cache(userLookup, titles, isDirectory);
  EXPECT_EQ(ReadEventCache::MILLISECOND_THRESHOLD, 60000);
  cache.AddEvent(L"C:\\titled", nullptr, L"\\app.exe", 42, 1, 0, FILE_EVENT_READ, 10);
  cache.DisableTabTitleCapture();
  cache.AddEvent(L"C:\\untitled", nullptr, L"\\app.exe", 42, 1, 0, FILE_EVENT_READ, 10);
  cache.EnableTabTitleCapture();
  cache.AddEvent(L"C:\\removed", nullptr, L"\\app.exe", 42, 1, 0, FILE_EVENT_READ, 10);
  cache.RemoveEvent(L"C:\\removed", 42);
  EXPECT_EQ(cache.GetCacheCount(), 2U);
  const std::vector<ReadEventMetaData> events = cache.GetEvents(100000);
  ASSERT_EQ(events.size(), 2U);
  EXPECT_EQ(events[0].GetFileName(), L"C:\\untitled");
  EXPECT_TRUE(events[0].GetDestHints().empty());
  EXPECT_EQ(events[1].GetUser(), L"ann");
  EXPECT_EQ(events[1].GetDestHints().size(), 1U);
}

TEST(ExportedCaches, RememberAndForget) {
  SentEventCache sent;
  sent.AddEvent(L"C:\\a", 1000);
  EXPECT_NE(sent.EventExists(L"C:\\a", 2000), 0);
  EXPECT_EQ(sent.GetCacheCount(), 1U);

  IrpCache queries;
  queries.AddStdInfoQuery(L"C:\\a", 42, 1000, L"\\chrome.exe");
  EXPECT_TRUE(queries.AddNetworkInfoQuery(L"C:\\a", 42, 1000, L"\\chrome.exe"));
  EXPECT_TRUE(queries.ShouldAllowRead(L"C:\\a", 42, 1000, L"\\app.exe"));
  IrpCache copy(queries);
  EXPECT_EQ(copy.GetCacheCount(), queries.GetCacheCount());

  NetworkEventCache streams(1);
  EXPECT_EQ(NetworkEventCache::MILLISECOND_THRESHOLD, 70000);
  streams.AddEvent(L"\\chrome.exe", 1, nullptr, IPV4, 443, 1000, 200000);
  EXPECT_EQ(streams.GetStreamCount(L"\\chrome.exe"), 1U);
  const std::vector<IpPort> likely = streams.GetLikelyEvents(L"\\chrome.exe", 0, 0, 200000);
  ASSERT_EQ(likely.size(), 1U);
  EXPECT_EQ(likely[0].GetPort(), 443);
  EXPECT_EQ(streams.PurgeEvents(1000000), 1);
  EXPECT_EQ(streams.GetCacheCount(), 1U);
  streams.PurgeAllEvents();
  EXPECT_EQ(streams.GetCacheCount(), 0U);
}

TEST(ExportedHelpers, Work) {
  wchar_t source[512] = L"\\Device\\Mup\\server\\share\\a.txt";
  wchar_t name[512] = {};
  Util::ConvertFileName(DEVICE_SOURCE_NETWORK_DRIVE, source, name);
  EXPECT_STREQ(name, L"\\\\server\\share\\a.txt");
  wchar_t missing[] = L"C:\\no such directory";
  EXPECT_EQ(Util::GetRawDirectoryName(missing), missing);
  EXPECT_TRUE(Util::ExcludeBasedOnExtension(name, {L".TXT"}));
  EXPECT_FALSE(Util::ExcludeBasedOnProcess(name, {name}));

  void* process = nullptr;
  ASSERT_TRUE(Util::GetProcessName(GetCurrentProcessId(), name, &process));
  CloseHandle(process);
  const std::wstring image = std::wstring(name).substr(std::wstring_view(name).rfind(L'\\') + 1);
  unsigned long ids[4] = {};
  int count = 0;
  Util::GetCurrentProcessIDsToWatch(ids, &count, 4, {image});
  ASSERT_EQ(count, 1);
  EXPECT_EQ(ids[0], GetCurrentProcessId());
}

TEST(ExportedHelpers, HandStringsOutAndTakeThemBack) {
  wchar_t* text = nullptr;
  Util::AllocStringPointer(&text, L"%s and %d", L"one", 2);
  EXPECT_STREQ(text, L"one and 2");
  Util::DeallocStringPointer(&text);
  wchar_t* result = nullptr;
  wchar_t* error = nullptr;
  Util::GetAutoProxyConfigUrlForUser(&result, &error);
  EXPECT_TRUE(result == nullptr || error == nullptr);
  Util::DeallocStringPointer(&result);
  Util::DeallocStringPointer(&error);
}

TEST(ExportedProcessMetadata, FindsNoWindowOfAProgramWithoutOne) {
  ProcessMetadata metadata(0xFFFFFFFC, L"nobody.exe");
  ResponseCode code = SUCCESS;
  EXPECT_TRUE(metadata.GetTabTitles(&code).empty());
  EXPECT_EQ(code, TABTITLE_MAIN_WINDOWS_NOT_FOUND);
  EXPECT_EQ(ProcessMetadata::IsMainWindow(nullptr), 0);
  EXPECT_STREQ(ProcessMetadata::EDGE_PROCESS_NAME, L"MicrosoftEdgeCP.exe");
  EXPECT_STREQ(ProcessMetadata::ALT_EDGE_PROCESS_NAME, L"MicrosoftEdge.exe");
  EXPECT_STREQ(ProcessMetadata::APP_FRAME_HOST_NAME, L"ApplicationFrameHost.exe");
}

}  // namespace
