#ifndef OSTREL_USERHELPER_SESSION_LOOKUPS_H
#define OSTREL_USERHELPER_SESSION_LOOKUPS_H

#include <cstdint>
#include <string>
#include <vector>

#include "util/integers.h"

namespace ostrel {

// What only the interactive user's session can answer. This version of the library does not ask it yet: both
// look-ups return nothing and say so in their status.
constexpr wchar_t USER_HELPER_NOT_SUPPORTED[] = L"USER_HELPER_NOT_SUPPORTED";

struct FileMetaData {
  std::wstring sha256Hex;
  std::wstring md5Hex;
  std::uint64_t fileSize = 0;  // bytes
  std::wstring extraText;
};

inline std::vector<std::wstring> GetTabTitlesFromUserHelper(ULong32 /*processId*/,
                                                            const std::wstring& /*processName*/,
                                                            std::wstring& status) {
  status = USER_HELPER_NOT_SUPPORTED;
  return {};
}

inline FileMetaData GetFileMetaDataFromUserHelper(const std::wstring& /*filePath*/, std::wstring& status) {
  status = USER_HELPER_NOT_SUPPORTED;
  return {};
}

}  // namespace ostrel

#endif
