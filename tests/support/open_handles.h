#ifndef OSTREL_TESTS_SUPPORT_OPEN_HANDLES_H
#define OSTREL_TESTS_SUPPORT_OPEN_HANDLES_H

#include <cstddef>
#include <map>
#include <string>

namespace ostrel::test {

using HandleCounts = std::map<std::wstring, std::size_t>;

// How many handles of each type ("Event", "Thread" ...) this process has open. They are asked one by one:
// Wine's GetProcessHandleCount counts none.
HandleCounts OpenHandles();

// True when `counts` are the expected ones, but for up to eight of each type that a process opens once: the
// compiler's mutexes, for one, make an event each when two threads first meet at them.
bool AreAsExpected(const HandleCounts& counts, const HandleCounts& expected);

}  // namespace ostrel::test

#endif
