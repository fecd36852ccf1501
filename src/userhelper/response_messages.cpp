#include "userhelper/response_messages.h"

#include <cstddef>
#include <utility>

#include "userhelper/counted_text.h"

namespace ostrel {

namespace {

constexpr std::int32_t LONGEST_RESPONSE_ID = 64;
constexpr std::int32_t MOST_TITLES = 1024;
constexpr std::int32_t LONGEST_TITLE = 1024;
constexpr std::uint64_t SHA256_HEX_LENGTH = 64;
constexpr std::uint64_t MD5_HEX_LENGTH = 32;

}  // namespace

ResponseMessage::ResponseMessage(std::wstring expectedResponseId)
    : responseId(std::move(expectedResponseId)) {}

std::wostream& ResponseMessage::Serialize(std::wostream& stream) const {
  return stream;
}

std::wistream& ResponseMessage::Deserialize(std::wistream& stream) {
  return stream;
}

bool ResponseMessage::ReadHead(std::wistream& stream, const Head& head) {
  messageType = static_cast<std::uint32_t>(ReadNumber(stream));
  if (messageType != head.type) return Stop(head.wrongType);
  if (!ReadComma(stream)) return Stop(head.missingComma);
  if (!ReadResponseId(stream, head)) return false;
  if (!ReadComma(stream)) return Stop(head.missingComma);
  responseCode = static_cast<ResponseCode>(ReadNumber(stream));
  if (!ReadComma(stream)) return Stop(head.missingComma);
  return true;
}

bool ResponseMessage::ReadResponseId(std::wistream& stream, const Head& head) {
  const std::int32_t length = ReadNumber(stream);
  if (length < 1 || length > LONGEST_RESPONSE_ID) return Stop(head.badIdentifierLength);
  if (!ReadComma(stream)) return Stop(head.missingComma);
  std::wstring carried;
  if (!ReadText(stream, static_cast<std::uint64_t>(length), carried)) return Stop(head.unreadableIdentifier);
  // One code for every type, although its name speaks of titles and commands.
  if (carried != responseId) return Stop(TABTITLE_COMMAND_ID);
  return true;
}

bool ResponseMessage::Stop(std::optional<ResponseCode> code) {
  if (code) responseCode = *code;
  return false;
}

std::wostream& ResponseMessage::WriteHead(std::wostream& stream) const {
  stream << messageType << L',';
  return WriteCounted(stream, responseId) << L',' << static_cast<std::int32_t>(responseCode);
}

std::wostream& ResponseMessage::WriteWithText(std::wostream& stream, const std::wstring& text) const {
  return WriteCounted(WriteHead(stream) << L',', text);
}

ResponseMessageTabTitles::ResponseMessageTabTitles(std::wstring expectedResponseId)
    : ResponseMessage(std::move(expectedResponseId)) {}

std::wostream& ResponseMessageTabTitles::Serialize(std::wostream& stream) const {
  WriteHead(stream) << L',' << static_cast<std::uint64_t>(titles.size());
  for (const std::wstring& title : titles) WriteCounted(stream << L',', title);
  return stream;
}

std::wistream& ResponseMessageTabTitles::Deserialize(std::wistream& stream) {
  const Head head{MESSAGE_TAB_TITLES, TABTITLE_INCORRECT_MESSAGE_TYPE, {}, {}, {}};
  isValid = ReadHead(stream, head) && ReadTitles(stream);
  return stream;
}

bool ResponseMessageTabTitles::ReadTitles(std::wistream& stream) {
  const std::int32_t count = ReadNumber(stream);
  // No number at all is not the number 0.
  if (stream.fail() || count < 0 || count > MOST_TITLES) return false;
  for (std::int32_t i = 0; i < count; ++i) {
    if (!ReadComma(stream)) return false;
    const std::int32_t length = ReadNumber(stream);
    if (length < 1 || length > LONGEST_TITLE) return false;
    if (!ReadComma(stream) || UnitsLeft(stream) == 0) return false;
    std::wstring title(static_cast<std::size_t>(length), L'\0');
    // What the text is too short for stays zero; the next comma, if one must follow, is then missing.
    stream.read(title.data(), length);
    titles.push_back(std::move(title));
  }
  return true;
}

ResponseMessageMetaData::ResponseMessageMetaData(std::wstring expectedResponseId)
    : ResponseMessage(std::move(expectedResponseId)) {}

std::wostream& ResponseMessageMetaData::Serialize(std::wostream& stream) const {
  return WriteHead(stream) << L',' << sha256Hex << L',' << md5Hex << L',' << fileSize << L',' << extraLength
                           << L',' << extraText;
}

std::wistream& ResponseMessageMetaData::Deserialize(std::wistream& stream) {
  const Head head{MESSAGE_META_DATA, METADATA_INCORRECT_MESSAGE_TYPE, {}, {}, {}};
  isValid = ReadHead(stream, head) && ReadMetaData(stream);
  return stream;
}

bool ResponseMessageMetaData::ReadMetaData(std::wistream& stream) {
  if (!ReadText(stream, SHA256_HEX_LENGTH, sha256Hex) || !ReadComma(stream)) return false;
  if (!ReadText(stream, MD5_HEX_LENGTH, md5Hex) || !ReadComma(stream)) return false;
  fileSize = ReadUnsigned(stream);
  if (!ReadComma(stream)) return false;
  extraLength = ReadUnsigned(stream);
  // No number at all is not the number 0.
  if (stream.fail()) return false;
  if (extraLength == 0) {
    extraText.clear();
    return true;
  }
  return ReadComma(stream) && ReadText(stream, extraLength, extraText);
}

ResponseMessageAutoProxyConfigUrl::ResponseMessageAutoProxyConfigUrl(std::wstring expectedResponseId)
    : ResponseMessage(std::move(expectedResponseId)) {
  messageType = MESSAGE_AUTO_PROXY_CONFIG_URL;
  responseCode = PROXY_UNKNOWN;
}

std::wostream& ResponseMessageAutoProxyConfigUrl::Serialize(std::wostream& stream) const {
  return WriteWithText(stream, url);
}

std::wistream& ResponseMessageAutoProxyConfigUrl::Deserialize(std::wistream& stream) {
  const Head head{MESSAGE_AUTO_PROXY_CONFIG_URL, PROXY_INCORRECT_MESSAGE_TYPE, PROXY_PARSE_FAILURE,
                  PROXY_RESPONSE_ID_SIZE_ERROR, PROXY_CANNOT_READ_MESSAGE};
  if (!ReadHead(stream, head)) return stream;
  const std::int32_t length = ReadNumber(stream);
  if (length < 0) {
    responseCode = PROXY_RESULT_SIZE_IS_NEGATIVE;
  } else if (!ReadComma(stream)) {
    responseCode = PROXY_PARSE_FAILURE;
  } else if (!ReadText(stream, static_cast<std::uint64_t>(length), url)) {
    responseCode = PROXY_CANNOT_READ_MESSAGE;
  } else {
    isValid = true;
  }
  return stream;
}

ResponseMessageCloudStorageProviderLogin::ResponseMessageCloudStorageProviderLogin(
    std::wstring expectedResponseId)
    : ResponseMessage(std::move(expectedResponseId)) {}

std::wostream& ResponseMessageCloudStorageProviderLogin::Serialize(std::wostream& stream) const {
  return WriteWithText(stream, login);
}

std::wistream& ResponseMessageCloudStorageProviderLogin::Deserialize(std::wistream& stream) {
  const Head head{MESSAGE_CLOUD_STORAGE_PROVIDER_LOGIN, CLOUDLOGIN_INCORRECT_MESSAGE_TYPE, {}, {}, {}};
  if (!ReadHead(stream, head)) return stream;
  const std::int32_t length = ReadNumber(stream);
  if (!ReadComma(stream)) return stream;
  isValid = length < 1 || ReadText(stream, static_cast<std::uint64_t>(length), login);
  return stream;
}

}  // namespace ostrel
