#ifndef OSTREL_HELPER_REPLY_H
#define OSTREL_HELPER_REPLY_H

#include <cstddef>
#include <string>

#include "user_session.h"

namespace ostrel::helper {

// Units that a reply may have: the library reads it as a zero-terminated text out of a buffer of 2048, 10240
// or 4400 bytes.
constexpr std::size_t LONGEST_TITLES_REPLY = 2048 / 2 - 1;
constexpr std::size_t LONGEST_METADATA_REPLY = 10240 / 2 - 1;
constexpr std::size_t LONGEST_TEXT_REPLY = 4400 / 2 - 1;

// Units that the text in such a reply may have: the library hands it on in a string that holds no more, and
// would cut a longer one without a word. The reply around it always fits.
constexpr std::size_t LONGEST_TEXT = 2046;

// Replies that the library's readers accept and that fit its buffers. `responseId` has 1 to 64 units.

// Titles that are too many or too long are dropped from the end, the last one kept being shortened.
std::wstring TitlesReply(const std::wstring& responseId, const TitlesAnswer& answer);

// The extra text is shortened. With an error code the digests are all zeros, as long as ever, the size is 0
// and there is no extra text.
std::wstring MetadataReply(const std::wstring& responseId, const MetadataAnswer& answer);

// A result that cannot be sent whole would be worth nothing if it were cut: it becomes an error code of its
// own. An explanation is shortened.
std::wstring AutoProxyConfigUrlReply(const std::wstring& responseId, const TextAnswer& answer);
std::wstring CloudLoginReply(const std::wstring& responseId, const TextAnswer& answer);

}  // namespace ostrel::helper

#endif
