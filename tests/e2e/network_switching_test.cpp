// Remote address info switched off and on, and kept on while the library is unloaded, within one process.

#include <algorithm>
#include <vector>

#include "e2e/library_log.h"
#include "e2e/network_on_lab.h"
#include "filtering_store.h"

namespace ostrel::test {

namespace {

using lab::FilteringKind;
using lab::FilteringObject;
using lab::FilteringSession;
using lab::FilteringStore;

constexpr GUID SUB_LAYER{0xb3241f1d, 0x7cd2, 0x4e7a, {0x87, 0x21, 0x2e, 0x97, 0xd0, 0x77, 0x02, 0xe5}};

// The sessions that this program has open. Those of earlier tests are among them: the library closes none.
std::vector<GUID> OwnSessions() {
  std::vector<GUID> keys;
  for (const FilteringSession& session : FilteringStore().Read().sessions) {
    if (session.processId == GetCurrentProcessId() && session.name == L"Monitor Sample Session")
      keys.push_back(session.key);
  }
  return keys;
}

bool Contains(const std::vector<GUID>& keys, const GUID& key) {
  return std::any_of(keys.begin(), keys.end(), [&](const GUID& one) { return IsEqualGUID(one, key); });
}

// What the library gave the filtering platform. Other programs' objects may lie beside it.
std::vector<FilteringObject> Objects(FilteringKind kind) {
  std::vector<FilteringObject> objects = FilteringStore().Read().objects;
  std::erase_if(objects, [&](const FilteringObject& object) {
    if (object.kind != kind) return true;
    if (kind == FilteringKind::Callout) return !object.name.ends_with(L"Callout");
    return !IsEqualGUID(kind == FilteringKind::SubLayer ? object.key : object.subLayer, SUB_LAYER);
  });
  return objects;
}

// There is no function to remove a persistent object that the products use.
void ForgetCallouts() {
  for (const FilteringObject& callout : Objects(FilteringKind::Callout)) {
    const std::wstring path =
        L"Software\\OstrelLab\\FilteringPlatform\\Persistent\\0" + lab::TextOf(callout.key);
    ASSERT_EQ(RegDeleteTreeW(HKEY_LOCAL_MACHINE, path.c_str()), ERROR_SUCCESS);
  }
}

class NetworkSwitching : public NetworkOnLab {
 protected:
  NetworkSwitching() : NetworkOnLab(LibraryLog::Take) {}

  void SetUp() override {
    ASSERT_NO_FATAL_FAILURE(NetworkOnLab::SetUp());
    LibraryLog::Forget();
  }

