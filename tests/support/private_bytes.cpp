#include "support/private_bytes.h"

#include <windows.h>
// Needs windows.h before it.
#include <psapi.h>

namespace ostrel::test {

std::size_t PrivateBytes() {
  PROCESS_MEMORY_COUNTERS counters{};
  counters.cb = sizeof(counters);
  if (!K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof(counters))) return 0;
  // The same as PrivateUsage, which Wine leaves at zero.
  return counters.PagefileUsage;
}

}  // namespace ostrel::test
