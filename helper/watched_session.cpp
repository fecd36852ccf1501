#include "watched_session.h"

#include "watchdog.h"

namespace ostrel::helper {

TitlesAnswer WatchedSession::Titles(std::uint32_t processId, const std::wstring& processName) {
  const Watchdog watchdog(patience_.anythingElse, bark_);
  return session_.Titles(processId, processName);
}

MetadataAnswer WatchedSession::Metadata(const std::wstring& filePath) {
  const Watchdog watchdog(patience_.metadata, bark_);
  return session_.Metadata(filePath);
}

TextAnswer WatchedSession::AutoProxyConfigUrl() {
  const Watchdog watchdog(patience_.anythingElse, bark_);
  return session_.AutoProxyConfigUrl();
}

TextAnswer WatchedSession::CloudLogin(const std::wstring& provider, const std::wstring& homeDirectory) {
  const Watchdog watchdog(patience_.anythingElse, bark_);
  return session_.CloudLogin(provider, homeDirectory);
}

}  // namespace ostrel::helper
