#ifndef OSTREL_UTIL_NAME_CAPACITY_H
#define OSTREL_UTIL_NAME_CAPACITY_H

#include <cstddef>

namespace ostrel {

// Characters, the terminator included, of the buffers for file names, process image names, account names and
// system paths.
constexpr std::size_t NAME_CAPACITY = 512;

}  // namespace ostrel

#endif
