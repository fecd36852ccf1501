#include <windows.h>
// Needs windows.h before it.
#include <psapi.h>
#include <tlhelp32.h>

#include <algorithm>

#include "log/log.h"
#include "util/name_capacity.h"
#include "util/ostrel_filter_lib_util.h"
#include "util/text.h"
#include "util/unique_handle.h"

using ostrel::Log;
using ostrel::LOG_DETAIL;
using ostrel::LOG_ERROR;

namespace {

bool IsFirstModuleAmong(HANDLE modules, const std::vector<std::wstring>& names) {
  MODULEENTRY32W module{};
  module.dwSize = sizeof(module);
  if (!Module32FirstW(modules, &module)) {
    Log(LOG_ERROR, L"Could not get first module. %lu", GetLastError());
    return false;
  }
  return std::any_of(names.begin(), names.end(), [&module](const std::wstring& name) {
    return ostrel::EqualsIgnoringAsciiCase(module.szModule, name);
  });
}

}  // namespace

bool OstrelFilterLibUtil::GetProcessName(ostrel::ULong32 processId, wchar_t* name, void** processHandle) {
  *processHandle = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, processId);
  if (*processHandle == nullptr) return false;
  if (K32GetProcessImageFileNameW(*processHandle, name, static_cast<DWORD>(ostrel::NAME_CAPACITY)) == 0) {
    Log(LOG_ERROR, L"Could not get process name. %lu", GetLastError());
    return false;
  }
  return true;
}

void OstrelFilterLibUtil::GetCurrentProcessIDsToWatch(ostrel::ULong32* processIds, int* count, int capacity,
                                                      std::vector<std::wstring> processNames) {
  *count = 0;
  const ostrel::UniqueFileHandle processes(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
  if (!processes) {
    Log(LOG_ERROR, L"Could not get system snapshot. %lu", GetLastError());
    return;
  }
  PROCESSENTRY32W process{};
  process.dwSize = sizeof(process);
  if (!Process32FirstW(processes.Get(), &process)) {
    Log(LOG_ERROR, L"Could not get first process. %lu", GetLastError());
    return;
  }
  do {
    // Protected processes, and those that have ended by now, give no modules and are passed over.
    const ostrel::UniqueFileHandle modules(
        CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, process.th32ProcessID));
    if (!modules || !IsFirstModuleAmong(modules.Get(), processNames)) continue;
    processIds[(*count)++] = process.th32ProcessID;
    if (*count >= capacity) {
      // Said as soon as the array is full, even if no further process would have matched.
      Log(LOG_ERROR, L"More processes than we have room for.");
      return;
    }
    Log(LOG_DETAIL, L"Added process %lu %s to list of processes to monitor", process.th32ProcessID,
        process.szExeFile);
  } while (Process32NextW(processes.Get(), &process));
}
