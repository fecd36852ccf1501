// The eight functions of the filtering platform's management library that the products use.
#include <windows.h>
// Need windows.h before them.
#include <fwpmu.h>
#include <sddl.h>

#include <new>
#include <string>

#include "engine.h"
#include "layers.h"

using ostrel::lab::Engine;
using ostrel::lab::FilteringKind;
using ostrel::lab::FilteringObject;
using ostrel::lab::FilteringSession;

namespace {

constexpr UINT32 SESSION_FLAGS = 0x1;  // dynamic
constexpr UINT32 TRANSACTION_ONLY_READS = 0x1;
constexpr UINT32 CALLOUT_IS_PERSISTENT = 0x00010000;
constexpr UINT32 CALLOUT_FLAGS = CALLOUT_IS_PERSISTENT | 0x00020000;  // uses a provider context
constexpr UINT32 IS_PERSISTENT = 0x1;                                 // of a sub-layer or filter
constexpr DWORD DEFAULT_TRANSACTION_WAIT_MS = 15000;

// The process's one engine, made with its first use and never destroyed: no code runs when the library is
// loaded or unloaded.
Engine& TheEngine() {
  static Engine& engine = *new Engine;
  return engine;
}

// The platform's functions throw nothing.
template <typename Run>
DWORD Guarded(const Run& run) noexcept {
  try {
    return run();
  } catch (const ostrel::lab::RegistryError& error) {
    return error.code;
  } catch (const std::bad_alloc&) {
    return ERROR_NOT_ENOUGH_MEMORY;
  }
}

DWORD Code(HRESULT status) {
  return static_cast<DWORD>(status);
}

std::wstring TextOrEmpty(const wchar_t* text) {
  return text == nullptr ? std::wstring() : std::wstring(text);
}

// What callouts, sub-layers and filters have in common.
DWORD CheckCommon(const FWPM_DISPLAY_DATA0& display, const GUID* provider, UINT32 flags, UINT32 knownFlags) {
  if (display.name == nullptr) return Code(FWP_E_NULL_DISPLAY_NAME);
  if ((flags & ~knownFlags) != 0) return Code(FWP_E_INVALID_FLAGS);
  return provider == nullptr ? ERROR_SUCCESS : Code(FWP_E_PROVIDER_NOT_FOUND);
}

FilteringObject CommonObject(FilteringKind kind, const GUID& key, const FWPM_DISPLAY_DATA0& display,
                             UINT32 flags) {
  FilteringObject object;
  object.kind = kind;
  object.key = key;
  object.name = TextOrEmpty(display.name);
  object.description = TextOrEmpty(display.description);
  object.flags = flags;
  return object;
}

// As text, so that whose traffic a filter means can be read; empty for a descriptor that is none.
std::wstring DescriptorText(const FWP_BYTE_BLOB& blob) {
  if (blob.data == nullptr || blob.size < sizeof(SECURITY_DESCRIPTOR_RELATIVE)) return {};
  LPWSTR text = nullptr;
  if (!ConvertSecurityDescriptorToStringSecurityDescriptorW(blob.data, SDDL_REVISION_1,
                                                            DACL_SECURITY_INFORMATION, &text, nullptr)) {
    return {};
  }
  std::wstring copy(text);
  LocalFree(text);
  return copy;
}

DWORD CheckCondition(const FWPM_FILTER_CONDITION0& condition) {
  const FWP_CONDITION_VALUE0& value = condition.conditionValue;
  if (condition.matchType != FWP_MATCH_EQUAL) return Code(FWP_E_MATCH_TYPE_MISMATCH);
  if (IsEqualGUID(condition.fieldKey, ostrel::lab::CONDITION_ALE_USER_ID)) {
    if (value.type != FWP_SECURITY_DESCRIPTOR_TYPE) return Code(FWP_E_TYPE_MISMATCH);
    return value.sd == nullptr ? Code(FWP_E_NULL_POINTER) : ERROR_SUCCESS;
  }
  if (IsEqualGUID(condition.fieldKey, ostrel::lab::CONDITION_IP_PROTOCOL)) {
    return value.type == FWP_UINT8 ? ERROR_SUCCESS : Code(FWP_E_TYPE_MISMATCH);
  }
  return Code(FWP_E_CONDITION_NOT_FOUND);
}

DWORD TakeConditions(const FWPM_FILTER0& filter, FilteringObject& object) {
  if (filter.numFilterConditions == 0) return ERROR_SUCCESS;
  if (filter.filterCondition == nullptr) return Code(FWP_E_NULL_POINTER);
  const ostrel::lab::FilteringLayer* const layer = ostrel::lab::FindLayer(filter.layerKey);
  if (layer == nullptr) return Code(FWP_E_LAYER_NOT_FOUND);
  if (!layer->knowsUserAndProtocol) return Code(FWP_E_CONDITION_NOT_FOUND);
  for (UINT32 i = 0; i < filter.numFilterConditions; ++i) {
    const FWPM_FILTER_CONDITION0& condition = filter.filterCondition[i];
    const DWORD status = CheckCondition(condition);
    if (status != ERROR_SUCCESS) return status;
    if (condition.conditionValue.type == FWP_SECURITY_DESCRIPTOR_TYPE)
      object.userDescriptor = DescriptorText(*condition.conditionValue.sd);
  }
  object.conditions = filter.numFilterConditions;
  return ERROR_SUCCESS;
}

DWORD TakeAction(const FWPM_FILTER0& filter, FilteringObject& object) {
  switch (filter.action.type) {
    case FWP_ACTION_BLOCK:
    case FWP_ACTION_PERMIT:
      break;
    case FWP_ACTION_CALLOUT_TERMINATING:
    case FWP_ACTION_CALLOUT_INSPECTION:
    case FWP_ACTION_CALLOUT_UNKNOWN:
      object.callout = filter.action.calloutKey;
      break;
    default:
      return Code(FWP_E_INVALID_ACTION_TYPE);
  }
  object.action = filter.action.type;
  return ERROR_SUCCESS;
}

bool IsUsableWeight(FWP_DATA_TYPE type) {
  return type == FWP_EMPTY || type == FWP_UINT8 || type == FWP_UINT64;
}

DWORD AddFilter(HANDLE engine, const FWPM_FILTER0& filter) {
  DWORD status = CheckCommon(filter.displayData, filter.providerKey, filter.flags, IS_PERSISTENT);
  if (status != ERROR_SUCCESS) return status;
  if (!IsUsableWeight(filter.weight.type)) return Code(FWP_E_INVALID_WEIGHT);
  FilteringObject object =
      CommonObject(FilteringKind::Filter, filter.filterKey, filter.displayData, filter.flags);
  object.layer = filter.layerKey;
  object.subLayer = filter.subLayerKey;
  status = TakeAction(filter, object);
  if (status == ERROR_SUCCESS) status = TakeConditions(filter, object);
  if (status != ERROR_SUCCESS) return status;
  return TheEngine().Add(engine, std::move(object), (filter.flags & IS_PERSISTENT) != 0);
}

}  // namespace

