#ifndef OSTREL_USERHELPER_JUDGEMENTS_H
#define OSTREL_USERHELPER_JUDGEMENTS_H

#include <string>
#include <vector>

#include "userhelper/file_meta_data.h"
#include "userhelper/response_messages.h"

namespace ostrel {

// What a response, once read, comes to for whoever asked.

// The titles. An error, an unreadable response or no title at all overwrites the status.
std::vector<std::wstring> JudgeTabTitles(const ResponseMessageTabTitles& response,
                                         const std::wstring& processName, std::wstring& status);

// The metadata, also without digests. An error, an unreadable response or a missing digest overwrites the
// status.
FileMetaData JudgeMetaData(const ResponseMessageMetaData& response, const std::wstring& filePath,
                           std::wstring& status);

// False, with a new string in `*error`, for a channel that came up with a complaint: it is not used.
bool JudgeAutoProxyChannel(const std::wstring& status, wchar_t** error);
bool JudgeCloudLoginChannel(const std::wstring& status, wchar_t** error);

// A new string in `*result` or `*error`, or, for an empty answer, in neither. `received` is the text that the
// response was read from.
void JudgeAutoProxyConfigUrl(const ResponseMessageAutoProxyConfigUrl& response, const std::wstring& received,
                             wchar_t** result, wchar_t** error);
void JudgeCloudStorageProviderLogin(const ResponseMessageCloudStorageProviderLogin& response,
                                    const std::wstring& received, wchar_t** result, wchar_t** error);

}  // namespace ostrel

#endif
