#ifndef OSTREL_USERHELPER_HELPER_REQUESTS_H
#define OSTREL_USERHELPER_HELPER_REQUESTS_H

#include <string>
#include <vector>

#include "userhelper/file_meta_data.h"
#include "util/integers.h"

namespace ostrel {

// What only the interactive user's session can answer. Every call launches a user helper of its own, asks it
// once and waits for the answer, for as long as that helper lives; calls on different threads do not meet.
// None lets an exception out: when memory is short, a status is empty and so is what is returned.

// Titles of the windows of a process. `status` becomes "TABTITLE_SUCCESS" or the word for what went wrong.
std::vector<std::wstring> GetTabTitlesFromUserHelper(ULong32 processId, const std::wstring& processName,
                                                     std::wstring& status);

// Size and digests of a file. `status` becomes "METADATA_SUCCESS" or the word for what went wrong.
FileMetaData GetFileMetaDataFromUserHelper(const std::wstring& filePath, std::wstring& status);

// The next two leave a new string for OstrelFilterLibUtil::DeallocStringPointer in `*result` or `*error`.
// What is not set stays as it was; an empty answer sets neither.

// URL of the user's automatic proxy configuration.
void GetAutoProxyConfigUrlFromUserHelper(wchar_t** result, wchar_t** error);

// The user's login at a cloud storage provider.
void GetCloudStorageProviderLoginFromUserHelper(const std::wstring& provider,
                                                const std::wstring& homeDirectory, wchar_t** result,
                                                wchar_t** error);

}  // namespace ostrel

#endif
