#ifndef OSTREL_HELPER_EXTENDED_PATH_H
#define OSTREL_HELPER_EXTENDED_PATH_H

#include <string>

namespace ostrel::helper {

// The form of a full path that Windows opens whatever its length, for one that is longer than Windows takes
// as it is; any other path unchanged.
std::wstring ExtendedPath(const std::wstring& path);

// A path in that form, as a user writes it.
std::wstring PlainPath(const std::wstring& path);

}  // namespace ostrel::helper

#endif
