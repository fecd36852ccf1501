#include "support/scripted_network.h"

// Need windows.h before them.
#include <aclapi.h>
#include <fwpmu.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "support/failure_ledger.h"

namespace ostrel::test {

namespace {

ScriptedNetwork* current = nullptr;

constexpr DWORD KEY_IS_TAKEN = 0x80320009;
constexpr DWORD NO_TRANSACTION = 0x8032000D;
constexpr DWORD USER_UNKNOWN = 1332;

// States of an overlapped request.
constexpr ULONG_PTR PENDING = 0x103;
constexpr ULONG_PTR CANCELLED = 0xC0000120;
constexpr ULONG_PTR FAILED = 0xC0000001;

constexpr std::size_t BLOCK_SIZE = 96;
constexpr std::size_t RECORD_OFFSET = 32;
constexpr ULONG DESCRIPTOR_SIZE = 20;

std::string Hex(std::uint64_t value) {
  char text[24];
  std::snprintf(text, sizeof(text), "0x%llx", static_cast<unsigned long long>(value));
  return text;
}

std::string Number(std::uint64_t value) {
  return std::to_string(value);
}

std::string Text(const wchar_t* text) {
  return text == nullptr ? "null" : "'" + Narrow(text) + "'";
}

std::string Text(const GUID& key) {
  char text[40];
  std::snprintf(text, sizeof(text), "{%08lx-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x}", key.Data1,
                key.Data2, key.Data3, key.Data4[0], key.Data4[1], key.Data4[2], key.Data4[3], key.Data4[4],
                key.Data4[5], key.Data4[6], key.Data4[7]);
  return text;
}

std::string Text(const FWPM_DISPLAY_DATA0& data) {
  return Text(data.name) + ", " + Text(data.description);
}

std::string NullOr(const void* pointer, const char* text) {
  return pointer == nullptr ? "null" : text;
}

// What should be empty and is not.
std::string Excess(bool isExcess, const char* name) {
  return isExcess ? std::string(", UNEXPECTED ") + name : "";
}

std::string Bytes(const void* data, DWORD size) {
  if (data == nullptr) return "no input" + (size == 0 ? "" : " of " + Number(size) + " bytes");
  if (size > 8) return Number(size) + " bytes";
  std::string text;
  for (DWORD i = 0; i < size; ++i) {
    char byte[4];
    std::snprintf(byte, sizeof(byte), "%02x", static_cast<const std::uint8_t*>(data)[i]);
    text += (i == 0 ? "" : " ") + std::string(byte);
  }
  return text;
}

BOOL FailedWith(DWORD code) {
  SetLastError(code);
  return FALSE;
}

}  // namespace

// Each stands in for the system function of the same name.
struct ScriptedNetwork::Fakes {
  // The filtering platform

  static DWORD WINAPI FwpmEngineOpen0(const wchar_t* server, UINT32 authentication,
                                      SEC_WINNT_AUTH_IDENTITY_W* identity, const FWPM_SESSION0* session,
                                      HANDLE* engine) {
    const auto failure = current->Enter(
        "FwpmEngineOpen0",
        Text(server) + ", " + Number(authentication) + ", " + NullOr(identity, "identity") + ", " +
            Text(session->displayData) + ", flags " + Hex(session->flags) +
            Excess(session->sessionKey != GUID{}, "key") +
            Excess(session->txnWaitTimeoutInMSec != 0, "time-out") + Excess(session->processId != 0, "id") +
            Excess(session->sid != nullptr, "sid") + Excess(session->username != nullptr, "user") +
            Excess(session->kernelMode != 0, "kernel mode"));
    if (failure) return *failure;
    *engine = current->system_.Open(Narrow(session->displayData.name));
    return ERROR_SUCCESS;
  }

  static DWORD WINAPI FwpmEngineClose0(HANDLE engine) {
    const auto failure = current->Enter("FwpmEngineClose0", current->NameOf(engine));
    if (failure) return *failure;
    current->system_.Forget(engine);
    const Lock::Holder holder(current->lock_);
    current->transactions_.erase(engine);
    return ERROR_SUCCESS;
  }

