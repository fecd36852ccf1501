#ifndef OSTREL_LAB_SYSTEM_FWPUCLNT_FILTERING_STORE_H
#define OSTREL_LAB_SYSTEM_FWPUCLNT_FILTERING_STORE_H

#include "filtering_objects.h"
#include "registry_key.h"

namespace ostrel::lab {

// The filtering engine's sessions and objects, in the registry, where every process sees them:
//
//   HKEY_LOCAL_MACHINE\Software\OstrelLab\FilteringPlatform\Persistent   persistent objects
//   HKEY_LOCAL_MACHINE\Software\OstrelLab\FilteringPlatform\Running      gone when the machine stops:
//     \Objects                                                             objects without a session
//     \Sessions\{key}, \Sessions\{key}\Objects                             sessions and their objects
//
// One system-wide mutex is held throughout each function. Sessions of processes that have ended do not count:
// they are removed before one could. Throws a RegistryError when the registry refuses.
class FilteringStore {
 public:
  FilteringStore();

  FilteringState Read();
  // Its objects alone.
  std::vector<FilteringObject> Objects();

  // False when there is a session of that key.
  bool AddSession(const FilteringSession& session);
  void RemoveSession(const GUID& session);

  // At most one session is the writer. False while it is another one.
  bool TryBecomeWriter(const GUID& session);
  void StopWriting(const GUID& session);

  // All at once for every reader.
  void Add(const std::vector<FilteringObject>& objects);

 private:
  class Lock;

  void RemoveDeadSessions();
  bool IsThere(const std::wstring& session);
  std::vector<FilteringObject> ReadAllObjects();

  UniqueKernelHandle mutex_;
  RegistryKey persistent_;
  RegistryKey running_;
  RegistryKey untilRestart_;
  RegistryKey sessions_;
};

// Of this process, for FilteringSession::processStart.
std::uint64_t CurrentProcessStart();

}  // namespace ostrel::lab

#endif
