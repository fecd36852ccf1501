#ifndef OSTREL_HOST_UTF8_H
#define OSTREL_HOST_UTF8_H

#include <string>
#include <string_view>

namespace ostrel::host {

// What is not valid becomes U+FFFD: a file name may hold any sequence of 16-bit units, JSON may not.
std::string ToUtf8(std::wstring_view text);
std::wstring ToUtf16(std::string_view text);

}  // namespace ostrel::host

#endif
