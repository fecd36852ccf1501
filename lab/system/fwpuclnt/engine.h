#ifndef OSTREL_LAB_SYSTEM_FWPUCLNT_ENGINE_H
#define OSTREL_LAB_SYSTEM_FWPUCLNT_ENGINE_H

#include <windows.h>

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "filtering_store.h"

namespace ostrel::lab {

// The filtering engine's rules, for the sessions of this process. Every function returns the engine's status,
// 0 for success, and may throw a RegistryError or std::bad_alloc.
class Engine {
 public:
  DWORD Open(FilteringSession session, DWORD transactionWaitMs, HANDLE& handle);
  // A transaction in progress is aborted, and the objects of a dynamic session go.
  DWORD Close(HANDLE handle);

  // Waits until no other session, of whatever process, writes; not for a transaction that only reads.
  DWORD Begin(HANDLE handle, bool onlyReads);
  DWORD Commit(HANDLE handle);
  DWORD Abort(HANDLE handle);

  // Fills in the key of an object that has none and its lifetime. Outside a transaction it is one of its own.
  DWORD Add(HANDLE handle, FilteringObject object, bool isPersistent);

 private:
  struct Transaction {
    bool onlyReads = false;
    std::vector<FilteringObject> added;
  };
  struct Session {
    FilteringSession description;
    DWORD transactionWaitMs = 0;
    std::optional<Transaction> transaction;
  };

  Session* Find(HANDLE handle);
  // Waits without the lock, so that another session of this process can finish what it writes.
  DWORD BecomeWriter(std::unique_lock<std::mutex>& lock, HANDLE handle);
  DWORD AddWithin(Session& session, FilteringObject object, bool isPersistent);

  std::mutex mutex_;
  FilteringStore store_;
  std::map<HANDLE, std::unique_ptr<Session>> sessions_;
};

}  // namespace ostrel::lab

#endif