  static DWORD WINAPI FwpmTransactionBegin0(HANDLE engine, UINT32 flags) {
    const auto failure =
        current->Enter("FwpmTransactionBegin0", current->NameOf(engine) + ", " + Number(flags));
    if (failure) return *failure;
    const Lock::Holder holder(current->lock_);
    current->transactions_[engine];
    return ERROR_SUCCESS;
  }

  static DWORD WINAPI FwpmTransactionCommit0(HANDLE engine) {
    const auto failure = current->Enter("FwpmTransactionCommit0", current->NameOf(engine));
    if (failure) return *failure;
    const Lock::Holder holder(current->lock_);
    const auto transaction = current->transactions_.extract(engine);
    if (transaction.empty()) return NO_TRANSACTION;
    current->keys_.insert(transaction.mapped().keys.begin(), transaction.mapped().keys.end());
    current->filters_ += transaction.mapped().filters;
    return ERROR_SUCCESS;
  }

  static DWORD WINAPI FwpmTransactionAbort0(HANDLE engine) {
    const auto failure = current->Enter("FwpmTransactionAbort0", current->NameOf(engine));
    if (failure) return *failure;
    const Lock::Holder holder(current->lock_);
    return current->transactions_.erase(engine) == 0 ? NO_TRANSACTION : ERROR_SUCCESS;
  }

  static DWORD WINAPI FwpmCalloutAdd0(HANDLE engine, const FWPM_CALLOUT0* callout, PSECURITY_DESCRIPTOR sd,
                                      UINT32* id) {
    const auto failure = current->Enter(
        "FwpmCalloutAdd0", current->NameOf(engine) + ", " + Text(callout->calloutKey) + ", " +
                               Text(callout->displayData) + ", flags " + Hex(callout->flags) + ", layer " +
                               Text(callout->applicableLayer) + ", " + NullOr(sd, "descriptor") + ", " +
                               NullOr(id, "id") + Excess(callout->providerKey != nullptr, "provider") +
                               Excess(callout->providerData.size != 0, "data") +
                               Excess(callout->providerData.data != nullptr, "data") +
                               Excess(callout->calloutId != 0, "callout id"));
    return failure ? *failure : current->AddKey("FwpmCalloutAdd0", engine, Text(callout->calloutKey));
  }

  static DWORD WINAPI FwpmSubLayerAdd0(HANDLE engine, const FWPM_SUBLAYER0* subLayer,
                                       PSECURITY_DESCRIPTOR sd) {
    const auto failure = current->Enter(
        "FwpmSubLayerAdd0", current->NameOf(engine) + ", " + Text(subLayer->subLayerKey) + ", " +
                                Text(subLayer->displayData) + ", flags " + Hex(subLayer->flags) +
                                ", weight " + Number(subLayer->weight) + ", " + NullOr(sd, "descriptor") +
                                Excess(subLayer->providerKey != nullptr, "provider") +
                                Excess(subLayer->providerData.size != 0, "data") +
                                Excess(subLayer->providerData.data != nullptr, "data"));
    return failure ? *failure : current->AddKey("FwpmSubLayerAdd0", engine, Text(subLayer->subLayerKey));
  }

  static std::string Describe(const FWPM_FILTER_CONDITION0& condition) {
    std::string text = ", condition " + Text(condition.fieldKey) + " match " + Number(condition.matchType) +
                       " type " + Number(condition.conditionValue.type) + " ";
    if (condition.conditionValue.type == FWP_UINT8) return text + Number(condition.conditionValue.uint8);
    if (condition.conditionValue.type != FWP_SECURITY_DESCRIPTOR_TYPE) return text + "UNEXPECTED type";
    const FWP_BYTE_BLOB& blob = *condition.conditionValue.sd;
    return text + current->NameOf(blob.data) + " of " + Number(blob.size) + " bytes";
  }

