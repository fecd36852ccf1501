#include "detect/file_size.h"

#include <windows.h>

#include <limits>

#include "util/unique_handle.h"

namespace ostrel {

std::uint64_t GetFileSizeOrMax(const std::wstring& path) {
  constexpr std::uint64_t unknown = std::numeric_limits<std::uint64_t>::max();
  // Some user's process chose the path, and it may lead to a pipe of that user's: who serves the pipe must
  // not act as the host, which may be the local system.
  constexpr DWORD flags = FILE_ATTRIBUTE_NORMAL | SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION;
  const UniqueFileHandle file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                          nullptr, OPEN_EXISTING, flags, nullptr));
  if (!file) return unknown;
  LARGE_INTEGER size{};
  return GetFileSizeEx(file.Get(), &size) ? static_cast<std::uint64_t>(size.QuadPart) : unknown;
}

}  // namespace ostrel
