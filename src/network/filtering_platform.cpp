#include "network/filtering_platform.h"

// Need windows.h before them.
#include <aclapi.h>
#include <fwpmu.h>

#include "log/log.h"

namespace ostrel {

namespace {

// Flags of the platform that mingw's headers lack.
constexpr UINT32 SESSION_IS_DYNAMIC = 0x00000001;
constexpr UINT32 CALLOUT_IS_PERSISTENT = 0x00010000;

constexpr UINT8 PROTOCOL_TCP = 6;

// The platform's structures take texts as mutable and never change them.
FWPM_DISPLAY_DATA0 DisplayData(const wchar_t* name, const wchar_t* description) {
  return {const_cast<wchar_t*>(name), const_cast<wchar_t*>(description)};
}

DWORD OpenEngine(const wchar_t* name, const wchar_t* description, UINT32 flags, HANDLE& engine) {
  FWPM_SESSION0 session{};
  session.displayData = DisplayData(name, description);
  session.flags = flags;
  return FwpmEngineOpen0(nullptr, RPC_C_AUTHN_WINNT, nullptr, &session, &engine);
}

DWORD AddCallout(HANDLE engine, const GUID& key, const wchar_t* name, const GUID& layer) {
  FWPM_CALLOUT0 callout{};
  callout.calloutKey = key;
  callout.displayData = DisplayData(name, name);
  callout.flags = CALLOUT_IS_PERSISTENT;
  callout.applicableLayer = layer;
  return FwpmCalloutAdd0(engine, &callout, nullptr, nullptr);
}

// The status of aborting is the step's result: a refused callout, sub-layer or filter is thereby no failure
// to the caller.
DWORD AbortAndClose(HANDLE engine) {
  const DWORD status = FwpmTransactionAbort0(engine);
  FwpmEngineClose0(engine);
  return status;
}

DWORD LogAbortAndClose(HANDLE engine, const wchar_t* line, DWORD failure) {
  Log(LOG_ERROR, line, failure);
  return AbortAndClose(engine);
}

// The self-relative security descriptor by which the flow filter knows the user's traffic.
class UserDescriptor {
 public:
  explicit UserDescriptor(const wchar_t* user) {
    EXPLICIT_ACCESS_W access{};
    BuildExplicitAccessWithNameW(&access, const_cast<wchar_t*>(user), FWP_ACTRL_MATCH_FILTER, GRANT_ACCESS,
                                 NO_INHERITANCE);
    ULONG size = 0;
    const DWORD error =
        BuildSecurityDescriptorW(nullptr, nullptr, 1, &access, 0, nullptr, nullptr, &size, &descriptor_);
    if (error != ERROR_SUCCESS) Log(LOG_ERROR, L"Couldn't resolve user. %d\n", error);
    blob_ = {size, static_cast<UINT8*>(descriptor_)};
  }
  UserDescriptor(const UserDescriptor&) = delete;
  UserDescriptor& operator=(const UserDescriptor&) = delete;
  ~UserDescriptor() { LocalFree(descriptor_); }

  FWP_BYTE_BLOB* Blob() { return &blob_; }

