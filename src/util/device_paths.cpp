#include <windows.h>

#include <cstddef>
#include <cwchar>
#include <string>
#include <string_view>

#include "log/log.h"
#include "util/name_capacity.h"
#include "util/ostrel_filter_lib_util.h"
#include "util/text.h"

using ostrel::CopyBounded;
using ostrel::Log;
using ostrel::LOG_DETAIL;
using ostrel::NAME_CAPACITY;

namespace {

constexpr DWORD DIRECTORY_CAPACITY = 300;

// "C:" and a terminator.
constexpr std::size_t DRIVE_CAPACITY = 3;

}  // namespace

void OstrelFilterLibUtil::ConvertFileName(DEVICE_SOURCE_TYPE type, wchar_t* source, wchar_t* destination) {
  switch (type) {
    case DEVICE_SOURCE_LOCAL_DRIVE:
      ConvertLocalDriveFileName(source, destination);
      break;
    case DEVICE_SOURCE_NETWORK_DRIVE:
      ConvertNetworkDriveFileName(source, destination);
      break;
    default:
      ConvertOtherFileName(source, destination);
  }
}

void OstrelFilterLibUtil::ConvertLocalDriveFileName(wchar_t* source, wchar_t* destination) {
  const std::wstring_view name(source);
  // Two more than the call may fill, so that the list ends with an empty string whatever the call did.
  wchar_t roots[NAME_CAPACITY + 1] = {};
  GetLogicalDriveStringsW(static_cast<DWORD>(NAME_CAPACITY - 1), roots);
  for (const wchar_t* root = roots; *root != L'\0'; root += std::wcslen(root) + 1) {
    const wchar_t drive[DRIVE_CAPACITY] = {root[0], L':', L'\0'};
    wchar_t target[NAME_CAPACITY];
    if (QueryDosDeviceW(drive, target, static_cast<DWORD>(NAME_CAPACITY)) == 0) continue;
    // A bare prefix match: \Device\HarddiskVolume1 also takes the files of \Device\HarddiskVolume10.
    const std::wstring_view device(target);
    if (!ostrel::StartsWithIgnoringAsciiCase(name, device)) continue;
    CopyBounded(drive, destination, NAME_CAPACITY);
    CopyBounded(name.substr(device.size()), destination + 2, NAME_CAPACITY - 2);
    return;
  }
  ConvertOtherFileName(source, destination);
}

std::wstring OstrelFilterLibUtil::GetRawDirectoryName(wchar_t* directory) {
  // Through the short name and back, so that every component ends up spelled as on disk.
  wchar_t shortPath[DIRECTORY_CAPACITY];
  const DWORD shortLength = GetShortPathNameW(directory, shortPath, DIRECTORY_CAPACITY);
  if (shortLength == 0 || shortLength >= DIRECTORY_CAPACITY) {
    Log(LOG_DETAIL, L"Could not find directory: %s", directory);
    return directory;
  }
  wchar_t longPath[DIRECTORY_CAPACITY];
  const DWORD longLength = GetLongPathNameW(shortPath, longPath, DIRECTORY_CAPACITY);
  if (longLength == 0 || longLength >= DIRECTORY_CAPACITY) return directory;

  const wchar_t* const colon = std::wcschr(longPath, L':');
  if (colon == nullptr) {
    Log(LOG_DETAIL, L"Improperly formated drive letter %s", longPath);
    return directory;
  }
  // What stands before the colon is cut to two characters when it is no drive letter, and looked up as it is.
  wchar_t drive[DRIVE_CAPACITY];
  CopyBounded(std::wstring_view(longPath, static_cast<std::size_t>(colon - longPath) + 1), drive,
              DRIVE_CAPACITY);
  wchar_t target[DIRECTORY_CAPACITY];
  if (QueryDosDeviceW(drive, target, DIRECTORY_CAPACITY) == 0) {
    // The line shows the path from the colon on, not the drive.
    Log(LOG_DETAIL, L"Could not look up drive letter %s", colon);
    return directory;
  }
  return std::wstring(target) + (colon + 1);
}
