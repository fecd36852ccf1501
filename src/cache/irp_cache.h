#ifndef OSTREL_CACHE_IRP_CACHE_H
#define OSTREL_CACHE_IRP_CACHE_H

#include <map>
#include <string>
#include <string_view>

#include "cache/event_records.h"
#include "util/export.h"
#include "util/integers.h"

class IrpCache;

namespace ostrel {

// IrpCache::ShouldAllowRead without copies of the names, for a caller to whom every message counts.
// Not exported: for the library itself.
bool ShouldAllowRead(IrpCache& cache, const wchar_t* filePath, ULong32 processId, unsigned long long time,
                     std::wstring_view processName);

}  // namespace ostrel

// Tells a real upload read from metadata probing by the queries that surround it, with one rule per program.
// All processes of one browser family share their counts. Memory is ten seconds of the times passed in.
//
// Not synchronised: one thread only. `filePath` is a full path, `processName` an image path of which only the
// last component counts, `time` milliseconds since 1970.
class OSTREL_EXPORT IrpCache {
 public:
  IrpCache();
  IrpCache(const IrpCache& other);
  ~IrpCache();

  // Records a standard-information query.
  void AddStdInfoQuery(std::wstring filePath, ostrel::ULong32 processId, unsigned long long time,
                       std::wstring processName);

  // Records a network-open-information query. False means: a read let through earlier was probing after all;
  // withdraw it.
  bool AddNetworkInfoQuery(std::wstring filePath, ostrel::ULong32 processId, unsigned long long time,
                           std::wstring processName);

  // Records a read and says whether it is a real one. Programs that have no rule are never refused.
  bool ShouldAllowRead(std::wstring filePath, ostrel::ULong32 processId, unsigned long long time,
                       std::wstring processName);

  // Number of (file, program) pairs remembered.
  unsigned long long GetCacheCount();

 private:
  friend bool ostrel::ShouldAllowRead(IrpCache& cache, const wchar_t* filePath, ostrel::ULong32 processId,
                                      unsigned long long time, std::wstring_view processName);

  enum ApplicationType {
    Chromium = 0,
    EdgeLegacy = 1,
    Firefox = 2,
    InternetExplorer = 3,
    WinScp = 4,
    Other = 5
  };

  // What needs no copies of the names. Not members: those are exported, and the export table is fixed.
  struct Views;

  void PurgeEvents(unsigned long long now);
  ApplicationType GetApplicationType(std::wstring processName);
  unsigned long long GetProcessIdToUse(ostrel::ULong32 processId, ApplicationType type);

  unsigned long long purgeAge_;
  std::map<DiskCacheKey, IrpCacheMetaData> events_;
  unsigned long long lastPurgeTime_;
};

#endif