DWORD WINAPI FwpmEngineOpen0(const wchar_t* serverName, UINT32 authentication, SEC_WINNT_AUTH_IDENTITY_W*,
                             const FWPM_SESSION0* session, HANDLE* engine) {
  if (engine == nullptr) return Code(FWP_E_NULL_POINTER);
  if (serverName != nullptr) return ERROR_NOT_SUPPORTED;
  if (authentication != RPC_C_AUTHN_WINNT && authentication != static_cast<UINT32>(RPC_C_AUTHN_DEFAULT))
    return ERROR_NOT_SUPPORTED;
  const FWPM_SESSION0 wanted = session == nullptr ? FWPM_SESSION0{} : *session;
  if ((wanted.flags & ~SESSION_FLAGS) != 0) return Code(FWP_E_INVALID_FLAGS);
  const DWORD wait =
      wanted.txnWaitTimeoutInMSec == 0 ? DEFAULT_TRANSACTION_WAIT_MS : DWORD{wanted.txnWaitTimeoutInMSec};
  return Guarded([&] {
    FilteringSession opened;
    opened.key = wanted.sessionKey;
    opened.name = TextOrEmpty(wanted.displayData.name);
    opened.description = TextOrEmpty(wanted.displayData.description);
    opened.flags = wanted.flags;
    return TheEngine().Open(std::move(opened), wait, *engine);
  });
}

DWORD WINAPI FwpmEngineClose0(HANDLE engine) {
  return Guarded([&] { return TheEngine().Close(engine); });
}

DWORD WINAPI FwpmTransactionBegin0(HANDLE engine, UINT32 flags) {
  if ((flags & ~TRANSACTION_ONLY_READS) != 0) return Code(FWP_E_INVALID_FLAGS);
  return Guarded([&] { return TheEngine().Begin(engine, flags == TRANSACTION_ONLY_READS); });
}

DWORD WINAPI FwpmTransactionCommit0(HANDLE engine) {
  return Guarded([&] { return TheEngine().Commit(engine); });
}

DWORD WINAPI FwpmTransactionAbort0(HANDLE engine) {
  return Guarded([&] { return TheEngine().Abort(engine); });
}

DWORD WINAPI FwpmCalloutAdd0(HANDLE engine, const FWPM_CALLOUT0* callout, PSECURITY_DESCRIPTOR, UINT32* id) {
  if (callout == nullptr) return Code(FWP_E_NULL_POINTER);
  const DWORD status = CheckCommon(callout->displayData, callout->providerKey, callout->flags, CALLOUT_FLAGS);
  if (status != ERROR_SUCCESS) return status;
  // Identifiers for the kernel's side, which has nothing of its own here.
  if (id != nullptr) *id = 0;
  return Guarded([&] {
    FilteringObject object =
        CommonObject(FilteringKind::Callout, callout->calloutKey, callout->displayData, callout->flags);
    object.layer = callout->applicableLayer;
    return TheEngine().Add(engine, std::move(object), (callout->flags & CALLOUT_IS_PERSISTENT) != 0);
  });
}

DWORD WINAPI FwpmSubLayerAdd0(HANDLE engine, const FWPM_SUBLAYER0* subLayer, PSECURITY_DESCRIPTOR) {
  if (subLayer == nullptr) return Code(FWP_E_NULL_POINTER);
  const DWORD status =
      CheckCommon(subLayer->displayData, subLayer->providerKey, subLayer->flags, IS_PERSISTENT);
  if (status != ERROR_SUCCESS) return status;
  return Guarded([&] {
    return TheEngine().Add(
        engine,
        CommonObject(FilteringKind::SubLayer, subLayer->subLayerKey, subLayer->displayData, subLayer->flags),
        (subLayer->flags & IS_PERSISTENT) != 0);
  });
}

DWORD WINAPI FwpmFilterAdd0(HANDLE engine, const FWPM_FILTER0* filter, PSECURITY_DESCRIPTOR, UINT64* id) {
  if (filter == nullptr) return Code(FWP_E_NULL_POINTER);
  if (id != nullptr) *id = 0;
  return Guarded([&] { return AddFilter(engine, *filter); });
}