 private:
  PSECURITY_DESCRIPTOR descriptor_ = nullptr;
  FWP_BYTE_BLOB blob_{};
};

FWPM_FILTER0 InspectionFilter(const wchar_t* name, const wchar_t* description, const GUID& layer,
                              const GUID& callout) {
  FWPM_FILTER0 filter{};
  filter.displayData = DisplayData(name, description);
  filter.layerKey = layer;
  filter.subLayerKey = SUB_LAYER_KEY;
  filter.weight.type = FWP_EMPTY;
  filter.action.type = FWP_ACTION_CALLOUT_INSPECTION;
  filter.action.calloutKey = callout;
  return filter;
}

DWORD AddSubLayer(HANDLE engine, const FilterObjects& objects) {
  FWPM_SUBLAYER0 subLayer{};
  subLayer.subLayerKey = SUB_LAYER_KEY;
  subLayer.displayData = DisplayData(objects.subLayerName, objects.subLayerName);
  return FwpmSubLayerAdd0(engine, &subLayer, nullptr);
}

DWORD AddFlowFilter(HANDLE engine, const FilterObjects& objects, const wchar_t* user) {
  // Also when the user is unknown, with whatever descriptor that leaves.
  UserDescriptor descriptor(user);
  FWPM_FILTER_CONDITION0 conditions[2]{};
  conditions[0].fieldKey = CONDITION_ALE_USER_ID;
  conditions[0].matchType = FWP_MATCH_EQUAL;
  conditions[0].conditionValue.type = FWP_SECURITY_DESCRIPTOR_TYPE;
  conditions[0].conditionValue.sd = descriptor.Blob();
  conditions[1].fieldKey = CONDITION_IP_PROTOCOL;
  conditions[1].matchType = FWP_MATCH_EQUAL;
  conditions[1].conditionValue.type = FWP_UINT8;
  conditions[1].conditionValue.uint8 = PROTOCOL_TCP;
  FWPM_FILTER0 filter = InspectionFilter(objects.flowFilterName, objects.flowFilterDescription,
                                         objects.flowLayer, objects.flowCallout);
  filter.numFilterConditions = 2;
  filter.filterCondition = conditions;
  return FwpmFilterAdd0(engine, &filter, nullptr, nullptr);
}

DWORD AddStreamFilter(HANDLE engine, const FilterObjects& objects) {
  const FWPM_FILTER0 filter = InspectionFilter(objects.streamFilterName, objects.streamFilterDescription,
                                               objects.streamLayer, objects.streamCallout);
  return FwpmFilterAdd0(engine, &filter, nullptr, nullptr);
}

}  // namespace

std::uint32_t AddCallouts(const CalloutObjects& objects) {
  Log(LOG_DETAIL, objects.openingLine);
  HANDLE engine = nullptr;
  DWORD status = OpenEngine(objects.sessionName, objects.sessionDescription, 0, engine);
  if (status != ERROR_SUCCESS) {
    Log(LOG_ERROR, objects.openFailed, status);
    return status;
  }
  status = FwpmTransactionBegin0(engine, 0);
  if (status != ERROR_SUCCESS) return LogAbortAndClose(engine, objects.transactionFailed, status);

  status = AddCallout(engine, objects.flowCallout, L"Established Callout", objects.flowLayer);
  if (status == static_cast<DWORD>(FWP_E_ALREADY_EXISTS)) {
    // The stream callout is then taken to exist as well.
    Log(LOG_NOTABLE, objects.alreadyExists);
    return AbortAndClose(engine);
  }
  if (status != ERROR_SUCCESS) return LogAbortAndClose(engine, objects.flowCalloutFailed, status);

  status = AddCallout(engine, objects.streamCallout, objects.streamCalloutName, objects.streamLayer);
  if (status != ERROR_SUCCESS) return LogAbortAndClose(engine, objects.streamCalloutFailed, status);

  status = FwpmTransactionCommit0(engine);
  if (status != ERROR_SUCCESS) return LogAbortAndClose(engine, objects.commitFailed, status);
  FwpmEngineClose0(engine);
  return ERROR_SUCCESS;
}

std::uint32_t OpenMonitoringSession(HANDLE& engine) {
  const DWORD status = OpenEngine(L"Monitor Sample Session", L"Monitors traffic at the Stream layer.",
                                  SESSION_IS_DYNAMIC, engine);
  if (status != ERROR_SUCCESS) Log(LOG_ERROR, L"Could not open filtering engine. %ld", status);
  return status;
}

std::uint32_t AddFilters(HANDLE engine, const FilterObjects& objects, const wchar_t* user) {
  if (FwpmTransactionBegin0(engine, 0) != ERROR_SUCCESS || AddSubLayer(engine, objects) != ERROR_SUCCESS ||
      AddFlowFilter(engine, objects, user) != ERROR_SUCCESS ||
      AddStreamFilter(engine, objects) != ERROR_SUCCESS) {
    return FwpmTransactionAbort0(engine);
  }
  const DWORD status = FwpmTransactionCommit0(engine);
  if (status == ERROR_SUCCESS) Log(LOG_NOTABLE, objects.successLine);
  return status;
}

}  // namespace ostrel
