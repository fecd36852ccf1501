#include "detect/file_size.h"

#include <windows.h>

#include <limits>

#include "util/unique_handle.h"

namespace ostrel {

std::uint64_t GetFileSizeOrMax(const std::wstring& path) {
  constexpr std::uint64_t unknown = std::numeric_limits<std::uint64_t>::max();
  const UniqueFileHandle file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                          nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) return unknown;
  LARGE_INTEGER size{};
  return GetFileSizeEx(file.Get(), &size) ? static_cast<std::uint64_t>(size.QuadPart) : unknown;
}

}  // namespace ostrel