  static DWORD WINAPI FwpmFilterAdd0(HANDLE engine, const FWPM_FILTER0* filter, PSECURITY_DESCRIPTOR sd,
                                     UINT64* id) {
    std::string conditions;
    for (UINT32 i = 0; i < filter->numFilterConditions; ++i)
      conditions += Describe(filter->filterCondition[i]);
    const auto failure = current->Enter(
        "FwpmFilterAdd0",
        current->NameOf(engine) + ", " + Text(filter->displayData) + ", flags " + Hex(filter->flags) +
            ", layer " + Text(filter->layerKey) + ", sub-layer " + Text(filter->subLayerKey) +
            ", weight type " + Number(filter->weight.type) + ", action " + Hex(filter->action.type) + " " +
            Text(filter->action.calloutKey) + conditions + ", " + NullOr(sd, "descriptor") + ", " +
            NullOr(id, "id") + Excess(filter->filterKey != GUID{}, "key") +
            Excess(filter->providerKey != nullptr, "provider") +
            Excess(filter->providerData.size != 0, "data") +
            Excess(filter->providerData.data != nullptr, "data") +
            Excess(filter->providerContextKey != GUID{}, "context") +
            Excess(filter->reserved != nullptr, "reserved") + Excess(filter->filterId != 0, "filter id") +
            Excess(filter->effectiveWeight.type != FWP_EMPTY, "weight"));
    return failure ? *failure : current->AddFilter(engine);
  }

  // The monitored user

  static void WINAPI BuildExplicitAccessWithNameW(EXPLICIT_ACCESS_W* access, wchar_t* user, DWORD permissions,
                                                  ACCESS_MODE mode, DWORD inheritance) {
    current->Note("BuildExplicitAccessWithNameW", Text(user) + ", permissions " + Hex(permissions) +
                                                      ", mode " + Number(mode) + ", inheritance " +
                                                      Number(inheritance));
    current->Original<decltype(&::BuildExplicitAccessWithNameW)>("BuildExplicitAccessWithNameW")(
        access, user, permissions, mode, inheritance);
  }

  static DWORD WINAPI BuildSecurityDescriptorW(TRUSTEE_W* owner, TRUSTEE_W* group, ULONG accessCount,
                                               EXPLICIT_ACCESS_W* access, ULONG auditCount,
                                               EXPLICIT_ACCESS_W* audit, PSECURITY_DESCRIPTOR old,
                                               ULONG* size, PSECURITY_DESCRIPTOR* descriptor) {
    auto failure = current->Enter(
        "BuildSecurityDescriptorW",
        NullOr(owner, "owner") + ", " + NullOr(group, "group") + ", " + Number(accessCount) + " for name " +
            Text(access->Trustee.ptstrName) + " with " + Hex(access->grfAccessPermissions) + ", " +
            Number(auditCount) + ", " + NullOr(audit, "audit") + ", " + NullOr(old, "old"));
    if (!failure && current->users.count(access->Trustee.ptstrName) == 0) {
      failure = USER_UNKNOWN;
      FailureLedger::OfThisProgram().FailedByTheWay("BuildSecurityDescriptorW", *failure);
    }
    if (failure && !current->leavesADescriptor) return *failure;
    *size = DESCRIPTOR_SIZE;
    *descriptor = LocalAlloc(LPTR, DESCRIPTOR_SIZE);
    current->system_.AddReal(*descriptor, "descriptor");
    return failure.value_or(ERROR_SUCCESS);
  }

  static HLOCAL WINAPI LocalFree(HLOCAL block) {
    if (block != nullptr && current->system_.IsOpen(block)) {
      current->Note("LocalFree", current->NameOf(block));
      current->system_.Forget(block);
    }
    return current->Original<decltype(&::LocalFree)>("LocalFree")(block);
  }

  // The driver's device

  static std::optional<DWORD> NotOpen(const std::string& function, HANDLE device) {
    if (current->system_.IsOpen(device)) return std::nullopt;
    FailureLedger::OfThisProgram().FailedByTheWay(function, ERROR_INVALID_HANDLE);
    return ERROR_INVALID_HANDLE;
  }

