#ifndef OSTREL_HELPER_RESPONDER_H
#define OSTREL_HELPER_RESPONDER_H

#include <optional>
#include <string>
#include <string_view>

#include "request_reader.h"
#include "user_session.h"

namespace ostrel::helper {

// Turns the text of a request into the text of its reply. The session is asked nothing before the request has
// proved, by its command id, that it comes from whoever started this program.
class Responder {
 public:
  Responder(std::wstring commandId, UserSession& session)
      : commandId_(std::move(commandId)), session_(session) {}

  // Nothing when not even the response id can be read, without which no reply could be told from another.
  std::optional<std::wstring> Reply(std::wstring_view request) const;

  // Whether the request carries the command id, whatever else is wrong with it.
  bool IsFromLauncher(std::wstring_view request) const;

 private:
  std::wstring Refusal(const RequestHead& head, ResponseCode code, const wchar_t* explanation) const;
  std::wstring ReplyToTitles(const RequestHead& head, RequestReader& reader) const;
  std::wstring ReplyToMetadata(const RequestHead& head, RequestReader& reader) const;
  std::wstring ReplyToAutoProxyConfigUrl(const RequestHead& head, const RequestReader& reader) const;
  std::wstring ReplyToCloudLogin(const RequestHead& head, RequestReader& reader) const;

  std::wstring commandId_;
  UserSession& session_;
};

}  // namespace ostrel::helper

#endif
