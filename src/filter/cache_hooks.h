#ifndef OSTREL_FILTER_CACHE_HOOKS_H
#define OSTREL_FILTER_CACHE_HOOKS_H

#include <string>
#include <vector>

#include "util/integers.h"

namespace ostrel {

// The three look-ups that every ReadEventCache of the library is given.

// Account name, without its domain, of the user in the process's token. Non-zero when it was found.
unsigned char GetUserOfProcess(void* processHandle, std::wstring& user);

// Title of the main window of a process, as the user's session tells it: none or one, or as many as another
// helper gives. `status` says how asking went.
std::vector<std::wstring> GetTabTitlesOfProcess(ULong32 processId, std::wstring processName,
                                                std::wstring& status);

// Non-zero when the path is a directory.
unsigned char IsDirectory(std::wstring path);

}  // namespace ostrel

#endif