  static HANDLE WINAPI CreateFileW(const wchar_t* path, DWORD access, DWORD share,
                                   SECURITY_ATTRIBUTES* attributes, DWORD disposition, DWORD flags,
                                   HANDLE model) {
    if (std::wstring_view(path) != L"\\\\.\\OstrelNWFilter") {
      return current->Original<decltype(&::CreateFileW)>("CreateFileW")(path, access, share, attributes,
                                                                        disposition, flags, model);
    }
    const auto failure = current->Enter(
        "CreateFileW", Narrow(path) + ", " + Hex(access) + ", share " + Number(share) + ", " +
                           NullOr(attributes, "attributes") + ", disposition " + Number(disposition) + ", " +
                           Hex(flags) + ", " + NullOr(model, "model"));
    if (failure) {
      SetLastError(*failure);
      return INVALID_HANDLE_VALUE;
    }
    return current->opensNull ? nullptr : current->system_.Open("device");
  }

  static BOOL WINAPI DeviceIoControl(HANDLE device, DWORD code, void* input, DWORD inputSize, void* output,
                                     DWORD outputSize, DWORD* returned, OVERLAPPED* overlapped) {
    const std::string start = current->NameOf(device) + ", " + Hex(code) + ", " + Bytes(input, inputSize);
    const std::string end = returned == nullptr ? ", null" : ", returned";
    if (overlapped != nullptr) return Read(device, start, output, outputSize, end, overlapped);
    auto failure = current->Enter("DeviceIoControl", start + ", " + NullOr(output, "output") + " of " +
                                                         Number(outputSize) + end + ", synchronous");
    if (inputSize > 8) {
      const auto* const bytes = static_cast<const std::uint8_t*>(input);
      const Lock::Holder holder(current->lock_);
      current->processLists_.emplace_back(bytes, bytes + inputSize);
    }
    if (!failure) failure = NotOpen("DeviceIoControl", device);
    if (failure) return FailedWith(*failure);
    *returned = 0;
    return TRUE;
  }

  static BOOL Read(HANDLE device, const std::string& start, void* output, DWORD outputSize,
                   const std::string& end, OVERLAPPED* overlapped) {
    std::size_t index = 0;
    std::string where;
    {
      const Lock::Holder holder(current->lock_);
      index = current->IndexOf(overlapped, output);
      const Request& request = current->readers_[GetCurrentThreadId()].requests[index];
      where = Number(outputSize) + " bytes of block " + Number(index) +
              Excess(output != reinterpret_cast<std::uint8_t*>(overlapped) + RECORD_OFFSET, "place") +
              Excess(overlapped->hEvent != request.event, "event") +
              Excess(overlapped->Offset != 0 || overlapped->OffsetHigh != 0, "offset") +
              Excess(request.isPending, "second request");
    }
    auto failure = current->Enter("DeviceIoControl", start + ", " + where + end + ", overlapped");
    if (!failure && current->readError) {
      failure = current->readError;
      FailureLedger::OfThisProgram().Failed("DeviceIoControl", *failure);
    }
    if (!failure) failure = NotOpen("DeviceIoControl", device);
    if (failure) return FailedWith(*failure);
    const Lock::Holder holder(current->lock_);
    Request& request = current->readers_[GetCurrentThreadId()].requests[index];
    ResetEvent(request.event);
    overlapped->Internal = PENDING;
    request.isPending = true;
    if (current->queue_.empty()) return FailedWith(ERROR_IO_PENDING);
    current->End(request, &current->queue_.front());
    current->queue_.pop_front();
    return TRUE;
  }

  static BOOL WINAPI CancelIo(HANDLE device) {
    auto failure = current->Enter("CancelIo", current->NameOf(device));
    const Lock::Holder holder(current->lock_);
    // Only the calling thread's requests.
    Reader& reader = current->readers_[GetCurrentThreadId()];
    reader.hasCancelled = true;
    if (!failure) failure = NotOpen("CancelIo", device);
    if (failure) return FailedWith(*failure);
    for (Request& request : reader.requests) request.isCancelled = request.isPending;
    return TRUE;
  }

