#include "filter/cache_hooks.h"

#include <windows.h>
// Needs windows.h before it.
#include <shlwapi.h>

#include "log/log.h"
#include "userhelper/helper_requests.h"
#include "util/name_capacity.h"
#include "util/ostrel_filter_lib_util.h"
#include "util/unique_handle.h"

namespace ostrel {

namespace {

// The token's user in a block of the process heap; none, and a log line, when it cannot be had.
UniqueHeapBlock GetTokenUser(HANDLE token) {
  DWORD size = 0;
  if (!GetTokenInformation(token, TokenUser, nullptr, 0, &size)) {
    const DWORD error = GetLastError();
    if (error != ERROR_INSUFFICIENT_BUFFER) {
      Log(LOG_ERROR, L"Could not get token information. %lu", error);
      return {};
    }
  }
  UniqueHeapBlock block(HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, size));
  if (!block) {
    Log(LOG_ERROR, L"Could not allocate token memory.");
    return {};
  }
  if (!GetTokenInformation(token, TokenUser, block.Get(), size, &size)) {
    Log(LOG_ERROR, L"Could not get correctly sized token information. %lu", GetLastError());
    return {};
  }
  return block;
}

}  // namespace

unsigned char GetUserOfProcess(void* processHandle, std::wstring& user) {
  HANDLE opened = nullptr;
  if (!OpenProcessToken(processHandle, TOKEN_QUERY, &opened)) {
    Log(LOG_ERROR, L"Could not open process token. %lu", GetLastError());
    return 0;
  }
  const UniqueKernelHandle token(opened);
  const UniqueHeapBlock block = GetTokenUser(token.Get());
  if (!block) return 0;

  wchar_t account[NAME_CAPACITY] = {};
  wchar_t domain[NAME_CAPACITY] = {};
  // One variable serves both lengths. A system that stores the account's before it checks the domain's room
  // may refuse.
  DWORD length = static_cast<DWORD>(NAME_CAPACITY);
  SID_NAME_USE use{};
  const PSID sid = static_cast<const TOKEN_USER*>(block.Get())->User.Sid;
  const BOOL found = LookupAccountSidW(nullptr, sid, account, &length, domain, &length, &use);
  if (!found) Log(LOG_ERROR, L"Could not get account info from SID. %lu", GetLastError());
  // Also after a refusal, with whatever the call had written by then; the cache puts its own text in its
  // place.
  user = account;
  return found ? 1 : 0;
}

std::vector<std::wstring> GetTabTitlesOfProcess(ULong32 processId, std::wstring processName,
                                                std::wstring& status) {
  return GetTabTitlesFromUserHelper(processId, processName, status);
}

unsigned char IsDirectory(std::wstring path) {
  return PathIsDirectoryW(path.c_str()) ? 1 : 0;
}

}  // namespace ostrel
