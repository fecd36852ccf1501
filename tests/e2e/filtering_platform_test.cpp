// The lab's filtering platform, which lies beside this program and so is the one that it gets.

#include <gtest/gtest.h>
#include <windows.h>
// Need windows.h before them.
#include <fwpmu.h>
#include <rpc.h>

#include <algorithm>
#include <string>
#include <vector>

#include "filtering_store.h"
#include "layers.h"

namespace ostrel::test {

namespace {

using lab::FilteringKind;
using lab::FilteringLifetime;
using lab::FilteringObject;
using lab::FilteringSession;
using lab::FilteringStore;

constexpr GUID STREAM_V4{0x3b89653c, 0xc170, 0x49e4, {0xb1, 0xcd, 0xe0, 0xee, 0xee, 0xe1, 0x9a, 0x3e}};
constexpr GUID FLOW_V4{0xaf80470a, 0x5596, 0x4c13, {0x99, 0x92, 0x53, 0x9e, 0x6f, 0xe5, 0x79, 0x67}};
constexpr UINT32 DYNAMIC = 1;
constexpr UINT32 PERSISTENT_CALLOUT = 0x00010000;
constexpr UINT32 ONLY_READS = 1;

wchar_t NAME[] = L"name";
wchar_t DESCRIPTION[] = L"description";

GUID FreshKey() {
  GUID key{};
  UuidCreate(&key);
  return key;
}

// Closes the session that it opens.
class Session {
 public:
  explicit Session(UINT32 flags, UINT32 waitMs = 0) {
    FWPM_SESSION0 session{};
    session.displayData = {NAME, DESCRIPTION};
    session.flags = flags;
    session.txnWaitTimeoutInMSec = waitMs;
    EXPECT_EQ(FwpmEngineOpen0(nullptr, RPC_C_AUTHN_WINNT, nullptr, &session, &engine_), DWORD{ERROR_SUCCESS});
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  ~Session() { Close(); }

  HANDLE Get() const { return engine_; }
  void Close() {
    if (engine_ == nullptr) return;
    EXPECT_EQ(FwpmEngineClose0(engine_), DWORD{ERROR_SUCCESS});
    engine_ = nullptr;
  }

  DWORD AddCallout(const GUID& key, UINT32 flags = 0, const GUID& layer = STREAM_V4) const {
    FWPM_CALLOUT0 callout{};
    callout.calloutKey = key;
    callout.displayData = {NAME, DESCRIPTION};
    callout.flags = flags;
    callout.applicableLayer = layer;
    return FwpmCalloutAdd0(engine_, &callout, nullptr, nullptr);
  }

  DWORD AddSubLayer(const GUID& key) const {
    FWPM_SUBLAYER0 subLayer{};
    subLayer.subLayerKey = key;
    subLayer.displayData = {NAME, DESCRIPTION};
    return FwpmSubLayerAdd0(engine_, &subLayer, nullptr);
  }

  DWORD AddFilter(const GUID& subLayer, const GUID& callout, const GUID& layer = STREAM_V4) const {
    FWPM_FILTER0 filter{};
    filter.displayData = {NAME, DESCRIPTION};
    filter.layerKey = layer;
    filter.subLayerKey = subLayer;
    filter.weight.type = FWP_EMPTY;
    filter.action.type = FWP_ACTION_CALLOUT_INSPECTION;
    filter.action.calloutKey = callout;
    return FwpmFilterAdd0(engine_, &filter, nullptr, nullptr);
  }

 private:
  HANDLE engine_ = nullptr;
};

DWORD Code(HRESULT status) {
  return static_cast<DWORD>(status);
}

// As another process sees them.
std::vector<FilteringObject> Objects(const GUID& key) {
  std::vector<FilteringObject> objects = FilteringStore().Read().objects;
  std::erase_if(objects, [&](const FilteringObject& object) { return !IsEqualGUID(object.key, key); });
  return objects;
}

std::size_t FiltersIn(const GUID& subLayer) {
  const std::vector<FilteringObject> objects = FilteringStore().Read().objects;
  return static_cast<std::size_t>(
      std::count_if(objects.begin(), objects.end(), [&](const FilteringObject& object) {
        return object.kind == FilteringKind::Filter && IsEqualGUID(object.subLayer, subLayer);
      }));
}

// There is no function to remove a persistent object that the products use.
void ForgetPersistent(const GUID& key) {
  const std::wstring path = L"Software\\OstrelLab\\FilteringPlatform\\Persistent\\0" + lab::TextOf(key);
  EXPECT_EQ(RegDeleteTreeW(HKEY_LOCAL_MACHINE, path.c_str()), ERROR_SUCCESS);
}

TEST(FilteringPlatform, ObjectsOfADynamicSessionGoWithIt) {
  const GUID subLayer = FreshKey();
  const GUID callout = FreshKey();
  Session session(DYNAMIC);
  ASSERT_EQ(session.AddCallout(callout), 0U);
  ASSERT_EQ(session.AddSubLayer(subLayer), 0U);
  ASSERT_EQ(session.AddFilter(subLayer, callout), 0U);
  ASSERT_EQ(Objects(subLayer).size(), 1U);
  EXPECT_EQ(Objects(subLayer).front().lifetime, FilteringLifetime::Session);
  EXPECT_EQ(FiltersIn(subLayer), 1U);
  session.Close();
  EXPECT_TRUE(Objects(subLayer).empty());
  EXPECT_TRUE(Objects(callout).empty());
  EXPECT_EQ(FiltersIn(subLayer), 0U);
}

TEST(FilteringPlatform, APersistentCalloutOutlivesItsSessionAndIsRefusedASecondTime) {
  const GUID callout = FreshKey();
  Session first(0);
  ASSERT_EQ(first.AddCallout(callout, PERSISTENT_CALLOUT), 0U);
  first.Close();
  const std::vector<FilteringObject> found = Objects(callout);
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found.front().lifetime, FilteringLifetime::Persistent);
  EXPECT_EQ(found.front().name, L"name");
  EXPECT_EQ(found.front().description, L"description");
  EXPECT_EQ(found.front().flags, PERSISTENT_CALLOUT);
  EXPECT_TRUE(IsEqualGUID(found.front().layer, STREAM_V4));
  const Session second(0);
  EXPECT_EQ(second.AddCallout(callout, PERSISTENT_CALLOUT), 0x80320009U);
  ForgetPersistent(callout);
}

TEST(FilteringPlatform, APersistentObjectHasNoPlaceInADynamicSession) {
  const Session session(DYNAMIC);
  EXPECT_EQ(session.AddCallout(FreshKey(), PERSISTENT_CALLOUT), Code(FWP_E_LIFETIME_MISMATCH));
}

TEST(FilteringPlatform, ACommitShowsEverythingAtOnceAndAnAbortNothing) {
  const GUID committed = FreshKey();
  const GUID aborted = FreshKey();
  const Session session(DYNAMIC);
  ASSERT_EQ(FwpmTransactionBegin0(session.Get(), 0), 0U);
  ASSERT_EQ(session.AddSubLayer(aborted), 0U);
  // Within the transaction it is there already.
  EXPECT_EQ(session.AddSubLayer(aborted), Code(FWP_E_ALREADY_EXISTS));
  EXPECT_TRUE(Objects(aborted).empty());
  ASSERT_EQ(FwpmTransactionAbort0(session.Get()), 0U);
  EXPECT_TRUE(Objects(aborted).empty());
  ASSERT_EQ(FwpmTransactionBegin0(session.Get(), 0), 0U);
  ASSERT_EQ(session.AddSubLayer(committed), 0U);
  EXPECT_TRUE(Objects(committed).empty());
  ASSERT_EQ(FwpmTransactionCommit0(session.Get()), 0U);
  EXPECT_EQ(Objects(committed).size(), 1U);
}

TEST(FilteringPlatform, ASessionHasOneTransactionAtATime) {
  const Session session(DYNAMIC);
  EXPECT_EQ(FwpmTransactionCommit0(session.Get()), Code(FWP_E_NO_TXN_IN_PROGRESS));
  EXPECT_EQ(FwpmTransactionAbort0(session.Get()), Code(FWP_E_NO_TXN_IN_PROGRESS));
  ASSERT_EQ(FwpmTransactionBegin0(session.Get(), 0), 0U);
  EXPECT_EQ(FwpmTransactionBegin0(session.Get(), 0), Code(FWP_E_TXN_IN_PROGRESS));
  EXPECT_EQ(FwpmTransactionAbort0(session.Get()), 0U);
}

TEST(FilteringPlatform, OnlyOneSessionWritesAndTheOthersWaitAsLongAsTheyWant) {
  const Session writer(DYNAMIC);
  const Session impatient(DYNAMIC, 50);
  ASSERT_EQ(FwpmTransactionBegin0(writer.Get(), 0), 0U);
  EXPECT_EQ(FwpmTransactionBegin0(impatient.Get(), 0), Code(FWP_E_TIMEOUT));
  EXPECT_EQ(impatient.AddSubLayer(FreshKey()), Code(FWP_E_TIMEOUT));
  EXPECT_EQ(FwpmTransactionBegin0(impatient.Get(), ONLY_READS), 0U);
  EXPECT_EQ(impatient.AddSubLayer(FreshKey()), Code(FWP_E_INCOMPATIBLE_TXN));
  EXPECT_EQ(FwpmTransactionAbort0(impatient.Get()), 0U);
  ASSERT_EQ(FwpmTransactionAbort0(writer.Get()), 0U);
  EXPECT_EQ(FwpmTransactionBegin0(impatient.Get(), 0), 0U);
}

TEST(FilteringPlatform, AWriterThatClosesLetsTheNextOneWrite) {
  Session writer(DYNAMIC);
  const Session next(DYNAMIC, 50);
  ASSERT_EQ(FwpmTransactionBegin0(writer.Get(), 0), 0U);
  writer.Close();
  EXPECT_EQ(FwpmTransactionBegin0(next.Get(), 0), 0U);
}

TEST(FilteringPlatform, AFilterNeedsItsSubLayerItsCalloutAndTheirLayer) {
  const GUID subLayer = FreshKey();
  const GUID callout = FreshKey();
  const Session session(DYNAMIC);
  ASSERT_EQ(session.AddCallout(callout), 0U);
  EXPECT_EQ(session.AddFilter(subLayer, callout), Code(FWP_E_SUBLAYER_NOT_FOUND));
  ASSERT_EQ(session.AddSubLayer(subLayer), 0U);
  EXPECT_EQ(session.AddFilter(subLayer, FreshKey()), Code(FWP_E_CALLOUT_NOT_FOUND));
  EXPECT_EQ(session.AddFilter(subLayer, callout, FLOW_V4), Code(FWP_E_INCOMPATIBLE_LAYER));
  EXPECT_EQ(session.AddFilter(subLayer, callout, FreshKey()), Code(FWP_E_LAYER_NOT_FOUND));
  EXPECT_EQ(session.AddFilter(subLayer, callout), 0U);
  EXPECT_EQ(session.AddCallout(FreshKey(), 0, FreshKey()), Code(FWP_E_LAYER_NOT_FOUND));
}

TEST(FilteringPlatform, AKeyIsTakenForEverySessionAsLongAsItsObjectIsThere) {
  const GUID subLayer = FreshKey();
  Session first(DYNAMIC);
  const Session second(DYNAMIC);
  ASSERT_EQ(first.AddSubLayer(subLayer), 0U);
  EXPECT_EQ(second.AddSubLayer(subLayer), Code(FWP_E_ALREADY_EXISTS));
  EXPECT_EQ(second.AddCallout(subLayer), 0U);
  first.Close();
  EXPECT_EQ(second.AddSubLayer(subLayer), 0U);
}

TEST(FilteringPlatform, SessionsOfAProcessThatHasEndedDoNotCount) {
  const GUID key = FreshKey();
  FilteringStore store;
  FilteringSession session;
  session.key = key;
  session.processId = GetCurrentProcessId();
  // The same process id, an earlier process.
  session.processStart = lab::CurrentProcessStart() - 1;
  ASSERT_TRUE(store.AddSession(session));
  FilteringObject object;
  object.kind = FilteringKind::SubLayer;
  object.lifetime = FilteringLifetime::Session;
  object.session = key;
  object.key = key;
  store.Add({object});
  const lab::FilteringState state = store.Read();
  EXPECT_TRUE(std::none_of(state.sessions.begin(), state.sessions.end(),
                           [&](const FilteringSession& one) { return IsEqualGUID(one.key, key); }));
  EXPECT_TRUE(Objects(key).empty());
}

TEST(FilteringPlatform, AClosedSessionIsNoHandle) {
  Session session(DYNAMIC);
  const HANDLE engine = session.Get();
  session.Close();
  EXPECT_EQ(FwpmEngineClose0(engine), DWORD{ERROR_INVALID_HANDLE});
  EXPECT_EQ(FwpmTransactionBegin0(engine, 0), DWORD{ERROR_INVALID_HANDLE});
  EXPECT_EQ(FwpmEngineClose0(nullptr), DWORD{ERROR_INVALID_HANDLE});
}

TEST(FilteringPlatform, WhatHasNoNameOrUnknownFlagsIsRefused) {
  const Session session(DYNAMIC);
  FWPM_SUBLAYER0 subLayer{};
  EXPECT_EQ(FwpmSubLayerAdd0(session.Get(), &subLayer, nullptr), Code(FWP_E_NULL_DISPLAY_NAME));
  subLayer.displayData = {NAME, nullptr};
  subLayer.flags = 2;
  EXPECT_EQ(FwpmSubLayerAdd0(session.Get(), &subLayer, nullptr), Code(FWP_E_INVALID_FLAGS));
  EXPECT_EQ(FwpmSubLayerAdd0(session.Get(), nullptr, nullptr), Code(FWP_E_NULL_POINTER));
  EXPECT_EQ(FwpmEngineOpen0(nullptr, RPC_C_AUTHN_WINNT, nullptr, nullptr, nullptr), Code(FWP_E_NULL_POINTER));
}

}  // namespace

}  // namespace ostrel::test
