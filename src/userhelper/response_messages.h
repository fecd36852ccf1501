#ifndef OSTREL_USERHELPER_RESPONSE_MESSAGES_H
#define OSTREL_USERHELPER_RESPONSE_MESSAGES_H

#include <cstdint>
#include <istream>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "userhelper/message_type.h"
#include "userhelper/response_code.h"

namespace ostrel {

// The user helper's answers, as fields separated by commas. All begin with
//
//   type,length,responseId,code   and then
//
//   tab titles    ,count   and for each title   ,length,title
//   metadata      ,sha256Hex,md5Hex,fileSize,length,extraText
//   proxy URL     ,length,url
//   cloud login   ,length,login
//
// The helper runs as the user, so nothing it says is trusted: a reader neither throws nor reads or allocates
// beyond the text, whatever lengths the text announces. It stops at the first thing that is wrong. Who reads
// a response looks at responseCode first, which holds the helper's code or the reader's own, and then at
// isValid, which is true only of a response that was read whole.
//
// Objects live on the stack of who asks: there is no virtual destructor.
class ResponseMessage {
 public:
  explicit ResponseMessage(std::wstring expectedResponseId);

  virtual std::wostream& Serialize(std::wostream& stream) const;
  // Reads from a stream over the whole text in memory.
  virtual std::wistream& Deserialize(std::wistream& stream);

  std::uint32_t messageType = 0;
  ResponseCode responseCode = SUCCESS;
  std::wstring responseId;  // what the response must carry
  bool isValid = false;

 protected:
  // What makes a response of one type, and the codes for what can be wrong with its head. Without a code,
  // responseCode stays what it was.
  struct Head {
    MessageType type;
    ResponseCode wrongType;
    std::optional<ResponseCode> missingComma;
    std::optional<ResponseCode> badIdentifierLength;
    std::optional<ResponseCode> unreadableIdentifier;
  };

  // Everything up to the comma behind the code; false when reading must stop.
  bool ReadHead(std::wistream& stream, const Head& head);
  std::wostream& WriteHead(std::wostream& stream) const;
  // The whole response of a type that consists of one text.
  std::wostream& WriteWithText(std::wostream& stream, const std::wstring& text) const;

 private:
  bool ReadResponseId(std::wistream& stream, const Head& head);
  bool Stop(std::optional<ResponseCode> code);
};

class ResponseMessageTabTitles : public ResponseMessage {
 public:
  explicit ResponseMessageTabTitles(std::wstring expectedResponseId);

  std::wostream& Serialize(std::wostream& stream) const override;
  // A last title that the end of the text cuts short is kept, with zero units in place of what is missing,
  // and the response counts as valid.
  std::wistream& Deserialize(std::wistream& stream) override;

  std::vector<std::wstring> titles;

 private:
  bool ReadTitles(std::wistream& stream);
};

class ResponseMessageMetaData : public ResponseMessage {
 public:
  explicit ResponseMessageMetaData(std::wstring expectedResponseId);

  std::wostream& Serialize(std::wostream& stream) const override;
  std::wistream& Deserialize(std::wistream& stream) override;

  std::wstring sha256Hex;  // 64 digits
  std::wstring md5Hex;     // 32 digits
  std::uint64_t fileSize = 0;
  std::uint64_t extraLength = 0;
  std::wstring extraText;

 private:
  bool ReadMetaData(std::wistream& stream);
};

class ResponseMessageAutoProxyConfigUrl : public ResponseMessage {
 public:
  explicit ResponseMessageAutoProxyConfigUrl(std::wstring expectedResponseId);

  std::wostream& Serialize(std::wostream& stream) const override;
  std::wistream& Deserialize(std::wistream& stream) override;

  std::wstring url;  // or the helper's explanation
};

class ResponseMessageCloudStorageProviderLogin : public ResponseMessage {
 public:
  explicit ResponseMessageCloudStorageProviderLogin(std::wstring expectedResponseId);

  std::wostream& Serialize(std::wostream& stream) const override;
  // A length below 1 is that of an empty login.
  std::wistream& Deserialize(std::wistream& stream) override;

  std::wstring login;  // or the helper's explanation
};

}  // namespace ostrel

#endif
