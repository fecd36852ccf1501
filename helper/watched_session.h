#ifndef OSTREL_HELPER_WATCHED_SESSION_H
#define OSTREL_HELPER_WATCHED_SESSION_H

#include <chrono>
#include <functional>

#include "user_session.h"

namespace ostrel::helper {

// A session that does not take longer over an answer than whoever asked is willing to wait. `bark` is called
// when another one does, and not meant to return: what does not answer in time is a call of the system, and
// there is no other way to end one.
class WatchedSession final : public UserSession {
 public:
  struct Patience {
    std::chrono::milliseconds metadata;
    std::chrono::milliseconds anythingElse;
  };

  WatchedSession(UserSession& session, Patience patience, std::function<void()> bark)
      : session_(session), patience_(patience), bark_(std::move(bark)) {}

  TitlesAnswer Titles(std::uint32_t processId, const std::wstring& processName) override;
  MetadataAnswer Metadata(const std::wstring& filePath) override;
  TextAnswer AutoProxyConfigUrl() override;
  TextAnswer CloudLogin(const std::wstring& provider, const std::wstring& homeDirectory) override;

 private:
  UserSession& session_;
  const Patience patience_;
  const std::function<void()> bark_;
};

}  // namespace ostrel::helper

#endif