  static BOOL WINAPI GetOverlappedResult(HANDLE device, OVERLAPPED* overlapped, DWORD* transferred,
                                         BOOL wait) {
    std::size_t index = 0;
    {
      const Lock::Holder holder(current->lock_);
      index = current->IndexOf(overlapped, nullptr);
    }
    const auto failure =
        current->Enter("GetOverlappedResult", current->NameOf(device) + ", block " + Number(index) +
                                                  (wait ? ", wait" : ", no wait"));
    if (failure) return FailedWith(*failure);
    const Lock::Holder holder(current->lock_);
    Request& request = current->readers_[GetCurrentThreadId()].requests[index];
    if (request.isCancelled) {
      request.isPending = request.isCancelled = false;
      overlapped->Internal = CANCELLED;
    }
    *transferred = static_cast<DWORD>(overlapped->InternalHigh);
    if (overlapped->Internal == PENDING) {
      current->system_.transcript.Add("waits for a request that nobody cancels");
      return FailedWith(ERROR_IO_INCOMPLETE);
    }
    if (overlapped->Internal != 0) {
      FailureLedger::OfThisProgram().FailedByTheWay("GetOverlappedResult", ERROR_OPERATION_ABORTED);
      return FailedWith(ERROR_OPERATION_ABORTED);
    }
    return TRUE;
  }

  static DWORD WINAPI WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL all,
                                             DWORD milliseconds) {
    const auto original = current->Original<decltype(&::WaitForMultipleObjects)>("WaitForMultipleObjects");
    if (!current->system_.IsOpen(handles[0])) return original(count, handles, all, milliseconds);
    const auto failure =
        current->Enter("WaitForMultipleObjects", current->DescribeWait(count, handles, all, milliseconds));
    if (!current->onWaits.empty()) {
      const auto onWait = current->onWaits.front();
      current->onWaits.pop_front();
      onWait();
    }
    if (failure) SetLastError(*failure);
    if (failure) return WAIT_FAILED;
    if (current->waitResult) {
      FailureLedger::OfThisProgram().Failed("WaitForMultipleObjects", *current->waitResult);
      return *current->waitResult;
    }
    // A wait that nothing ends must not outlast the test.
    const DWORD result = original(count, handles, all, static_cast<DWORD>(PATIENCE.count()));
    if (result != WAIT_TIMEOUT) return result;
    current->system_.transcript.Add("waited in vain");
    return WAIT_FAILED;
  }

  // Memory

