#ifndef OSTREL_UTIL_OSTREL_FILTER_LIB_UTIL_H
#define OSTREL_UTIL_OSTREL_FILTER_LIB_UTIL_H

#include <cstdint>
#include <string>
#include <vector>

#include "util/export.h"
#include "util/integers.h"

// Where the volume of a file lies, as the minifilter reports it. Names of any other source are taken as they
// are.
enum DEVICE_SOURCE_TYPE : std::uint32_t {
  DEVICE_SOURCE_LOCAL_DRIVE = 0,
  DEVICE_SOURCE_NETWORK_DRIVE = 1,
};

// Path, process and string helpers without state; any thread may call. Names compare without regard to ASCII
// case. Only GetRawDirectoryName can throw: std::bad_alloc.
class OSTREL_EXPORT OstrelFilterLibUtil {
 public:
  // Turns the device form of a file name into the form a user knows: a drive letter for a local drive,
  // \\server\share for a network drive. What cannot be converted is copied as it is. `source` is
  // NUL-terminated; `destination` holds 512 characters and receives at most 511 and a terminator.
  static void ConvertFileName(DEVICE_SOURCE_TYPE type, wchar_t* source, wchar_t* destination);

  // Turns a directory on a drive letter into its device form, every component spelled as on disk. Returns the
  // directory unchanged when it does not exist, is not on a drive letter, or is longer than 299 characters.
  static std::wstring GetRawDirectoryName(wchar_t* directory);

  // True if the file name ends with one of the extensions.
  static bool ExcludeBasedOnExtension(wchar_t* fileName, std::vector<std::wstring> extensions);

  // True means: not among the watched. False if the whole name equals one of `processes`; true for an empty
  // list.
  static bool ExcludeBasedOnProcess(wchar_t* processName, std::vector<std::wstring> processes);

  // Reads the device-form image path of a process into `name`, which holds 512 characters. `*processHandle`
  // receives the process's handle, or null, whatever the result; the caller closes it.
  static bool GetProcessName(ostrel::ULong32 processId, wchar_t* name, void** processHandle);

  // Writes the ids of the running processes whose executable is named like one of `processNames` to
  // `processIds`, which holds `capacity` ids (at least 1), and their number to `count`. Stops as soon as the
  // array is full.
  static void GetCurrentProcessIDsToWatch(ostrel::ULong32* processIds, int* count, int capacity,
                                          std::vector<std::wstring> processNames);

  // Sets `*result` to a new string with the URL of the automatic proxy configuration script that the Internet
  // settings of the calling thread's user name, or `*error` to one saying what failed. Sets neither when they
  // name none.
  static void GetAutoProxyConfigUrlForUser(wchar_t** result, wchar_t** error);

  // Sets `*out` to a new string of at most 2046 characters, cutting what is longer; null when memory is
  // short. The owner frees it with DeallocStringPointer.
  static void AllocStringPointer(wchar_t** out, const wchar_t* format, ...);

  // Frees a string that AllocStringPointer made; null is ignored.
  static void DeallocStringPointer(wchar_t** pointer);

 private:
  static void ConvertLocalDriveFileName(wchar_t* source, wchar_t* destination);
  static void ConvertNetworkDriveFileName(wchar_t* source, wchar_t* destination);
  static void ConvertOtherFileName(wchar_t* source, wchar_t* destination);
};

#endif
