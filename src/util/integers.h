#ifndef OSTREL_UTIL_INTEGERS_H
#define OSTREL_UTIL_INTEGERS_H

#include <cstdint>

namespace ostrel {

// Windows' `unsigned long`, the type of process ids and read sizes in the exported classes. On Linux, where
// the pure rooms are tested, that type has 64 bits and would not wrap where it must.
#ifdef _WIN32
using ULong32 = unsigned long;
#else
using ULong32 = std::uint32_t;
#endif
static_assert(sizeof(ULong32) == 4);

}  // namespace ostrel

#endif
