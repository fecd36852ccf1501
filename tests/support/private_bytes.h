#ifndef OSTREL_TESTS_SUPPORT_PRIVATE_BYTES_H
#define OSTREL_TESTS_SUPPORT_PRIVATE_BYTES_H

#include <cstddef>

namespace ostrel::test {

// What this process has taken from the system for itself; 0 when the system does not say.
std::size_t PrivateBytes();

}  // namespace ostrel::test

#endif
