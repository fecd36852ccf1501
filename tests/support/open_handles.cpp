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

bool AreAsExpected(HandleCounts counts, const HandleCounts& expected) {
  const std::wstring event = L"Event";
  const auto events = expected.find(event);
  const std::size_t fewest = events == expected.end() ? 0 : events->second;
  if (counts[event] >= fewest && counts[event] <= fewest + MOST_EVENTS_OF_LOCKS) counts[event] = fewest;
  if (fewest == 0) counts.erase(event);
  return counts == expected;
}

}  // namespace ostrel::test
