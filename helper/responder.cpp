#include "responder.h"

#include "reply.h"
#include "userhelper/message_type.h"

namespace ostrel::helper {

namespace {

constexpr std::uint32_t VERSION = 1;

const wchar_t* const WRONG_VERSION = L"The user helper speaks version 1 of its protocol only.";
const wchar_t* const WRONG_COMMAND_ID = L"The request does not carry the command id of the user helper.";
const wchar_t* const WRONG_TYPE = L"The user helper does not know this type of request.";
const wchar_t* const WRONG_BODY = L"The request's body does not belong to its type.";

}  // namespace

std::optional<std::wstring> Responder::Reply(std::wstring_view request) const {
  RequestReader reader(request);
  const std::optional<RequestHead> head = reader.ReadHead();
  if (!head) return std::nullopt;
  if (head->version != VERSION) return Refusal(*head, ResponseCode::TABTITLE_BAD_VERSION, WRONG_VERSION);
  if (head->commandId != commandId_) {
    return Refusal(*head, ResponseCode::TABTITLE_COMMAND_ID, WRONG_COMMAND_ID);
  }
  switch (head->messageType) {
    case MESSAGE_TAB_TITLES:
      return ReplyToTitles(*head, reader);
    case MESSAGE_META_DATA:
      return ReplyToMetadata(*head, reader);
    case MESSAGE_AUTO_PROXY_CONFIG_URL:
      return ReplyToAutoProxyConfigUrl(*head, reader);
    case MESSAGE_CLOUD_STORAGE_PROVIDER_LOGIN:
      return ReplyToCloudLogin(*head, reader);
    default:
      return Refusal(*head, ResponseCode::TABTITLE_INCORRECT_MESSAGE_TYPE, WRONG_TYPE);
  }
}

bool Responder::IsFromLauncher(std::wstring_view request) const {
  const std::optional<RequestHead> head = RequestReader(request).ReadHead();
  return head && head->commandId == commandId_;
}

// In the layout of the request's type, and in that of titles for a type that is none.
std::wstring Responder::Refusal(const RequestHead& head, ResponseCode code,
                                const wchar_t* explanation) const {
  switch (head.messageType) {
    case MESSAGE_META_DATA:
      return MetadataReply(head.responseId, MetadataAnswer::Failed(code));
    case MESSAGE_AUTO_PROXY_CONFIG_URL:
      return AutoProxyConfigUrlReply(head.responseId, {code, explanation});
    case MESSAGE_CLOUD_STORAGE_PROVIDER_LOGIN:
      return CloudLoginReply(head.responseId, {code, explanation});
    default:
      return TitlesReply(head.responseId, TitlesAnswer::Failed(code));
  }
}

std::wstring Responder::ReplyToTitles(const RequestHead& head, RequestReader& reader) const {
  const std::optional<TitlesRequest> body = reader.ReadTitlesBody();
  if (!body) return Refusal(head, ResponseCode::TABTITLE_INCORRECT_MESSAGE_TYPE, WRONG_BODY);
  return TitlesReply(head.responseId, session_.Titles(body->processId, body->processName));
}

std::wstring Responder::ReplyToMetadata(const RequestHead& head, RequestReader& reader) const {
  const std::optional<std::wstring> filePath = reader.ReadFilePathBody();
  if (!filePath) return Refusal(head, ResponseCode::METADATA_INCORRECT_MESSAGE_TYPE, WRONG_BODY);
  return MetadataReply(head.responseId, session_.Metadata(*filePath));
}

std::wstring Responder::ReplyToAutoProxyConfigUrl(const RequestHead& head,
                                                  const RequestReader& reader) const {
  if (!reader.ReadEmptyBody()) return Refusal(head, ResponseCode::PROXY_PARSE_FAILURE, WRONG_BODY);
  return AutoProxyConfigUrlReply(head.responseId, session_.AutoProxyConfigUrl());
}

std::wstring Responder::ReplyToCloudLogin(const RequestHead& head, RequestReader& reader) const {
  const std::optional<CloudLoginRequest> body = reader.ReadCloudLoginBody();
  if (!body) return Refusal(head, ResponseCode::CLOUDLOGIN_INCORRECT_MESSAGE_TYPE, WRONG_BODY);
  return CloudLoginReply(head.responseId, session_.CloudLogin(body->provider, body->homeDirectory));
}

}  // namespace ostrel::helper
