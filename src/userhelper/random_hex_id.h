#ifndef OSTREL_USERHELPER_RANDOM_HEX_ID_H
#define OSTREL_USERHELPER_RANDOM_HEX_ID_H

#include <string>

namespace ostrel {

// 32 random bytes as lower-case hexadecimal numbers without leading zeros: 32 to 64 digits. Empty, with a log
// line, when there are none to be had. Throws only std::bad_alloc.
std::wstring GenerateRandomHexId();

}  // namespace ostrel

#endif
