#ifndef OSTREL_USERHELPER_REQUEST_MESSAGE_H
#define OSTREL_USERHELPER_REQUEST_MESSAGE_H

#include <cstdint>
#include <ostream>
#include <string>

#include "userhelper/message_type.h"

namespace ostrel {

// One question to the user helper, as fields separated by commas:
//
//   version,type,length,commandId,length,responseId,   and then
//
//   tab titles    processId,length,process name
//   metadata      length,file path
//   proxy URL     nothing: the text ends with the comma
//   cloud login   length,provider,length,home directory
//
// Numbers are decimal. Lengths count the units of the text behind them, which may hold commas itself.
struct RequestMessage {
  // Tab titles of a process.
  RequestMessage(std::wstring command, std::wstring response, std::uint32_t process,
                 std::wstring processName);
  // Metadata of a file.
  RequestMessage(std::wstring command, std::wstring response, std::wstring filePath);
  // Automatic proxy configuration URL.
  RequestMessage(std::wstring command, std::wstring response);
  // Login of a cloud storage provider.
  RequestMessage(std::wstring command, std::wstring response, std::wstring provider,
                 std::wstring homeDirectory);

  std::wostream& Serialize(std::wostream& stream) const;

  std::uint32_t version = 1;
  std::uint32_t messageType;
  // Also on the helper's command line: proves to it that whoever asks is who launched it.
  std::wstring commandId;
  // Comes back in the response.
  std::wstring responseId;
  std::uint32_t processId = 0;
  std::wstring firstText;
  std::wstring secondText;
};

}  // namespace ostrel

#endif
