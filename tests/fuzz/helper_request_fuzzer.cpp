// Any text as a request to the user helper: the session is asked nothing without the command id, and whatever
// it answers, the reply fits the library's buffer and is valid to its readers.
#include <algorithm>
#include <optional>
#include <sstream>
#include <string>

#include "fuzzer.h"
#include "reply.h"
#include "responder.h"
#include "userhelper/response_messages.h"

namespace {

using namespace ostrel;
using namespace ostrel::helper;
using ostrel_test::Promise;

const std::wstring COMMAND_ID = L"9f3a";

// Answers with as much as it is told to.
class GenerousSession : public UserSession {
 public:
  explicit GenerousSession(std::size_t size) : text_(size, L'x') {}

  bool WasAsked() const { return wasAsked_; }

  TitlesAnswer Titles(std::uint32_t, const std::wstring& processName) override {
    wasAsked_ = true;
    return {SUCCESS, {processName, text_, L"last"}};
  }
  MetadataAnswer Metadata(const std::wstring& filePath) override {
    wasAsked_ = true;
    return {SUCCESS, std::wstring(64, L'0'), std::wstring(32, L'1'), 7, filePath + text_};
  }
  TextAnswer AutoProxyConfigUrl() override {
    wasAsked_ = true;
    return {SUCCESS, text_};
  }
  TextAnswer CloudLogin(const std::wstring& provider, const std::wstring& homeDirectory) override {
    wasAsked_ = true;
    return {CLOUDLOGIN_ERROR_GETTING_CLOUD_LOGIN, provider + homeDirectory + text_};
  }

 private:
  std::wstring text_;
  bool wasAsked_ = false;
};

template <typename Message>
void CheckReply(const std::wstring& reply, const std::wstring& responseId, std::size_t longest) {
  Promise(reply.size() <= longest, "a reply leaves room for the zero at its end");
  Promise(reply.find(L'\0') == std::wstring::npos, "a reply has no zero unit");
  Message message(responseId);
  std::wistringstream stream(reply);
  message.Deserialize(stream);
  Promise(message.isValid, "the library's reader accepts a reply");
}

// One unit per byte, but for those that stand for what is no character at all.
std::wstring TextOf(const std::uint8_t* data, std::size_t size) {
  std::wstring text(data, data + size);
  std::replace(text.begin(), text.end(), wchar_t{0xFF}, static_cast<wchar_t>(0xD83D));
  return text;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::wstring request = TextOf(data, size);
  GenerousSession session(size * 37 % 6000);
  const std::optional<std::wstring> reply = Responder(COMMAND_ID, session).Reply(request);
  const std::optional<RequestHead> head = RequestReader(request).ReadHead();
  Promise(reply.has_value() == head.has_value(), "a request with a readable head has a reply");
  if (!head) {
    Promise(!session.WasAsked(), "the session is asked for readable requests only");
    return 0;
  }
  Promise(!session.WasAsked() || (head->version == 1 && head->commandId == COMMAND_ID),
          "the session is asked by its launcher only");
  switch (head->messageType) {
    case MESSAGE_META_DATA:
      CheckReply<ResponseMessageMetaData>(*reply, head->responseId, LONGEST_METADATA_REPLY);
      break;
    case MESSAGE_AUTO_PROXY_CONFIG_URL:
      CheckReply<ResponseMessageAutoProxyConfigUrl>(*reply, head->responseId, LONGEST_TEXT_REPLY);
      break;
    case MESSAGE_CLOUD_STORAGE_PROVIDER_LOGIN:
      CheckReply<ResponseMessageCloudStorageProviderLogin>(*reply, head->responseId, LONGEST_TEXT_REPLY);
      break;
    default:
      CheckReply<ResponseMessageTabTitles>(*reply, head->responseId, LONGEST_TITLES_REPLY);
  }
  return 0;
}
