#include "filter/driver_installer.h"

#include <windows.h>
// Need windows.h before them.
#include <fltuser.h>
#include <setupapi.h>
#include <shlwapi.h>

#include <cstddef>

#include "filter/load_driver_privilege.h"
#include "log/log.h"
#include "util/installed_names.h"
#include "util/name_capacity.h"
#include "util/ostrel_filter_lib_util.h"
#include "util/unique_handle.h"

// The linker's name for where this module is loaded.
extern "C" IMAGE_DOS_HEADER __ImageBase;

namespace ostrel {

namespace {

// HRESULT of unloading a filter that is not loaded.
constexpr HRESULT FILTER_NOT_FOUND = static_cast<HRESULT>(0x801F0013);

constexpr std::size_t LONGEST_PATH = NAME_CAPACITY - 1;

struct InfPolicy {
  using Handle = HINF;
  static Handle Invalid() noexcept { return INVALID_HANDLE_VALUE; }
  static void Close(Handle inf) noexcept { SetupCloseInfFile(inf); }
};
using UniqueInf = UniqueHandle<InfPolicy>;

std::wstring LibraryDirectory() {
  wchar_t path[NAME_CAPACITY] = {};
  GetModuleFileNameW(reinterpret_cast<HMODULE>(&__ImageBase), path, static_cast<DWORD>(NAME_CAPACITY));
  path[LONGEST_PATH] = L'\0';
  PathRemoveFileSpecW(path);
  return path;
}

void LogFailedCopy() {
  Log(LOG_ERROR, L"Could not copy driver file. %lu", GetLastError());
}

// Empty when there is no saying where the system is: a path without it would lead somewhere else.
std::wstring SystemDriverPath(const std::wstring& sysFileName) {
  wchar_t system[NAME_CAPACITY] = {};
  if (GetSystemDirectoryW(system, static_cast<UINT>(NAME_CAPACITY)) == 0) {
    LogFailedCopy();
    return {};
  }
  return (std::wstring(system) + L"\\drivers\\" + sysFileName).substr(0, LONGEST_PATH);
}

bool UnloadMinifilter() {
  const HRESULT result = FilterUnload(MINIFILTER_SERVICE_NAME);
  if (result == S_OK || result == FILTER_NOT_FOUND) return true;
  Log(LOG_ERROR, L"Could not unload driver during InstallDriver: HResult: %x", result);
  return false;
}

void DeleteOldFile(const std::wstring& path) {
  if (!PathFileExistsW(path.c_str()) || DeleteFileW(path.c_str())) return;
  Log(LOG_NOTABLE, L"Could not delete %s.  %lu", path.c_str(), GetLastError());
}

bool CopyDriverFile(HINF inf, const std::wstring& sysFileName, const std::wstring& sourceDirectory,
                    const std::wstring& target) {
  if (SetupInstallFileW(inf, nullptr, sysFileName.c_str(), sourceDirectory.c_str(), target.c_str(),
                        SP_COPY_NEWER_OR_SAME, nullptr, nullptr)) {
    return true;
  }
  LogFailedCopy();
  return false;
}

void SetUpService(HINF inf) {
  if (SetupInstallServicesFromInfSectionW(inf, L"DefaultInstall.Services", 0)) {
    Log(LOG_NOTABLE, L"Setup service successfully.");
  } else {
    Log(LOG_ERROR, L"Could not setup service. %lu", GetLastError());
  }
}

}  // namespace

bool InstallDriver(const std::wstring& infFileName, const std::wstring& sysFileName) {
  Log(LOG_NOTABLE, L"Installing and setting up service: %s", sysFileName.c_str());
  if (EnableLoadDriverPrivilege() != 0) {
    Log(LOG_ERROR, L"Could not enable privilege");
    return false;
  }
  if (!UnloadMinifilter()) return false;

  const std::wstring sourceDirectory = LibraryDirectory();
  const std::wstring infPath = (sourceDirectory + L"\\" + infFileName).substr(0, LONGEST_PATH);
  const std::wstring target = SystemDriverPath(sysFileName);
  if (target.empty()) return false;
  UINT errorLine = 0;
  const UniqueInf inf(SetupOpenInfFileW(infPath.c_str(), nullptr, INF_STYLE_WIN4, &errorLine));
  if (!inf) {
    Log(LOG_ERROR, L"Could not open INF file. Error on line %d", errorLine);
    return false;
  }
  DeleteOldFile(target);
  const bool copied = CopyDriverFile(inf.Get(), sysFileName, sourceDirectory, target);
  // Also after a failed copy, and without a say in the result.
  SetUpService(inf.Get());
  return copied;
}

}  // namespace ostrel