  static void* Malloc(std::size_t size) {
    if (GetCurrentThreadId() != current->testThread_) {
      const bool isRefused = (size == BLOCK_SIZE && current->blocks_++ == current->refusedBlock_) ||
                             (current->untilRefusal_ > 0 && --current->untilRefusal_ == 0);
      if (isRefused) {
        FailureLedger::OfThisProgram().Failed("malloc", ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
      }
    }
    return current->Original<decltype(&::malloc)>("malloc")(size);
  }

  static void Free(void* block) {
    if (block != nullptr && GetCurrentThreadId() != current->testThread_) {
      const Lock::Holder holder(current->lock_);
      std::size_t index = 0;
      const Request* const request = current->Find(block, index);
      if (request != nullptr) {
        current->system_.transcript.Add("freed block " + Number(index) +
                                        (request->isPending ? " WHILE PENDING" : ""));
      }
    }
    current->Original<decltype(&::free)>("free")(block);
  }
};

namespace {

struct Replacement {
  const char* name;
  void* function;
};

// The cast inside holds each stand-in to the type of what it stands in for.
#define REPLACEMENT(name)                                                                            \
  Replacement {                                                                                      \
#name, reinterpret_cast < void*>(static_cast <decltype(&::name)>(&ScriptedNetwork::Fakes::name)) \
  }

std::vector<Replacement> Replacements() {
  return {REPLACEMENT(FwpmEngineOpen0),
          REPLACEMENT(FwpmEngineClose0),
          REPLACEMENT(FwpmTransactionBegin0),
          REPLACEMENT(FwpmTransactionCommit0),
          REPLACEMENT(FwpmTransactionAbort0),
          REPLACEMENT(FwpmCalloutAdd0),
          REPLACEMENT(FwpmSubLayerAdd0),
          REPLACEMENT(FwpmFilterAdd0),
          REPLACEMENT(BuildExplicitAccessWithNameW),
          REPLACEMENT(BuildSecurityDescriptorW),
          REPLACEMENT(LocalFree),
          REPLACEMENT(CreateFileW),
          REPLACEMENT(DeviceIoControl),
          REPLACEMENT(CancelIo),
          REPLACEMENT(GetOverlappedResult),
          REPLACEMENT(WaitForMultipleObjects)};
}

#undef REPLACEMENT

}  // namespace

ScriptedNetwork::ScriptedNetwork(HMODULE module, ScriptedSystem& system) : module_(module), system_(system) {
  if (current != nullptr) throw std::logic_error("there is a scripted network already");
  current = this;
  for (const Replacement& replacement : Replacements()) {
    patches_.try_emplace(replacement.name, module, replacement.name, replacement.function);
  }
}

ScriptedNetwork::~ScriptedNetwork() {
  LetGo();
  system_.EndThreads();
  patches_.clear();
  current = nullptr;
}

void ScriptedNetwork::WatchMemory(std::optional<std::size_t> refused) {
  refusedBlock_ = refused;
  patches_.try_emplace("malloc", module_, "malloc", reinterpret_cast<void*>(&Fakes::Malloc));
  patches_.try_emplace("free", module_, "free", reinterpret_cast<void*>(&Fakes::Free));
}

std::optional<DWORD> ScriptedNetwork::Enter(const std::string& function, const std::string& arguments) {
  const auto failure = system_.Enter(function, arguments);
  Meet(function);
  return failure;
}

void ScriptedNetwork::Note(const std::string& function, const std::string& arguments) {
  system_.Note(function, arguments);
  Meet(function);
}

void ScriptedNetwork::Meet(const std::string& function) {
  if (onCall) onCall(function);
  Lock::Holder holder(lock_);
  if (function == heldFunction_) {
    isHeld_ = true;
    holder.Changed();
    holder.WaitFor([&] { return function != heldFunction_; });
  }
}

void ScriptedNetwork::Hold(const std::string& function) {
  const Lock::Holder holder(lock_);
  heldFunction_ = function;
  isHeld_ = false;
}

bool ScriptedNetwork::WaitUntilHeld() {
  Lock::Holder holder(lock_);
  return holder.WaitFor([this] { return isHeld_; });
}

void ScriptedNetwork::LetGo() {
  Lock::Holder holder(lock_);
  heldFunction_.clear();
  holder.Changed();
}

std::string ScriptedNetwork::NameOf(HANDLE handle) const {
  return handle == INVALID_HANDLE_VALUE ? "invalid" : system_.NameOf(handle);
}

DWORD ScriptedNetwork::AddKey(const std::string& function, HANDLE engine, const std::string& key) {
  const Lock::Holder holder(lock_);
  const auto transaction = transactions_.find(engine);
  if (transaction == transactions_.end()) return NO_TRANSACTION;
  if (keys_.count(key) == 0 && transaction->second.keys.insert(key).second) return ERROR_SUCCESS;
  FailureLedger::OfThisProgram().FailedByTheWay(function, KEY_IS_TAKEN);
  return KEY_IS_TAKEN;
}

DWORD ScriptedNetwork::AddFilter(HANDLE engine) {
  const Lock::Holder holder(lock_);
  const auto transaction = transactions_.find(engine);
  if (transaction == transactions_.end()) return NO_TRANSACTION;
  ++transaction->second.filters;
  return ERROR_SUCCESS;
}

bool ScriptedNetwork::HasKey(const std::string& key) const {
  const Lock::Holder holder(lock_);
  return keys_.count(key) != 0;
}

void ScriptedNetwork::ForgetKeys() {
  const Lock::Holder holder(lock_);
  keys_.clear();
}

std::size_t ScriptedNetwork::FilterCount() const {
  const Lock::Holder holder(lock_);
  return filters_;
}

std::size_t ScriptedNetwork::IndexOf(OVERLAPPED* overlapped, void* buffer) {
  newestReader_ = GetCurrentThreadId();
  Reader& reader = readers_[newestReader_];
  const auto found =
      std::find_if(reader.requests.begin(), reader.requests.end(),
                   [overlapped](const Request& request) { return request.overlapped == overlapped; });
  if (found != reader.requests.end() && (buffer == nullptr || !reader.hasCancelled)) {
    return static_cast<std::size_t>(found - reader.requests.begin());
  }
  // Threads that ended leave their ids to others.
  if (reader.hasCancelled) reader = {};
  reader.requests.push_back({overlapped, buffer, overlapped->hEvent});
  const auto* const record = static_cast<const std::uint8_t*>(buffer);
  if (record == nullptr) throw std::logic_error("nothing was ever requested with this block");
  if (overlapped->Internal != 0 || overlapped->InternalHigh != 0 ||
      std::any_of(record, record + sizeof(PacketBytes), [](std::uint8_t byte) { return byte != 0; })) {
    system_.transcript.Add("block not zeroed");
  }
  return reader.requests.size() - 1;
}

void ScriptedNetwork::End(Request& request, const PacketBytes* record) {
  if (!request.isPending) throw std::logic_error("the driver does not have this request");
  if (record != nullptr) std::memcpy(request.buffer, record->data(), record->size());
  request.overlapped->InternalHigh = record == nullptr ? 0 : record->size();
  request.overlapped->Internal = record == nullptr ? FAILED : 0;
  request.isPending = false;
  system_.Original<decltype(&::SetEvent)>("SetEvent")(request.event);
}

void ScriptedNetwork::Complete(std::size_t block, const PacketBytes& record) {
  const Lock::Holder holder(lock_);
  End(readers_.at(newestReader_).requests.at(block), &record);
}

void ScriptedNetwork::CompleteWithoutRecord(std::size_t block) {
  const Lock::Holder holder(lock_);
  End(readers_.at(newestReader_).requests.at(block), nullptr);
}

void ScriptedNetwork::Queue(const PacketBytes& record) {
  const Lock::Holder holder(lock_);
  queue_.push_back(record);
}

std::size_t ScriptedNetwork::PendingCount() const {
  const Lock::Holder holder(lock_);
  std::size_t count = 0;
  for (const auto& [thread, reader] : readers_) {
    for (const Request& request : reader.requests) count += request.isPending ? 1 : 0;
  }
  return count;
}

std::vector<std::vector<std::uint8_t>> ScriptedNetwork::ProcessLists() const {
  const Lock::Holder holder(lock_);
  return processLists_;
}

std::string ScriptedNetwork::DescribeWait(DWORD count, const HANDLE* handles, BOOL all,
                                          DWORD milliseconds) const {
  const Lock::Holder holder(lock_);
  const auto reader = readers_.find(GetCurrentThreadId());
  const std::vector<Request> requests =
      reader == readers_.end() ? std::vector<Request>() : reader->second.requests;
  bool isInOrder = count == requests.size() + 1;
  for (std::size_t i = 0; isInOrder && i < requests.size(); ++i)
    isInOrder = handles[i + 1] == requests[i].event;
  const auto pending = std::count_if(requests.begin(), requests.end(),
                                     [](const Request& request) { return request.isPending; });
  return std::string(all ? "all of " : "any of ") + Number(count) + ": " + NameOf(handles[0]) +
         (isInOrder ? ", blocks in order" : ", OUT OF ORDER") + ", " +
         (milliseconds == INFINITE ? "endless" : Number(milliseconds)) + ", " +
         Number(static_cast<std::size_t>(pending)) + " pending";
}

const ScriptedNetwork::Request* ScriptedNetwork::Find(const void* block, std::size_t& index) const {
  const auto reader = readers_.find(GetCurrentThreadId());
  if (reader == readers_.end()) return nullptr;
  const std::vector<Request>& requests = reader->second.requests;
  const auto found = std::find_if(requests.begin(), requests.end(),
                                  [block](const Request& request) { return request.overlapped == block; });
  index = static_cast<std::size_t>(found - requests.begin());
  return found == requests.end() ? nullptr : &*found;
}

}  // namespace ostrel::test
