#ifndef OSTREL_DETECT_FILE_SIZE_H
#define OSTREL_DETECT_FILE_SIZE_H

#include <cstdint>
#include <string>

namespace ostrel {

// Size of the file in bytes; all ones when it cannot be opened or sized.
std::uint64_t GetFileSizeOrMax(const std::wstring& path);

}  // namespace ostrel

#endif
