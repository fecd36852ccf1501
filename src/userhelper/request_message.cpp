#include "userhelper/request_message.h"

#include <utility>

#include "userhelper/counted_text.h"

namespace ostrel {

RequestMessage::RequestMessage(std::wstring command, std::wstring response, std::uint32_t process,
                               std::wstring processName)
    : messageType(MESSAGE_TAB_TITLES),
      commandId(std::move(command)),
      responseId(std::move(response)),
      processId(process),
      firstText(std::move(processName)) {}

RequestMessage::RequestMessage(std::wstring command, std::wstring response, std::wstring filePath)
    : messageType(MESSAGE_META_DATA),
      commandId(std::move(command)),
      responseId(std::move(response)),
      secondText(std::move(filePath)) {}

RequestMessage::RequestMessage(std::wstring command, std::wstring response)
    : messageType(MESSAGE_AUTO_PROXY_CONFIG_URL),
      commandId(std::move(command)),
      responseId(std::move(response)) {}

RequestMessage::RequestMessage(std::wstring command, std::wstring response, std::wstring provider,
                               std::wstring homeDirectory)
    : messageType(MESSAGE_CLOUD_STORAGE_PROVIDER_LOGIN),
      commandId(std::move(command)),
      responseId(std::move(response)),
      firstText(std::move(provider)),
      secondText(std::move(homeDirectory)) {}

std::wostream& RequestMessage::Serialize(std::wostream& stream) const {
  stream << version << L',' << messageType << L',';
  WriteCounted(stream, commandId) << L',';
  WriteCounted(stream, responseId) << L',';
  switch (messageType) {
    case MESSAGE_TAB_TITLES:
      stream << processId << L',';
      return WriteCounted(stream, firstText);
    case MESSAGE_META_DATA:
      return WriteCounted(stream, secondText);
    case MESSAGE_CLOUD_STORAGE_PROVIDER_LOGIN:
      WriteCounted(stream, firstText) << L',';
      return WriteCounted(stream, secondText);
    default:
      return stream;
  }
}

}  // namespace ostrel
