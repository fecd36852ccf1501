#include "engine.h"

// Need windows.h before them.
#include <fwpmu.h>
#include <rpc.h>

#include <algorithm>

#include "layers.h"

namespace ostrel::lab {

namespace {

constexpr DWORD WRITER_POLL_MS = 10;
constexpr std::uint32_t SESSION_IS_DYNAMIC = 1;

bool IsNone(const GUID& guid) {
  return IsEqualGUID(guid, GUID{});
}

const FilteringObject* FindObject(const std::vector<FilteringObject>& objects, FilteringKind kind,
                                  const GUID& key) {
  const auto found = std::find_if(objects.begin(), objects.end(), [&](const FilteringObject& object) {
    return object.kind == kind && IsEqualGUID(object.key, key);
  });
  return found == objects.end() ? nullptr : &*found;
}

// What an object refers to must last as long as itself.
DWORD CheckReference(const FilteringObject& object, const FilteringObject& referred) {
  if (referred.lifetime == FilteringLifetime::Session && object.lifetime == FilteringLifetime::Session &&
      !IsEqualGUID(referred.session, object.session)) {
    return static_cast<DWORD>(FWP_E_WRONG_SESSION);
  }
  return static_cast<DWORD>(referred.lifetime > object.lifetime ? FWP_E_LIFETIME_MISMATCH : S_OK);
}

DWORD CheckFilter(const FilteringObject& filter, const std::vector<FilteringObject>& objects) {
  const FilteringObject* const subLayer = FindObject(objects, FilteringKind::SubLayer, filter.subLayer);
  if (subLayer == nullptr) return static_cast<DWORD>(FWP_E_SUBLAYER_NOT_FOUND);
  const DWORD status = CheckReference(filter, *subLayer);
  if (status != ERROR_SUCCESS || IsNone(filter.callout)) return status;
  const FilteringObject* const callout = FindObject(objects, FilteringKind::Callout, filter.callout);
  if (callout == nullptr) return static_cast<DWORD>(FWP_E_CALLOUT_NOT_FOUND);
  if (!IsEqualGUID(callout->layer, filter.layer)) return static_cast<DWORD>(FWP_E_INCOMPATIBLE_LAYER);
  return CheckReference(filter, *callout);
}

DWORD Check(const FilteringObject& object, const std::vector<FilteringObject>& objects) {
  if (object.kind != FilteringKind::SubLayer && FindLayer(object.layer) == nullptr)
    return static_cast<DWORD>(FWP_E_LAYER_NOT_FOUND);
  if (FindObject(objects, object.kind, object.key) != nullptr)
    return static_cast<DWORD>(FWP_E_ALREADY_EXISTS);
  return object.kind == FilteringKind::Filter ? CheckFilter(object, objects) : ERROR_SUCCESS;
}

}  // namespace

Engine::Session* Engine::Find(HANDLE handle) {
  const auto found = sessions_.find(handle);
  return found == sessions_.end() ? nullptr : found->second.get();
}

DWORD Engine::Open(FilteringSession session, DWORD transactionWaitMs, HANDLE& handle) {
  const std::lock_guard lock(mutex_);
  if (IsNone(session.key)) UuidCreate(&session.key);
  session.processId = GetCurrentProcessId();
  session.processStart = CurrentProcessStart();
  auto opened = std::make_unique<Session>();
  opened->description = session;
  opened->transactionWaitMs = transactionWaitMs;
  const HANDLE fresh = opened.get();
  const auto place = sessions_.emplace(fresh, std::move(opened)).first;
  if (!store_.AddSession(session)) {
    sessions_.erase(place);
    return static_cast<DWORD>(FWP_E_ALREADY_EXISTS);
  }
  handle = fresh;
  return ERROR_SUCCESS;
}

DWORD Engine::Close(HANDLE handle) {
  const std::lock_guard lock(mutex_);
  const Session* const session = Find(handle);
  if (session == nullptr) return ERROR_INVALID_HANDLE;
  const GUID key = session->description.key;
  sessions_.erase(handle);
  store_.StopWriting(key);
  store_.RemoveSession(key);
  return ERROR_SUCCESS;
}

DWORD Engine::BecomeWriter(std::unique_lock<std::mutex>& lock, HANDLE handle) {
  const ULONGLONG start = GetTickCount64();
  for (;;) {
    const Session* const session = Find(handle);
    if (session == nullptr) return ERROR_INVALID_HANDLE;
    if (session->transaction) return static_cast<DWORD>(FWP_E_TXN_IN_PROGRESS);
    if (store_.TryBecomeWriter(session->description.key)) return ERROR_SUCCESS;
    if (GetTickCount64() - start >= session->transactionWaitMs) return static_cast<DWORD>(FWP_E_TIMEOUT);
    lock.unlock();
    Sleep(WRITER_POLL_MS);
    lock.lock();
  }
}

DWORD Engine::Begin(HANDLE handle, bool onlyReads) {
  std::unique_lock lock(mutex_);
  Session* const session = Find(handle);
  if (session == nullptr) return ERROR_INVALID_HANDLE;
  if (session->transaction) return static_cast<DWORD>(FWP_E_TXN_IN_PROGRESS);
  if (!onlyReads) {
    const DWORD status = BecomeWriter(lock, handle);
    if (status != ERROR_SUCCESS) return status;
  }
  Find(handle)->transaction = Transaction{onlyReads, {}};
  return ERROR_SUCCESS;
}

DWORD Engine::Commit(HANDLE handle) {
  const std::lock_guard lock(mutex_);
  Session* const session = Find(handle);
  if (session == nullptr) return ERROR_INVALID_HANDLE;
  if (!session->transaction) return static_cast<DWORD>(FWP_E_NO_TXN_IN_PROGRESS);
  store_.Add(session->transaction->added);
  session->transaction.reset();
  store_.StopWriting(session->description.key);
  return ERROR_SUCCESS;
}

DWORD Engine::Abort(HANDLE handle) {
  const std::lock_guard lock(mutex_);
  Session* const session = Find(handle);
  if (session == nullptr) return ERROR_INVALID_HANDLE;
  if (!session->transaction) return static_cast<DWORD>(FWP_E_NO_TXN_IN_PROGRESS);
  session->transaction.reset();
  store_.StopWriting(session->description.key);
  return ERROR_SUCCESS;
}

DWORD Engine::AddWithin(Session& session, FilteringObject object, bool isPersistent) {
  const bool isDynamic = (session.description.flags & SESSION_IS_DYNAMIC) != 0;
  if (isPersistent && isDynamic) return static_cast<DWORD>(FWP_E_LIFETIME_MISMATCH);
  if (isPersistent) object.lifetime = FilteringLifetime::Persistent;
  if (isDynamic) {
    object.lifetime = FilteringLifetime::Session;
    object.session = session.description.key;
  }
  if (IsNone(object.key)) UuidCreate(&object.key);
  std::vector<FilteringObject> visible = store_.Objects();
  std::vector<FilteringObject>& added = session.transaction->added;
  visible.insert(visible.end(), added.begin(), added.end());
  const DWORD status = Check(object, visible);
  if (status == ERROR_SUCCESS) added.push_back(std::move(object));
  return status;
}

DWORD Engine::Add(HANDLE handle, FilteringObject object, bool isPersistent) {
  std::unique_lock lock(mutex_);
  Session* session = Find(handle);
  if (session == nullptr) return ERROR_INVALID_HANDLE;
  if (session->transaction) {
    if (session->transaction->onlyReads) return static_cast<DWORD>(FWP_E_INCOMPATIBLE_TXN);
    return AddWithin(*session, std::move(object), isPersistent);
  }
  DWORD status = BecomeWriter(lock, handle);
  if (status != ERROR_SUCCESS) return status;
  session = Find(handle);
  session->transaction = Transaction{};
  status = AddWithin(*session, std::move(object), isPersistent);
  if (status == ERROR_SUCCESS) store_.Add(session->transaction->added);
  session->transaction.reset();
  store_.StopWriting(session->description.key);
  return status;
}

}  // namespace ostrel::lab
