#ifndef OSTREL_USERHELPER_FILE_META_DATA_H
#define OSTREL_USERHELPER_FILE_META_DATA_H

#include <cstdint>
#include <string>

namespace ostrel {

// A file as the user sees it. All empty when it could not be asked for.
struct FileMetaData {
  std::wstring sha256Hex;
  std::wstring md5Hex;
  std::uint64_t fileSize = 0;  // bytes
  std::wstring extraText;
};

}  // namespace ostrel

#endif
