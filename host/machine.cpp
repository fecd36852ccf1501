#include "machine.h"

#include <windows.h>
// Needs windows.h before it.
#include <tlhelp32.h>

#include <algorithm>
#include <cwchar>

#include "util/installed_names.h"
#include "windows_handle.h"

namespace ostrel::host {

namespace {

constexpr const wchar_t* DRIVER_FILES[] = {MINIFILTER_INF, MINIFILTER_SYS, NETWORK_DRIVER_INF,
                                           NETWORK_DRIVER_SYS};

bool IsFile(const std::wstring& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

}  // namespace

std::wstring ModuleFolder(const wchar_t* moduleName) {
  const HMODULE module = GetModuleHandleW(moduleName);
  if (module == nullptr) return {};
  wchar_t path[512] = {};
  const DWORD length = GetModuleFileNameW(module, path, 512);
  const std::wstring file(path, length);
  return file.substr(0, file.find_last_of(L'\\'));
}

std::vector<std::wstring> MissingDriverFiles(const std::wstring& folder) {
  std::vector<std::wstring> missing;
  for (const wchar_t* name : DRIVER_FILES) {
    if (!IsFile(folder + L"\\" + name)) missing.emplace_back(name);
  }
  return missing;
}

bool HoldsLoadDriverPrivilege() {
  HANDLE token = nullptr;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token)) return false;
  return HoldsLoadDriverPrivilege(WindowsHandle(token).get());
}

bool HoldsLoadDriverPrivilege(HANDLE token) {
  LUID wanted{};
  if (!LookupPrivilegeValueW(nullptr, L"SeLoadDriverPrivilege", &wanted)) return false;
  DWORD size = 0;
  GetTokenInformation(token, TokenPrivileges, nullptr, 0, &size);
  std::vector<BYTE> buffer(size);
  if (!GetTokenInformation(token, TokenPrivileges, buffer.data(), size, &size)) return false;
  const auto* const held = reinterpret_cast<const TOKEN_PRIVILEGES*>(buffer.data());
  return std::any_of(held->Privileges, held->Privileges + held->PrivilegeCount, [&](const auto& privilege) {
    return privilege.Luid.LowPart == wanted.LowPart && privilege.Luid.HighPart == wanted.HighPart;
  });
}

std::set<std::uint32_t> RunningProcesses(const std::vector<std::wstring>& imageNames) {
  std::set<std::uint32_t> ids;
  const WindowsHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
  PROCESSENTRY32W entry{};
  entry.dwSize = sizeof entry;
  for (BOOL more = Process32FirstW(snapshot.get(), &entry); more;
       more = Process32NextW(snapshot.get(), &entry)) {
    const bool isWanted = std::any_of(imageNames.begin(), imageNames.end(), [&](const std::wstring& name) {
      return _wcsicmp(name.c_str(), entry.szExeFile) == 0;
    });
    if (isWanted) ids.insert(entry.th32ProcessID);
  }
  return ids;
}

}  // namespace ostrel::host
