#include "support/open_handles.h"

#include <windows.h>
// Needs windows.h before it.
#include <winternl.h>

#include <array>

namespace ostrel::test {

HandleCounts OpenHandles() {
  // Handles are given out from the lowest free one on.
  constexpr ULONG_PTR HIGHEST_HANDLE = 0x20000;
  HandleCounts counts;
  for (ULONG_PTR number = 4; number < HIGHEST_HANDLE; number += 4) {
    alignas(PUBLIC_OBJECT_TYPE_INFORMATION) std::array<std::byte, 512> buffer{};
    ULONG length = 0;
    if (NtQueryObject(reinterpret_cast<HANDLE>(number), ObjectTypeInformation, buffer.data(),
                      static_cast<ULONG>(buffer.size()), &length) < 0) {
      continue;
    }
    const auto& type = *reinterpret_cast<const PUBLIC_OBJECT_TYPE_INFORMATION*>(buffer.data());
    ++counts[std::wstring(type.TypeName.Buffer, type.TypeName.Length / sizeof(wchar_t))];
  }
  return counts;
}

bool AreAsExpected(const HandleCounts& counts, const HandleCounts& expected) {
  constexpr std::size_t OPENED_ONCE = 8;
  HandleCounts left = expected;
  for (const auto& [type, count] : counts) {
    const std::size_t wanted = left[type];
    if (count < wanted || count > wanted + OPENED_ONCE) return false;
    left.erase(type);
  }
  // What is left was open and is closed.
  return left.empty();
}

}  // namespace ostrel::test
