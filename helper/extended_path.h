#ifndef OSTREL_HELPER_EXTENDED_PATH_H
#define OSTREL_HELPER_EXTENDED_PATH_H

#include <string>

namespace ostrel::helper {

// Whether Windows takes the path in another form only.
bool IsTooLong(const std::wstring& path);

// The form of a full path that Windows opens whatever its length, for one that is too long; any other path
// unchanged. Windows takes this form literally: no slash, dot or double dot is understood in it any more.
std::wstring ExtendedPath(const std::wstring& path);

// A path in that form, as a user writes it.
std::wstring PlainPath(const std::wstring& path);

}  // namespace ostrel::helper

#endif