  // A record in either direction reaches its cache, in which no record of that stream was before.
  static void ExpectRecordsToBeFiledAsNewStreams() {
    LibraryLog::Forget();
    lab::NetworkLink player = Player();
    OstrelLabPacketRecord received = Sent(2000);
    received.isUpload = 0;
    player.Submit({Sent(1000), Sent(500), received});
    ASSERT_NO_FATAL_FAILURE(WaitUntilHandled(player));
    const std::vector<FiledRecord> filed = LibraryLog::FiledRecords();
    ASSERT_EQ(filed.size(), 3U);
    std::vector<std::uint64_t> bytes;
    for (const FiledRecord& record : filed) {
      bytes.push_back(record.bytes);
      EXPECT_TRUE(record.process.ends_with(L"\\e2e_network_tests.exe"));
      EXPECT_EQ(record.isUpload, record.bytes != 2000);
    }
    EXPECT_TRUE(
        std::is_permutation(bytes.begin(), bytes.end(), std::vector<std::uint64_t>{1000, 500, 2000}.begin()));
    const auto newStreams = std::count_if(filed.begin(), filed.end(),
                                          [](const FiledRecord& record) { return record.isNewStream; });
    EXPECT_EQ(newStreams, 2);
  }
};

TEST_F(NetworkSwitching, ASecondEnablingFindsTheCalloutsAndOpensASessionBesideTheFirst) {
  const std::vector<GUID> before = OwnSessions();
  ASSERT_NO_FATAL_FAILURE(ForgetCallouts());
  Enable();
  EXPECT_EQ(LibraryLog::Count(L"6 Callouts already exist. This is OK."), 0U);
  EXPECT_EQ(LibraryLog::Count(L"6 V6 Callouts already exist. This is OK."), 0U);
  EXPECT_EQ(Objects(FilteringKind::Callout).size(), 4U);
  const std::vector<GUID> first = OwnSessions();
  EXPECT_EQ(first.size(), before.size() + 1);
  ASSERT_NO_FATAL_FAILURE(ExpectRecordsToBeFiledAsNewStreams());

  DisableRemoteAddressInfo();
  EXPECT_FALSE(lab::NetworkLink::TryOpen().has_value());
  EXPECT_EQ(OwnSessions().size(), first.size()) << "the session stays open";

  LibraryLog::Forget();
  Enable();
  EXPECT_EQ(LibraryLog::Count(L"6 Callouts already exist. This is OK."), 1U);
  EXPECT_EQ(LibraryLog::Count(L"6 V6 Callouts already exist. This is OK."), 1U);
  EXPECT_EQ(LibraryLog::Count(L"6 Ostrel NW monitoring enabled."), 1U);
  EXPECT_EQ(LibraryLog::Errors(), std::vector<std::wstring>());
  EXPECT_EQ(Objects(FilteringKind::Callout).size(), 4U);
  const std::vector<GUID> second = OwnSessions();
  EXPECT_EQ(second.size(), first.size() + 1);
  for (const GUID& key : first) EXPECT_TRUE(Contains(second, key));
  // Purged when switched off: the same stream is new again.
  ExpectRecordsToBeFiledAsNewStreams();
}

TEST_F(NetworkSwitching, TheFirstSessionsFiltersStayInForceAndTheSecondAddsNone) {
  Enable();
  const std::vector<GUID> first = OwnSessions();
  DisableRemoteAddressInfo();
  Enable();
  ASSERT_EQ(OwnSessions().size(), first.size() + 1);
  const std::vector<FilteringObject> subLayers = Objects(FilteringKind::SubLayer);
  ASSERT_EQ(subLayers.size(), 1U);
  EXPECT_TRUE(Contains(first, subLayers.front().session));
  const std::vector<FilteringObject> filters = Objects(FilteringKind::Filter);
  ASSERT_EQ(filters.size(), 2U);
  for (const FilteringObject& filter : filters)
    EXPECT_TRUE(IsEqualGUID(filter.session, subLayers.front().session));
}

TEST_F(NetworkSwitching, LoadingAgainRestartsTheServiceAndReadingGoesOnAfterTheNextEnabling) {
  Enable();
  ASSERT_NO_FATAL_FAILURE(ExpectRecordsToBeFiledAsNewStreams());
  LibraryLog::Forget();
  ASSERT_EQ(UnloadDriver(), 1);
  for (const wchar_t* line :
       {L"6 Stopped nw filter driver successfully.", L"7 GetNWPacketInfo thread ended",
        L"7 Closed handle to NW driver.", L"6 Disconnected from NW driver successfully."}) {
    EXPECT_EQ(LibraryLog::Count(line), 1U) << line;
  }
  EXPECT_FALSE(IsServiceRunning());

  LibraryLog::Forget();
  ASSERT_NO_FATAL_FAILURE(Load());
  EXPECT_EQ(LibraryLog::Count(L"6 Started nw filter driver successfully."), 1U);
  EXPECT_EQ(LibraryLog::Count(L"6 Started NW receive notification thread."), 0U);
  EXPECT_EQ(LibraryLog::Errors(), std::vector<std::wstring>());
  EXPECT_TRUE(WaitFor(IsServiceRunning));
  EXPECT_EQ(Player().Status().handles, 0U);
  Enable();
  EXPECT_EQ(LibraryLog::Count(L"7 Remote address capturing already enabled."), 1U);
  EXPECT_EQ(Player().Status().handles, 0U);

  LibraryLog::Forget();
  DisableRemoteAddressInfo();
  // Unloading closed it.
  EXPECT_EQ(LibraryLog::Errors(),
            std::vector<std::wstring>{L"3 Could not close handle to NW driver. Code: 6"});
  Enable();
  EXPECT_EQ(Player().Status().handles, 1U);
  ExpectRecordsToBeFiledAsNewStreams();
}

}  // namespace

}  // namespace ostrel::test
