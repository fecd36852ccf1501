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

// A lock of the compiler's makes an event when two threads first meet at it, and the library has about so
// many locks.
constexpr std::size_t MOST_EVENTS_OF_LOCKS = 8;

// True when `counts` are the expected ones, but for the events of locks.
bool AreAsExpected(HandleCounts counts, const HandleCounts& expected);

}  // namespace ostrel::test

#endif
