#include "reply.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <sstream>
#include <string_view>
#include <vector>

#include "userhelper/response_messages.h"

namespace ostrel::helper {

namespace {

constexpr std::size_t MOST_TITLES = 1024;
constexpr std::size_t LONGEST_TITLE = 1024;
constexpr std::size_t SHA256_DIGITS = 64;
constexpr std::size_t MD5_DIGITS = 32;

// The longest head has a type of one digit, 64 units of response id, and a code of two.
static_assert(std::string_view("3,64,,27,2046,").size() + 64 + LONGEST_TEXT <= LONGEST_TEXT_REPLY);

// A counted text behind another field: a comma, its length, a comma, and the text.
std::size_t CountedSize(std::size_t length) {
  return 1 + std::to_wstring(length).size() + 1 + length;
}

// Length of the longest text that `room` units hold together with its length and both commas; nothing when
// not even an empty one does.
std::optional<std::size_t> LongestCounted(std::size_t room) {
  if (room < CountedSize(0)) return std::nullopt;
  std::size_t length = room - CountedSize(0);
  while (CountedSize(length) > room) --length;
  return length;
}

constexpr bool IsHighSurrogate(wchar_t unit) {
  return (static_cast<std::uint32_t>(unit) & 0xFC00U) == 0xD800U;
}

// A zero would end the whole reply for its reader, and half a character is none.
std::wstring Cut(std::wstring_view text, std::size_t longest) {
  std::wstring_view cut = text.substr(0, text.find(L'\0'));
  if (cut.size() > longest) {
    cut = cut.substr(0, longest);
    if (!cut.empty() && IsHighSurrogate(cut.back())) cut.remove_suffix(1);
  }
  return std::wstring(cut);
}

std::wstring TextOf(const ResponseMessage& message) {
  std::wostringstream stream;
  // Without memory there is no reply at all, rather than one that ends early.
  stream.exceptions(std::ios_base::badbit);
  message.Serialize(stream);
  return stream.str();
}

std::vector<std::wstring> TitlesThatFit(const std::vector<std::wstring>& titles, std::size_t room) {
  std::vector<std::wstring> fitting;
  for (const std::wstring& title : titles) {
    const std::optional<std::size_t> longest = LongestCounted(room);
    if (!longest || fitting.size() == MOST_TITLES) break;
    std::wstring cut = Cut(title, std::min(*longest, LONGEST_TITLE));
    if (cut.empty()) continue;
    room -= CountedSize(cut.size());
    fitting.push_back(std::move(cut));
  }
  return fitting;
}

void SetText(ResponseMessageAutoProxyConfigUrl& message, std::wstring text) {
  message.url = std::move(text);
}

void SetText(ResponseMessageCloudStorageProviderLogin& message, std::wstring text) {
  message.login = std::move(text);
}

template <typename Message>
std::wstring TextReply(Message message, const TextAnswer& answer, ResponseCode codeOfUnsendable,
                       const wchar_t* unsendable) {
  message.responseCode = answer.code;
  std::wstring text = Cut(answer.text, LONGEST_TEXT);
  if (answer.code == ResponseCode::SUCCESS && text.size() != answer.text.size()) {
    message.responseCode = codeOfUnsendable;
    text = unsendable;
  }
  SetText(message, std::move(text));
  return TextOf(message);
}

}  // namespace

std::wstring TitlesReply(const std::wstring& responseId, const TitlesAnswer& answer) {
  ResponseMessageTabTitles message(responseId);
  message.messageType = MESSAGE_TAB_TITLES;
  message.responseCode = answer.code;
  // The number of titles takes up to three digits more than the one it has now.
  const std::size_t taken = TextOf(message).size() + 3;
  message.titles = TitlesThatFit(answer.titles, LONGEST_TITLES_REPLY - taken);
  return TextOf(message);
}

std::wstring MetadataReply(const std::wstring& responseId, const MetadataAnswer& answer) {
  ResponseMessageMetaData message(responseId);
  message.messageType = MESSAGE_META_DATA;
  message.responseCode = answer.code;
  message.sha256Hex.assign(SHA256_DIGITS, L'0');
  message.md5Hex.assign(MD5_DIGITS, L'0');
  if (answer.code == ResponseCode::SUCCESS) {
    message.sha256Hex = answer.sha256Hex;
    message.md5Hex = answer.md5Hex;
    message.fileSize = answer.fileSize;
    const std::size_t room = LONGEST_METADATA_REPLY - TextOf(message).size() + CountedSize(0);
    message.extraText = Cut(answer.extraText, LongestCounted(room).value_or(0));
    message.extraLength = message.extraText.size();
  }
  return TextOf(message);
}

std::wstring AutoProxyConfigUrlReply(const std::wstring& responseId, const TextAnswer& answer) {
  ResponseMessageAutoProxyConfigUrl message(responseId);
  message.messageType = MESSAGE_AUTO_PROXY_CONFIG_URL;
  return TextReply(
      message, answer, ResponseCode::PROXY_ERROR_GETTING_AUTO_CONFIG_URL,
      L"The automatic proxy configuration URL is longer than 2046 characters or has a zero inside.");
}

std::wstring CloudLoginReply(const std::wstring& responseId, const TextAnswer& answer) {
  ResponseMessageCloudStorageProviderLogin message(responseId);
  message.messageType = MESSAGE_CLOUD_STORAGE_PROVIDER_LOGIN;
  return TextReply(message, answer, ResponseCode::CLOUDLOGIN_ERROR_GETTING_CLOUD_LOGIN,
                   L"The login name is longer than 2046 characters or has a zero inside.");
}

}  // namespace ostrel::helper
