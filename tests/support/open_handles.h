#ifndef OSTREL_TESTS_SUPPORT_OPEN_HANDLES_H
#define OSTREL_TESTS_SUPPORT_OPEN_HANDLES_H

#include <cstddef>
#include <map>
#include <string>

namespace ostrel::test {

// How many handles of each type ("Event", "Thread" ...) this process has open. They are asked one by one:
// Wine's GetProcessHandleCount counts none.
std::map<std::wstring, std::size_t> OpenHandles();

}  // namespace ostrel::test

#endif
